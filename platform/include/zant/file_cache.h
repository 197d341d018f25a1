// Files that every request reads (configuration, texts, templates, the user
// database, the version stamps of web resources) kept per process, so that a
// worker serving many requests opens and parses each of them once per change
// on disk rather than once per request.
//
// Paths are host paths (already placed under the appliance root). A file's
// bytes are checked against the disk by one stat() per use (or per
// SetRevalidateSeconds interval): a change of inode, size, mode, owner,
// modification or status-change time reads it again. Stamps (`Stat`) are
// cheaper still and may lag a change by up to one second.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>

namespace ZANT {
namespace FileCache {

// One reading of a file.
struct Content {
  bool opened = false;  // open() succeeded (a directory opens too)
  bool read = false;    // every byte was read (false for a directory)
  int error = 0;        // errno of the failed open or read
  struct stat status {};  // fstat of the opened file
  std::string bytes;
};

// The file's content as of its last change on disk; a missing or unreadable
// file is kept too (opened false, error set) until it appears.
std::shared_ptr<const Content> Read(const std::string& path);

// stat() of `path`, looked at again at most once a second: for web resource
// version stamps, which browsers only use to tell versions apart. A failure
// answers false and sets errno as stat() did.
bool Stat(const std::string& path, struct stat* status);

// A value made from the file's content by `make`, made again only when the
// content changes. `kind` tells apart the different values made from one file.
std::shared_ptr<const void> Derived(
    const std::string& path, const char* kind,
    const std::function<std::shared_ptr<const void>(const Content&)>& make);

template <typename T>
std::shared_ptr<const T> Derived(const std::string& path, const char* kind,
                                 const std::function<T(const Content&)>& make) {
  return std::static_pointer_cast<const T>(
      Derived(path, kind, [&make](const Content& content) -> std::shared_ptr<const void> {
        return std::make_shared<const T>(make(content));
      }));
}

// How long one look at the disk stands for Read and Derived. 0, the default,
// looks at every use; a server answering many requests sets 1, so that a
// change on disk is seen within a second and each file costs at most one
// stat() a second.
void SetRevalidateSeconds(int seconds);
int RevalidateSeconds();

// For a caller that keeps its own look at a file (an open database, a key):
// the monotonic second now, and whether a look made at `lookedAt` (-1:
// never) still stands under the interval above (never while it is 0).
long long MonotonicSecond();
bool LookStands(long long lookedAt, long long now);

}  // namespace FileCache
}  // namespace ZANT
