// The redirect targets: the visitor's own scheme, host and path prefix, then
// the office editor's or the web application's fixed part.
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "redirect.h"

namespace {

struct RedirectCase {
  const char* description;
  const char* scheme;  // REQUEST_SCHEME; null: unset
  const char* host;    // HTTP_HOST; null: unset
  const char* uri;
  Json::Value file;
  std::string location;
};

void PrintTo(const RedirectCase& c, std::ostream* os) { *os << c.description; }

Json::Value File(const char* permanentLink, const char* fileId) {
  Json::Value file(Json::objectValue);
  if (permanentLink != nullptr) file["permanent_link"] = permanentLink;
  if (fileId != nullptr) file["file_id"] = fileId;
  return file;
}

ZANT::APIRequest RequestFor(const RedirectCase& c) {
  ZANT::APIRequest request;
  if (c.scheme != nullptr) request.SetServerVar("REQUEST_SCHEME", c.scheme);
  if (c.host != nullptr) request.SetServerVar("HTTP_HOST", c.host);
  request.SetServerVar("REQUEST_URI", c.uri);
  return request;
}

void ExpectRedirect(const ZANT::APIResponse& response, const std::string& location) {
  EXPECT_TRUE(response.IsSuccess());
  EXPECT_TRUE(response.GetData().isNull());
  ASSERT_EQ(1u, response.GetHeaders().size());
  EXPECT_EQ("Location", response.GetHeaders()[0].first);
  EXPECT_EQ(location, response.GetHeaders()[0].second);
}

class RedirectOfficeTest : public ::testing::TestWithParam<RedirectCase> {};

TEST_P(RedirectOfficeTest, Location) {
  const RedirectCase& c = GetParam();
  ZANT::APIRequest request = RequestFor(c);
  ZANT::APIResponse response;
  RedirectOffice(&request, &response, c.file, "AbC");
  ExpectRedirect(response, c.location);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RedirectOfficeTest,
    ::testing::Values(
        RedirectCase{"plain sharing path", "http", "nas:5000", "/d/s/AbC", File("P1", "1"),
                     "http://nas:5000/oo/r/P1?sharing_link=AbC"},
        RedirectCase{"alias kept in front", "https", "nas.example", "/alias/d/s/AbC?x=1",
                     File("P1", "1"), "https://nas.example/alias/oo/r/P1?sharing_link=AbC"},
        RedirectCase{"first marker counts", "http", "nas", "/a/d/s/b/d/s/c", File("P1", "1"),
                     "http://nas/a/oo/r/P1?sharing_link=AbC"},
        RedirectCase{"path without the marker is copied whole", "http", "nas", "/other/path",
                     File("P1", "1"), "http://nas/other/path/oo/r/P1?sharing_link=AbC"},
        RedirectCase{"permanent link is percent-encoded", "http", "nas", "/d/s/AbC",
                     File("P 1/+&", "1"), "http://nas/oo/r/P%201%2F%2B%26?sharing_link=AbC"},
        RedirectCase{"missing permanent link and host", "http", nullptr, "/d/s/AbC",
                     File(nullptr, nullptr), "http:///oo/r/?sharing_link=AbC"},
        RedirectCase{"no scheme variables: empty scheme", nullptr, "nas", "/d/s/AbC",
                     File("P1", "1"), "://nas/oo/r/P1?sharing_link=AbC"}),
    [](const ::testing::TestParamInfo<RedirectCase>& info) {
      return "Row" + std::to_string(info.index);
    });

TEST(RedirectOfficeEncoding, SharingLinkIsPercentEncoded) {
  ZANT::APIRequest request;
  request.SetServerVar("REQUEST_SCHEME", "http");
  request.SetServerVar("HTTP_HOST", "nas");
  request.SetServerVar("REQUEST_URI", "/d/s/x");
  ZANT::APIResponse response;
  RedirectOffice(&request, &response, File("P1", "1"), "a b=c");
  ExpectRedirect(response, "http://nas/oo/r/P1?sharing_link=a%20b%3Dc");
}

class RedirectFuncTest : public ::testing::TestWithParam<RedirectCase> {};

TEST_P(RedirectFuncTest, Location) {
  const RedirectCase& c = GetParam();
  ZANT::APIRequest request = RequestFor(c);
  ZANT::APIResponse response;
  RedirectFunc(&request, &response, c.file);
  ExpectRedirect(response, c.location);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RedirectFuncTest,
    ::testing::Values(
        RedirectCase{"permanent-link path", "http", "nas:5000", "/d/f/P1", File("P1", "123"),
                     "http://nas:5000/?launchApp=ZANT.QRT.Plyth.Application&launchParam="
                     "file_id%3D123"},
        RedirectCase{"alias kept in front", "https", "nas", "/alias/d/f/P1", File("P1", "123"),
                     "https://nas/alias/?launchApp=ZANT.QRT.Plyth.Application&launchParam="
                     "file_id%3D123"},
        RedirectCase{"path without the marker is copied whole", "http", "nas", "/x/y",
                     File("P1", "123"),
                     "http://nas/x/y/?launchApp=ZANT.QRT.Plyth.Application&launchParam="
                     "file_id%3D123"},
        RedirectCase{"missing file id", "http", "nas", "/d/f/P1", File("P1", nullptr),
                     "http://nas/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3D"},
        RedirectCase{"file id with reserved bytes", "http", "nas", "/d/f/P1", File("P1", "a&b"),
                     "http://nas/?launchApp=ZANT.QRT.Plyth.Application&launchParam="
                     "file_id%3Da%26b"}),
    [](const ::testing::TestParamInfo<RedirectCase>& info) {
      return "Row" + std::to_string(info.index);
    });

}  // namespace
