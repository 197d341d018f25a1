// Effective root ids for the framework's own reads of root-only files (the
// user database), when the process keeps root as its saved ids.
#pragma once

#include <sys/types.h>

namespace zant_host {

class ScopedRootIds {
 public:
  ScopedRootIds();
  ~ScopedRootIds();
  ScopedRootIds(const ScopedRootIds&) = delete;
  ScopedRootIds& operator=(const ScopedRootIds&) = delete;

 private:
  bool raised_ = false;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
};

}  // namespace zant_host
