// The desktop session library: sign-in state and token of the request being
// dispatched (ZANT::CurrentRequest()).
#pragma once

#include <string>

enum _tag_cgi_position {
  CGI_POSITION_NONE = 0,
  CGI_POSITION_WEBAPI = 1,
};

class WebMan {
 public:
  explicit WebMan(bool fromCurrentRequest);

  // The request's sign-in state: 1 a signed-in user, 2 a signed-in
  // administrator, -7 a user named by the web server in front ("USERNAME"
  // environment variable) who exists and is enabled in the user database;
  // -1 nobody signed in; -2 the named user is unknown or disabled; -3 a
  // signed-in user lacks a privilege of `privilegeMask` that only
  // administrators hold (bit 0x100). `allowExpired` is accepted and unused.
  int CheckAuthorized(int privilegeMask, _tag_cgi_position position, bool allowExpired);
  // The session's token, empty when there is none. `renew` is unused.
  std::string GetZantToken(bool renew);
};
