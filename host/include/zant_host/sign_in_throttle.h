// The throttle on wrong account passwords: per (account, client address),
// shared by every worker process through a small SQLite file in the
// session directory, which the service user can write whenever it can
// write sessions at all.
#pragma once

#include <cstdint>
#include <string>

namespace zant_host {

// Appliance path of the file.
extern const char kSignInFailuresFile[];  // "/var/lib/zant/sessions/sign-in-failures.db"
// This many refused sign-ins of one account from one address within the
// window close that account to that address until the oldest leaves it.
constexpr int kSignInFailureLimit = 5;
constexpr int64_t kSignInWindow = 600;  // seconds
// Error of "ZANT.Core.Auth" "login" while the throttle holds.
constexpr int kErrTooManySignIns = 121;

enum class ThrottleVerdict {
  kAllowed,      // Check: under the limit; Record: recorded
  kThrottled,    // the limit is reached (Record: nothing recorded)
  kUnavailable,  // the file cannot be opened or written
};

class SignInThrottle {
 public:
  // `file` is a host path; by default RootPath(kSignInFailuresFile) at each call.
  SignInThrottle() = default;
  explicit SignInThrottle(const std::string& file) : file_(file) {}

  // Whether another attempt may be looked at. Reads only.
  ThrottleVerdict Check(const std::string& account, const std::string& client, int64_t now) const;
  // Records a refused attempt after counting again, both in one write
  // transaction, so that a burst of concurrent attempts records no more
  // than the limit. Failures older than the window are dropped meanwhile.
  ThrottleVerdict Record(const std::string& account, const std::string& client, int64_t now) const;

  std::string File() const;

 private:
  std::string file_;
};

}  // namespace zant_host
