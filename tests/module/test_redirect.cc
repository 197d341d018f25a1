// The redirect targets: the visitor's own scheme, host and path prefix, then
// the office editor's or the web application's fixed part.
#include "module_testing.h"
#include "redirect.h"

namespace {

TEST(Redirect, Location) {
  // REQUEST_SCHEME (empty: unset); the id is the permanent_link for the office, the file_id for the application.
  const struct {
    bool office;
    const char *scheme, *uri, *id, *location;
  } rows[] = {
      {true, "http", "/a/d/s/b/d/s/c", "P 1/+&", "http://nas:5000/a/oo/r/P%201%2F%2B%26?sharing_link=a%20b%3Dc"},
      {true, "", "/other/path", "P1", "://nas:5000/other/path/oo/r/P1?sharing_link=a%20b%3Dc"},
      {false, "https", "/alias/d/f/P1", "a&b",
       "https://nas:5000/alias/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3Da%26b"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.uri);
    ZANT::APIRequest request;
    if (*row.scheme != '\0') request.SetServerVar("REQUEST_SCHEME", row.scheme);
    request.SetServerVar("HTTP_HOST", "nas:5000");
    request.SetServerVar("REQUEST_URI", row.uri);
    Json::Value file;
    file[row.office ? "permanent_link" : "file_id"] = row.id;
    ZANT::APIResponse response;
    if (row.office) RedirectOffice(&request, &response, file, "a b=c");
    else RedirectFunc(&request, &response, file);
    EXPECT_TRUE(response.IsSuccess());
    EXPECT_TRUE(response.GetData().isNull());
    EXPECT_EQ(response.GetHeaders(), (std::vector<std::pair<std::string, std::string>>{{"Location", row.location}}));
  }
}

}  // namespace
