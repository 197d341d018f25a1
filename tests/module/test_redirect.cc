// The redirect targets: the visitor's own scheme, host and path prefix, then
// the office editor's or the web application's fixed part.
#include "module_testing.h"
#include "redirect.h"

namespace {

struct Row {
  const char* description;
  bool office;
  const char *scheme /* REQUEST_SCHEME; empty: unset */, *uri;
  const char* id;  // permanent_link for the office, file_id for the application
  const char* location;
};

class Redirect : public ::testing::TestWithParam<Row> {};

TEST_P(Redirect, Location) {
  const Row& row = GetParam();
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
  ASSERT_EQ(1u, response.GetHeaders().size());
  EXPECT_EQ("Location", response.GetHeaders()[0].first);
  EXPECT_EQ(row.location, response.GetHeaders()[0].second);
}

#define APP "/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3D"

INSTANTIATE_TEST_SUITE_P(Rows, Redirect, ::testing::Values(
    Row{"office", true, "http", "/d/s/S", "P1", "http://nas:5000/oo/r/P1?sharing_link=a%20b%3Dc"},
    Row{"office alias", true, "https", "/alias/d/s/S?x=1", "P1",
        "https://nas:5000/alias/oo/r/P1?sharing_link=a%20b%3Dc"},
    Row{"office first marker", true, "http", "/a/d/s/b/d/s/c", "P 1/+&",
        "http://nas:5000/a/oo/r/P%201%2F%2B%26?sharing_link=a%20b%3Dc"},
    Row{"office without marker", true, "", "/other/path", "P1",
        "://nas:5000/other/path/oo/r/P1?sharing_link=a%20b%3Dc"},
    Row{"application", false, "http", "/d/f/P1", "123", "http://nas:5000" APP "123"},
    Row{"application alias", false, "https", "/alias/d/f/P1", "a&b",
        "https://nas:5000/alias" APP "a%26b"},
    Row{"application without marker", false, "http", "/x/y", "1", "http://nas:5000/x/y" APP "1"}));

}  // namespace
