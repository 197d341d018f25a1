// Shared pieces of the libFuzzer targets: the entry point, a failed
// invariant, and a scratch appliance root for the parsers that read their
// input from a file.
#pragma once

#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

// FUZZ_TEXT_TARGET(const std::string& text) { ... } and
// FUZZ_DATA_TARGET(FuzzedDataProvider& in) { ... } define the run of one input.
#define FUZZ_TEXT_TARGET(parameter)                                             \
  static void FuzzOne(parameter);                                               \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {     \
    FuzzOne(std::string(reinterpret_cast<const char*>(data), size));            \
    return 0;                                                                   \
  }                                                                             \
  static void FuzzOne(parameter)
#define FUZZ_DATA_TARGET(parameter)                                             \
  static void FuzzOne(parameter);                                               \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {     \
    FuzzedDataProvider provider(data, size);                                    \
    FuzzOne(provider);                                                          \
    return 0;                                                                   \
  }                                                                             \
  static void FuzzOne(parameter)

// A broken invariant is a finding like a crash: say which, then abort so
// that libFuzzer keeps the input.
#define FUZZ_CHECK(condition) \
  ((condition) ? (void)0 : plyth_fuzz::Fail(__FILE__, __LINE__, #condition))

namespace plyth_fuzz {

[[noreturn]] inline void Fail(const char* file, int line, const char* what) {
  std::fprintf(stderr, "%s:%d: invariant failed: %s\n", file, line, what);
  std::abort();
}

// A fresh appliance root under TMPDIR, made once per process, named by
// ZANT_ROOT, and removed when the process ends normally.
// Never destroyed: the removal at exit still reads it.
inline const std::string& ScratchRoot() {
  static const std::string& root = *[] {
    const char* tmp = std::getenv("TMPDIR");
    auto* pattern = new std::string(std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/plyth-fuzz-XXXXXX");
    if (mkdtemp(&(*pattern)[0]) == nullptr) Fail(__FILE__, __LINE__, "mkdtemp");
    setenv("ZANT_ROOT", pattern->c_str(), 1);
    std::atexit([] { (void)std::system(("rm -rf '" + root + "'").c_str()); });
    return pattern;
  }();
  return root;
}

// Replaces the appliance file `appliancePath` with `bytes`, making its
// directories on first use.
inline void WriteApplianceFile(const std::string& appliancePath, const std::string& bytes) {
  const std::string path = ScratchRoot() + appliancePath;
  static std::set<std::string> made;
  const std::string dir = path.substr(0, path.rfind('/'));
  std::error_code error;
  if (made.insert(dir).second) FUZZ_CHECK(std::filesystem::create_directories(dir, error) || !error);
  // Rewritten in place and cut to size afterwards: truncating a file to
  // nothing first makes some file systems flush it on close, which slows
  // every run down to the disk's pace.
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  FUZZ_CHECK(fd >= 0 && pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()) &&
             ftruncate(fd, static_cast<off_t>(bytes.size())) == 0);
  close(fd);
}

}  // namespace plyth_fuzz
