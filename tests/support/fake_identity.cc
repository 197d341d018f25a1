// geteuid/getegid/setresuid/setresgid of the test executables. While a
// FakeIdentity lives they act on fake ids (the process keeps its real ones);
// otherwise they pass through to the C library.
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <mutex>

#include "harness.h"

namespace plyth_test {

namespace {

struct IdentityState {
  std::mutex mutex;
  bool active = false;
  uid_t euid = 0;
  gid_t egid = 0;
  bool failUid = false;
  bool failGid = false;
  std::vector<std::string> calls;
};

IdentityState& State() {
  static IdentityState* state = new IdentityState;  // outlives static destructors
  return *state;
}

template <typename Fn>
Fn Real(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

std::string CallText(const char* name, unsigned r, unsigned e, unsigned s) {
  char text[96];
  snprintf(text, sizeof(text), "%s(%d, %d, %d)", name, static_cast<int>(r), static_cast<int>(e),
           static_cast<int>(s));
  return text;
}

// Applies a fake set call; false when the fake is not active.
template <typename Id>
bool FakeSet(const char* name, Id r, Id e, Id s, Id IdentityState::*target,
             bool IdentityState::*fail, int* rc) {
  IdentityState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (!state.active) return false;
  state.calls.push_back(CallText(name, r, e, s));
  if (state.*fail) {
    errno = EPERM;
    *rc = -1;
    return true;
  }
  if (e != static_cast<Id>(-1)) state.*target = e;
  *rc = 0;
  return true;
}

}  // namespace

FakeIdentity::FakeIdentity(uid_t euid, gid_t egid) {
  IdentityState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.active = true;
  state.euid = euid;
  state.egid = egid;
  state.failUid = false;
  state.failGid = false;
  state.calls.clear();
}

FakeIdentity::~FakeIdentity() {
  IdentityState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.active = false;
  state.calls.clear();
}

void FakeIdentity::FailSetresuid(bool fail) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().failUid = fail;
}

void FakeIdentity::FailSetresgid(bool fail) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().failGid = fail;
}

uid_t FakeIdentity::Euid() const {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().euid;
}

gid_t FakeIdentity::Egid() const {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().egid;
}

bool FakeIdentityActive() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().active;
}

std::vector<std::string> FakeIdentity::Calls() const {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().calls;
}

}  // namespace plyth_test

using plyth_test::IdentityState;

extern "C" uid_t geteuid(void) noexcept {
  IdentityState& state = plyth_test::State();
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.active) return state.euid;
  }
  static auto real = plyth_test::Real<uid_t (*)(void)>("geteuid");
  return real();
}

extern "C" gid_t getegid(void) noexcept {
  IdentityState& state = plyth_test::State();
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.active) return state.egid;
  }
  static auto real = plyth_test::Real<gid_t (*)(void)>("getegid");
  return real();
}

extern "C" int setresuid(uid_t r, uid_t e, uid_t s) noexcept {
  int rc = 0;
  if (plyth_test::FakeSet<uid_t>("setresuid", r, e, s, &IdentityState::euid,
                                 &IdentityState::failUid, &rc)) {
    return rc;
  }
  static auto real = plyth_test::Real<int (*)(uid_t, uid_t, uid_t)>("setresuid");
  return real(r, e, s);
}

extern "C" int setresgid(gid_t r, gid_t e, gid_t s) noexcept {
  int rc = 0;
  if (plyth_test::FakeSet<gid_t>("setresgid", r, e, s, &IdentityState::egid,
                                 &IdentityState::failGid, &rc)) {
    return rc;
  }
  static auto real = plyth_test::Real<int (*)(gid_t, gid_t, gid_t)>("setresgid");
  return real(r, e, s);
}
