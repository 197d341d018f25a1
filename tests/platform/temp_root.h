// A throw-away appliance root for the platform's own tests: a fresh
// directory that ZANT_ROOT names while the object lives.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace platform_test {

class TempRoot {
 public:
  TempRoot() {
    char pattern[] = "/tmp/zant-platform-XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made != nullptr ? made : "";
    const char* previous = std::getenv("ZANT_ROOT");
    hadPrevious_ = previous != nullptr;
    if (hadPrevious_) previous_ = previous;
    setenv("ZANT_ROOT", path_.c_str(), 1);
  }
  ~TempRoot() {
    if (hadPrevious_) {
      setenv("ZANT_ROOT", previous_.c_str(), 1);
    } else {
      unsetenv("ZANT_ROOT");
    }
    if (!path_.empty()) {
      std::string command = "rm -rf '" + path_ + "'";
      if (std::system(command.c_str()) != 0) {
        // Leftovers under /tmp are harmless.
      }
    }
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  const std::string& Path() const { return path_; }
  std::string Host(const std::string& appliancePath) const { return path_ + appliancePath; }

  void WriteFile(const std::string& appliancePath, const std::string& content) const {
    const std::string host = Host(appliancePath);
    for (size_t slash = host.find('/', 1); slash != std::string::npos;
         slash = host.find('/', slash + 1)) {
      mkdir(host.substr(0, slash).c_str(), 0755);
    }
    std::ofstream out(host, std::ios::binary | std::ios::trunc);
    out << content;
  }

  std::string ReadFile(const std::string& appliancePath) const {
    std::ifstream in(Host(appliancePath), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

 private:
  std::string path_;
  std::string previous_;
  bool hadPrevious_ = false;
};

}  // namespace platform_test
