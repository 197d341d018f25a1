// geteuid/getegid/setresuid/setresgid of the test executables. While a
// FakeIdentity lives they act on fake ids (the process keeps its real ones);
// otherwise they pass through to the C library.
#include <dlfcn.h>
#include <errno.h>
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
};

IdentityState& State() {
  static IdentityState* state = new IdentityState;  // outlives static destructors
  return *state;
}

// Runs `f` on the state under its lock.
template <typename F>
auto Locked(F f) {
  std::lock_guard<std::mutex> lock(State().mutex);
  return f(State());
}

template <typename Fn>
Fn Real(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// The fake id while one is active, else the C library's.
template <typename Id>
Id Get(Id IdentityState::*field, const char* name) {
  bool active = false;
  Id id = Locked([&](IdentityState& s) { return (active = s.active) ? s.*field : Id(); });
  return active ? id : Real<Id (*)(void)>(name)();
}

// Applies a set call to the fake ids, or hands it to the C library.
template <typename Id>
int Set(const char* name, Id r, Id e, Id s, Id IdentityState::*target, bool IdentityState::*fail) {
  int rc = 1;  // not faked
  Locked([&](IdentityState& state) {
    if (!state.active) return;
    if (state.*fail) {
      errno = EPERM;
      rc = -1;
      return;
    }
    if (e != static_cast<Id>(-1)) state.*target = e;
    rc = 0;
  });
  return rc != 1 ? rc : Real<int (*)(Id, Id, Id)>(name)(r, e, s);
}

}  // namespace

FakeIdentity::FakeIdentity(uid_t euid, gid_t egid) {
  Locked([&](IdentityState& s) {
    s.active = true;
    s.euid = euid;
    s.egid = egid;
    s.failUid = s.failGid = false;
  });
}

FakeIdentity::~FakeIdentity() {
  Locked([](IdentityState& s) { s.active = false; });
}

void FakeIdentity::FailSetresuid(bool fail) { Locked([&](IdentityState& s) { s.failUid = fail; }); }
void FakeIdentity::FailSetresgid(bool fail) { Locked([&](IdentityState& s) { s.failGid = fail; }); }
uid_t FakeIdentity::Euid() const { return Locked([](IdentityState& s) { return s.euid; }); }
gid_t FakeIdentity::Egid() const { return Locked([](IdentityState& s) { return s.egid; }); }
bool FakeIdentityActive() { return Locked([](IdentityState& s) { return s.active; }); }

}  // namespace plyth_test

using plyth_test::IdentityState;

extern "C" uid_t geteuid(void) noexcept {
  return plyth_test::Get<uid_t>(&IdentityState::euid, "geteuid");
}

extern "C" gid_t getegid(void) noexcept {
  return plyth_test::Get<gid_t>(&IdentityState::egid, "getegid");
}

extern "C" int setresuid(uid_t r, uid_t e, uid_t s) noexcept {
  return plyth_test::Set<uid_t>("setresuid", r, e, s, &IdentityState::euid, &IdentityState::failUid);
}

extern "C" int setresgid(gid_t r, gid_t e, gid_t s) noexcept {
  return plyth_test::Set<gid_t>("setresgid", r, e, s, &IdentityState::egid, &IdentityState::failGid);
}
