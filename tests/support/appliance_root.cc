// A throw-away appliance root that ZANT_ROOT names while it lives.
#include <errno.h>
#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "harness.h"

namespace plyth_test {

namespace {

void MakeDirs(const std::string& hostPath) {
  for (size_t pos = hostPath.find('/', 1); ; pos = hostPath.find('/', pos + 1)) {
    std::string prefix = hostPath.substr(0, pos);
    if (!prefix.empty() && mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
      ADD_FAILURE() << "cannot make " << prefix;
      return;
    }
    if (pos == std::string::npos) return;
  }
}

std::string Parent(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

int RemoveOne(const char* path, const struct stat* /*st*/, int /*flag*/, struct FTW* /*ftw*/) {
  return remove(path);
}

void RemoveTree(const std::string& hostPath) {
  struct stat st;
  if (lstat(hostPath.c_str(), &st) != 0) return;
  nftw(hostPath.c_str(), RemoveOne, 16, FTW_DEPTH | FTW_PHYS);
}

}  // namespace

ApplianceRoot::ApplianceRoot() {
  char pattern[] = "/tmp/plyth-root-XXXXXX";
  if (mkdtemp(pattern) == nullptr) ADD_FAILURE() << "mkdtemp failed";
  path_ = pattern;
  if (const char* old = getenv("ZANT_ROOT")) {
    hadPrevious_ = true;
    previous_ = old;
  }
  setenv("ZANT_ROOT", path_.c_str(), 1);
}

ApplianceRoot::~ApplianceRoot() {
  if (hadPrevious_) {
    setenv("ZANT_ROOT", previous_.c_str(), 1);
  } else {
    unsetenv("ZANT_ROOT");
  }
  RemoveTree(path_);
}

void ApplianceRoot::WriteFile(const std::string& appliancePath, const std::string& content) const {
  std::string host = Host(appliancePath);
  MakeDirs(Parent(host));
  std::ofstream out(host, std::ios::binary | std::ios::trunc);
  out << content;
  if (!out) ADD_FAILURE() << "cannot write " << host;
}

std::string ApplianceRoot::ReadFile(const std::string& appliancePath) const {
  std::ifstream in(Host(appliancePath), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void ApplianceRoot::MakeDir(const std::string& appliancePath) const { MakeDirs(Host(appliancePath)); }

void ApplianceRoot::Remove(const std::string& appliancePath) const { RemoveTree(Host(appliancePath)); }

}  // namespace plyth_test
