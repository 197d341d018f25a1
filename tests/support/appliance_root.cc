// A throw-away appliance root that ZANT_ROOT names while it lives.
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "harness.h"

namespace plyth_test {

namespace fs = std::filesystem;

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
  if (hadPrevious_) setenv("ZANT_ROOT", previous_.c_str(), 1);
  else unsetenv("ZANT_ROOT");
  Remove("");
}

void ApplianceRoot::WriteFile(const std::string& appliancePath, const std::string& content) const {
  MakeDir(fs::path(appliancePath).parent_path());
  const std::string host = Host(appliancePath);
  std::ofstream out(host, std::ios::binary | std::ios::trunc);
  out << content;
  if (!out) ADD_FAILURE() << "cannot write " << host;
}

std::string ApplianceRoot::ReadFile(const std::string& appliancePath) const {
  std::ifstream in(Host(appliancePath), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void ApplianceRoot::MakeDir(const std::string& appliancePath) const {
  std::error_code error;
  fs::create_directories(Host(appliancePath), error);
  if (error) ADD_FAILURE() << "cannot make " << Host(appliancePath) << ": " << error.message();
}

void ApplianceRoot::Remove(const std::string& appliancePath) const {
  std::error_code ignored;  // symbolic links are removed, never followed
  fs::remove_all(Host(appliancePath), ignored);
}

}  // namespace plyth_test
