// Shared pieces of the libFuzzer targets: a failed invariant, and a scratch
// appliance root for the parsers that read their input from a file.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

namespace plyth_fuzz {

// A broken invariant is a finding like a crash: say which, then abort so
// that libFuzzer keeps the input.
#define FUZZ_CHECK(condition)                                                   \
  do {                                                                          \
    if (!(condition)) {                                                         \
      std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, \
                   #condition);                                                 \
      std::abort();                                                             \
    }                                                                           \
  } while (0)

// A fresh appliance root under TMPDIR, made once per process, named by
// ZANT_ROOT, and removed when the process ends normally.
inline const std::string& ScratchRoot() {
  static const std::string root = [] {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") +
                          "/plyth-fuzz-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    setenv("ZANT_ROOT", pattern.c_str(), 1);
    return pattern;
  }();
  static const bool cleanup = [] {
    std::atexit([] { (void)std::system(("rm -rf '" + root + "'").c_str()); });
    return true;
  }();
  (void)cleanup;
  return root;
}

// Replaces the appliance file `appliancePath` with `bytes`, making its
// directories on first use.
inline void WriteApplianceFile(const std::string& appliancePath, const std::string& bytes) {
  const std::string path = ScratchRoot() + appliancePath;
  static std::set<std::string> made;
  const std::string directory = path.substr(0, path.rfind('/'));
  if (made.insert(directory).second) {
    for (size_t slash = path.find('/', ScratchRoot().size() + 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
      if (mkdir(path.substr(0, slash).c_str(), 0700) != 0 && errno != EEXIST) std::abort();
    }
  }
  // Rewritten in place and cut to size afterwards: truncating a file to
  // nothing first makes some file systems flush it on close, which slows
  // every run down to the disk's pace.
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 || pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()) ||
      ftruncate(fd, static_cast<off_t>(bytes.size())) != 0) {
    std::perror(path.c_str());
    std::abort();
  }
  close(fd);
}

}  // namespace plyth_fuzz
