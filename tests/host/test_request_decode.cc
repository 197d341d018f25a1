// Request decoding: JSON-or-string values, form fields, bodies and limits.
#include <gtest/gtest.h>

#include "zant/json_util.h"
#include "zant_host/request_decode.h"

namespace {

using zant_host::CgiVars;
using zant_host::FormFields;
using zant_host::Limits;

struct TextRow {
  const char* text;
  const char* expected;  // compact JSON of ValueFromText
};

class ValueFromTextTest : public ::testing::TestWithParam<TextRow> {};

TEST_P(ValueFromTextTest, JsonOrString) {
  EXPECT_EQ(ZANT::JsonToString(zant_host::ValueFromText(GetParam().text)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    HostDecode, ValueFromTextTest,
    ::testing::Values(TextRow{"\"abc\"", "\"abc\""}, TextRow{"abc", "\"abc\""},
                      TextRow{"12", "12"}, TextRow{"-0", "0"}, TextRow{"0.5e1", "5.0"},
                      TextRow{" true ", "true"}, TextRow{"null", "null"},
                      TextRow{"[1,{\"a\":\"\\u00e9\"}]", "[1,{\"a\":\"\xc3\xa9\"}]"},
                      TextRow{"", "\"\""}, TextRow{"00123", "\"00123\""}, TextRow{"1.", "\"1.\""},
                      TextRow{".5", "\".5\""}, TextRow{"+1", "\"+1\""}, TextRow{"1e", "\"1e\""},
                      TextRow{"[1,]", "\"[1,]\""}, TextRow{"{\"a\":1,}", "\"{\\\"a\\\":1,}\""},
                      TextRow{"'a'", "\"'a'\""}, TextRow{"tru", "\"tru\""},
                      TextRow{"1 2", "\"1 2\""}, TextRow{"\"a\\x\"", "\"\\\"a\\\\x\\\"\""},
                      TextRow{"\"tab\there\"", "\"\\\"tab\\there\\\"\""},
                      TextRow{"NaN", "\"NaN\""}, TextRow{"/*c*/1", "\"/*c*/1\""},
                      TextRow{"{\"a\" 1}", "\"{\\\"a\\\" 1}\""}));

TEST(HostDecode, DeepNestingStaysAString) {
  const std::string deep = std::string(300, '[') + std::string(300, ']');
  EXPECT_TRUE(zant_host::ValueFromText(deep).isString());
  const std::string fine = std::string(200, '[') + std::string(200, ']');
  EXPECT_TRUE(zant_host::ValueFromText(fine).isArray());
}

struct FormRow {
  const char* name;
  std::string text;
  size_t maxFields;
  int expectedRc;
  FormFields expected;
};

class ParseFormTest : public ::testing::TestWithParam<FormRow> {};

TEST_P(ParseFormTest, Fields) {
  FormFields fields;
  EXPECT_EQ(zant_host::ParseForm(GetParam().text, GetParam().maxFields, &fields),
            GetParam().expectedRc);
  if (GetParam().expectedRc == 0) {
    EXPECT_EQ(fields, GetParam().expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    HostDecode, ParseFormTest,
    ::testing::Values(
        FormRow{"plain", "a=1&b=2", 10, 0, {{"a", "1"}, {"b", "2"}}},
        FormRow{"escapes_and_plus", "a%20b=c+d%2B%3d&x=%e2%82%AC", 10, 0,
                {{"a b", "c d+="}, {"x", "\xe2\x82\xac"}}},
        FormRow{"empty_pieces_skipped", "&&a&=v&", 10, 0, {{"a", ""}, {"", "v"}}},
        FormRow{"second_equals_kept", "a=b=c", 10, 0, {{"a", "b=c"}}},
        FormRow{"nul_byte", "a=%00", 10, 0, {{"a", std::string(1, '\0')}}},
        FormRow{"bad_escape_value", "a=%G0", 10, 101, {}},
        FormRow{"bad_escape_name", "%=1", 10, 101, {}},
        FormRow{"cut_escape", "a=%a", 10, 101, {}},
        FormRow{"field_limit", "a=1&b=2&c=3", 2, 108, {}},
        FormRow{"empty", "", 0, 0, {}}),
    [](const ::testing::TestParamInfo<FormRow>& info) { return std::string(info.param.name); });

struct BodyRow {
  const char* name;
  CgiVars vars;
  std::string input;
  int expectedRc;
  std::string expectedBody;
};

class ReadFormBodyTest : public ::testing::TestWithParam<BodyRow> {};

TEST_P(ReadFormBodyTest, Reads) {
  Limits limits;
  limits.maxBody = 8;
  const std::string input = GetParam().input;
  size_t pos = 0;
  // Hands the input over two bytes at a time, as a pipe may.
  zant_host::BodyReader reader = [&](char* buffer, size_t size) -> long {
    size_t n = std::min<size_t>({size, 2, input.size() - pos});
    std::copy(input.begin() + static_cast<long>(pos), input.begin() + static_cast<long>(pos + n),
              buffer);
    pos += n;
    return static_cast<long>(n);
  };
  std::string body = "stale";
  EXPECT_EQ(zant_host::ReadFormBody(GetParam().vars, reader, limits, &body), GetParam().expectedRc);
  if (GetParam().expectedRc == 0) {
    EXPECT_EQ(body, GetParam().expectedBody);
  }
}

const char kForm[] = "application/x-www-form-urlencoded";

INSTANTIATE_TEST_SUITE_P(
    HostDecode, ReadFormBodyTest,
    ::testing::Values(
        BodyRow{"sized", {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kForm}, {"CONTENT_LENGTH", "5"}},
                "a=1&bXYZ", 0, "a=1&b"},
        BodyRow{"to_the_end", {{"REQUEST_METHOD", "post"}, {"CONTENT_TYPE", kForm}}, "a=12345", 0,
                "a=12345"},
        BodyRow{"type_with_charset",
                {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", " application/X-WWW-form-urlencoded ;charset=UTF-8"}},
                "a=1", 0, "a=1"},
        BodyRow{"get_reads_nothing", {{"REQUEST_METHOD", "GET"}, {"CONTENT_TYPE", kForm}}, "a=1", 0, ""},
        BodyRow{"multipart_reads_nothing",
                {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", "multipart/form-data; boundary=x"}}, "a=1",
                0, ""},
        BodyRow{"exactly_the_limit", {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kForm}}, "a=345678", 0,
                "a=345678"},
        BodyRow{"over_the_limit_unsized", {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kForm}},
                "a=3456789", 108, ""},
        BodyRow{"over_the_limit_sized",
                {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kForm}, {"CONTENT_LENGTH", "9"}}, "", 108, ""},
        BodyRow{"length_with_sign",
                {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kForm}, {"CONTENT_LENGTH", "-1"}}, "", 101, ""},
        BodyRow{"input_ends_early",
                {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kForm}, {"CONTENT_LENGTH", "6"}}, "a=1", 101,
                ""}),
    [](const ::testing::TestParamInfo<BodyRow>& info) { return std::string(info.param.name); });

struct RequestRow {
  const char* name;
  std::string query;
  std::string body;
  int expectedRc;
  std::string api;
  int version;
  std::string method;
  std::string params;  // compact JSON
};

class DecodeRequestTest : public ::testing::TestWithParam<RequestRow> {};

TEST_P(DecodeRequestTest, Selection) {
  ZANT::APIRequest request;
  const CgiVars vars = {{"QUERY_STRING", GetParam().query}, {"HTTP_HOST", "h:1"}, {"HTTP_HOST", "x"}};
  EXPECT_EQ(zant_host::DecodeRequest(vars, GetParam().body, Limits(), &request),
            GetParam().expectedRc);
  EXPECT_EQ(request.GetEnv("HTTP_HOST", Json::Value()).asString(), "h:1");
  if (GetParam().expectedRc != 0) return;
  EXPECT_EQ(request.GetAPI(), GetParam().api);
  EXPECT_EQ(request.GetVersion(), GetParam().version);
  EXPECT_EQ(request.GetMethod(), GetParam().method);
  EXPECT_EQ(ZANT::JsonToString(request.GetParams()), GetParam().params);
}

INSTANTIATE_TEST_SUITE_P(
    HostDecode, DecodeRequestTest,
    ::testing::Values(
        RequestRow{"body_after_query", "api=A&x=q", "version=1&method=m&x=b&y=b", 0, "A", 1, "m",
                   "{\"x\":\"q\",\"y\":\"b\"}"},
        RequestRow{"first_api_counts_even_null", "api=null&api=A&version=1&method=m", "", 101, "", 0, "", ""},
        RequestRow{"version_string_digits", "api=A&version=%22007%22&method=m", "", 0, "A", 7, "m", "{}"},
        RequestRow{"version_negative", "api=A&version=-1&method=m", "", 0, "A", -1, "m", "{}"},
        RequestRow{"version_too_large", "api=A&version=2147483648&method=m", "", 101, "", 0, "", ""},
        RequestRow{"version_bool", "api=A&version=true&method=m", "", 101, "", 0, "", ""},
        RequestRow{"api_object", "api=%7B%7D&version=1&method=m", "", 101, "", 0, "", ""}),
    [](const ::testing::TestParamInfo<RequestRow>& info) { return std::string(info.param.name); });

TEST(HostDecode, LimitsAnswer108AndKeepServerVariables) {
  Limits limits;
  limits.maxQuery = 4;
  limits.maxCookie = 3;
  ZANT::APIRequest request;
  EXPECT_EQ(zant_host::DecodeRequest({{"QUERY_STRING", "a=123"}}, "", limits, &request), 108);
  EXPECT_EQ(request.GetEnv("QUERY_STRING", Json::Value()).asString(), "a=123");
  ZANT::APIRequest withCookie;
  EXPECT_EQ(zant_host::DecodeRequest({{"HTTP_COOKIE", "a=12"}}, "", limits, &withCookie), 108);
}

struct VarRow {
  const char* name;
  bool server;
};

class ServerVariableTest : public ::testing::TestWithParam<VarRow> {};

TEST_P(ServerVariableTest, Classified) {
  EXPECT_EQ(zant_host::IsServerVariable(GetParam().name), GetParam().server) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    HostDecode, ServerVariableTest,
    ::testing::Values(VarRow{"HTTP_HOST", true}, VarRow{"SERVER_PORT", true}, VarRow{"REMOTE_USER", true},
                      VarRow{"REQUEST_URI", true}, VarRow{"CONTENT_TYPE", true},
                      VarRow{"SCRIPT_FILENAME", true}, VarRow{"DOCUMENT_ROOT", true},
                      VarRow{"QUERY_STRING", true}, VarRow{"HTTPS", true}, VarRow{"HOST", true},
                      VarRow{"REWRITE_APP", true}, VarRow{"GATEWAY_INTERFACE", true},
                      VarRow{"HTTP_", false}, VarRow{"PATH", false}, VarRow{"HOME", false},
                      VarRow{"USERNAME", false}, VarRow{"ZANT_ROOT", false}, VarRow{"HOSTNAME", false},
                      VarRow{"LD_PRELOAD", false}));

TEST(HostDecode, ServerVarsFromEnvironKeepsOnlyServerVariables) {
  char a[] = "HTTP_HOST=h=1";
  char b[] = "PATH=/bin";
  char c[] = "BROKEN";
  char d[] = "HTTPS=";
  char* envp[] = {a, b, c, d, nullptr};
  EXPECT_EQ(zant_host::ServerVarsFromEnviron(envp), (CgiVars{{"HTTP_HOST", "h=1"}, {"HTTPS", ""}}));
}

}  // namespace
