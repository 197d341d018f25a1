// Files the platform reads: key-value files (and the relay suffixes and
// security headers read through them), the relay connections table, UI
// texts, JSON files, and the root they all live under.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "zant/appliance.h"
#include "zant/json_util.h"
#include "zant/nxo.h"
#include "zant/qrt.h"
#include "zant/relay.h"
#include "zant/vlibc.h"

namespace {

using plyth_test::Parse;

const char kConf[] = "/etc/test.conf";


template <typename Case>
class RootTable : public ::testing::TestWithParam<Case> {
 protected:
  plyth_test::ApplianceRoot root_;
};

struct KeyValueCase { const char* d; const char* content; int expectedReturn; const char* value; };
using KeyValue = RootTable<KeyValueCase>;

TEST_P(KeyValue, ReadsKeyA) {
  const KeyValueCase& c = GetParam();
  root_.WriteFile(kConf, c.content);
  char buffer[64] = "";
  EXPECT_EQ(c.expectedReturn, VLIBCFileGetKeyValue(kConf, "a", buffer, sizeof(buffer), 0)) << c.d;
  EXPECT_STREQ(c.value, buffer) << c.d;
}

INSTANTIATE_TEST_SUITE_P(Rows, KeyValue, ::testing::ValuesIn(std::vector<KeyValueCase>{
  {"quoted", "a=\"hello world\"\n", 12, "hello world"},
  {"unquoted, trimmed", "a=  v w \t\n", 4, "v w"},
  {"spaces around =, indented", "  a = \"x=y\"\n", 4, "x=y"},
  {"first duplicate wins", "a=\"1\"\na=\"2\"\n", 2, "1"},
  {"comments, junk, CR LF", "#a=\"c\"\r\njunk\r\n\r\na=\"e\"\r\n", 2, "e"},
  {"text after quote, no final line end", "a=\"v\" # note", 2, "v"},
  {"unterminated quote", "a=\"abc\n", 4, "abc"},
  {"empty value", "a=\"\"\n", 1, ""},
  {"other keys only", "ab=\"1\"\nA=\"2\"\n", 0, ""},
}));

TEST_F(KeyValue, CutsToBufferAndReportsFileErrors) {
  root_.WriteFile(kConf, "a=\"abcdef\"\n");
  char buffer[16] = "unchanged";
  EXPECT_EQ(4, VLIBCFileGetKeyValue(kConf, "a", buffer, 4, 0));
  EXPECT_STREQ("abc", buffer);
  EXPECT_EQ(1, VLIBCFileCheckKeyValue(kConf, "a", "abcdef", 0));
  EXPECT_EQ(0, VLIBCFileCheckKeyValue(kConf, "a", "abcde", 0));
  std::strcpy(buffer, "unchanged");
  VLIBCErrSet(VLIBC_ERR_NONE, "", 0);
  EXPECT_EQ(-1, VLIBCFileGetKeyValue("/etc/missing.conf", "a", buffer, sizeof(buffer), 0));
  EXPECT_STREQ("unchanged", buffer);
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
  EXPECT_STREQ("keyvalue.cc", VLIBCErrorGetFile());
  EXPECT_EQ(-1, VLIBCFileGetKeyValue(kConf, "a", buffer, 0, 0));
  EXPECT_EQ(VLIBC_ERR_BAD_PARAMETER, VLIBCErrGet());
}

std::string Suffixes() { return ZANT::RelayGlobalSuffix() + " " + ZANT::RelayChinaSuffix(); }
std::string Headers() {
  ZANT::NXO::SecurityOptions options(nullptr);
  return options.GetXFrameOption() + " | " + options.GetCSPHeader();
}
const char kRelayConf[] = "/usr/zant/etc/relay/relay.conf";
const char kSecurityConf[] = "/usr/zant/etc/security.conf";
const std::string kSuffixes = ".skyvane-zant.io .skyvane-zant.cn";
const std::string kCSP =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "object-src 'none'; base-uri 'self'; frame-ancestors 'self'";

// Settings read through key-value files, with their defaults.
struct SettingCase { const char *file, *content; std::string (*read)(); std::string expected; };
using Setting = RootTable<SettingCase>;

TEST_P(Setting, ReadOrDefault) {
  if (GetParam().content) root_.WriteFile(GetParam().file, GetParam().content);
  EXPECT_EQ(GetParam().expected, GetParam().read()) << GetParam().file;
}

INSTANTIATE_TEST_SUITE_P(Rows, Setting, ::testing::ValuesIn(std::vector<SettingCase>{
  {kRelayConf, nullptr, Suffixes, kSuffixes},
  {kRelayConf, "global_suffix=.example-abc.net\nchina_suffix=.example-abc.org", Suffixes,
   ".example-abc.net .example-abc.org"},
  {kRelayConf, "global_suffix=.short.net\nchina_suffix=xexample-abc.org", Suffixes, kSuffixes},
  {kRelayConf, "global_suffix=\".Example-ABC.net\"", Suffixes, ".example-abc.net .skyvane-zant.cn"},
  {kSecurityConf, nullptr, Headers, "SAMEORIGIN | " + kCSP},
  {kSecurityConf, "x_frame_options=\"DENY\"\ncontent_security_policy=\"default-src 'none'\"\n",
   Headers, "DENY | default-src 'none'"},
  {kSecurityConf, "x_frame_options=\"\"\ncontent_security_policy=", Headers,
   "SAMEORIGIN | " + kCSP},
}));

const char kConnections[] =
    "# serverAddr serverPort remoteAddr remotePort type\n"
    "10.0.0.5 5001 127.0.0.1 * relay\n"
    "10.0.0.5 5001 * * 64\n"
    "10.0.0.5 *    10.17.* 4000 tunnel\n"
    "10.0.0.9 80 1.2.3.4 1 bogus\n"
    "10.0.0.9 80 1.2.3.4\n"
    "   10.0.0.9\t*\t*\t*\t32\n";

struct RelayCase { const char *d, *serverAddr, *serverPort, *remoteAddr, *remotePort;
                   int ret, type; };
using Relay = RootTable<RelayCase>;

TEST_P(Relay, Classifies) {
  root_.WriteFile("/usr/zant/etc/relay/connections", kConnections);
  const RelayCase& c = GetParam();
  int type = -7;
  EXPECT_EQ(c.ret, ZANTRelayServiceGetConnectionTypeByAddr(c.serverAddr, c.serverPort, c.remoteAddr,
                                                           c.remotePort, &type));
  EXPECT_EQ(c.type, type) << c.d;
}

INSTANTIATE_TEST_SUITE_P(Rows, Relay, ::testing::ValuesIn(std::vector<RelayCase>{
  {"first match wins", "10.0.0.5", "5001", "127.0.0.1", "9", 0, 32},
  {"wildcard remote", "10.0.0.5", "5001", "8.8.8.8", "1", 0, 64},
  {"prefix wildcard", "10.0.0.5", "5000", "10.17.3.4", "4000", 0, 64},
  {"prefix not matched", "10.0.0.5", "5000", "10.18.3.4", "4000", 0, 16},
  {"malformed skipped, tabs", "10.0.0.9", "80", "1.2.3.4", "1", 0, 32},
  {"whole address only", "10.0.0.55", "5001", "127.0.0.1", "9", 0, 16},
  {"null argument", nullptr, "5001", "127.0.0.1", "9", -1, -7},
}));

TEST_F(Relay, MissingTableIsDirectAndNullTypeFails) {
  int type = -7;
  EXPECT_EQ(0, ZANTRelayServiceGetConnectionTypeByAddr("a", "1", "b", "2", &type));
  EXPECT_EQ(ZANT_RELAY_CONN_DIRECT, type);
  EXPECT_EQ(-1, ZANTRelayServiceGetConnectionTypeByAddr("a", "1", "b", "2", nullptr));
}

const char kTexts[] = "/var/packages/X/target/texts/enu";
Json::Value ParseTexts(const char* dir) {
  return ZANT::QRT::LocalizedStringParser::ParseTexts(dir);
}

struct TextsCase { const char* d; const char* content; const char* expected; };
using Texts = RootTable<TextsCase>;

TEST_P(Texts, Parses) {
  root_.WriteFile(std::string(kTexts) + "/strings", GetParam().content);
  EXPECT_EQ(Parse(GetParam().expected), ParseTexts(kTexts)) << GetParam().d;
}

INSTANTIATE_TEST_SUITE_P(Rows, Texts, ::testing::ValuesIn(std::vector<TextsCase>{
  {"sections, reopened merge", "[c]\nok = \"OK\"\nx=\"1\"\n[e]\n[c]\nx = \"2\"\n",
   R"({"c":{"ok":"OK","x":"2"},"e":{}})"},
  {"escapes", "[s]\nk = \"say \\\"hi\\\"\\\\\\n\\t C:\\dir = # \"\n",
   R"({"s":{"k":"say \"hi\"\\\n\t C:\\dir = # "}})"},
  {"BOM, comments, blank lines, CR LF",
   "\xEF\xBB\xBF[s]\r\n# n\r\n\r\n; o\r\n  # k = \"x\"\r\nk = \"v\"\r\n", R"({"s":{"k":"v"}})"},
  {"malformed lines skipped",
   "k = \"v\"\n[s]\nk = v\nj = \"v\" x\nl \"v\"\nm = \"w\n[]\nn = \"1\"\n", R"({"s":{}})"},
}));

TEST_F(Texts, MissingDirectoryIsEmptyObject) {
  EXPECT_EQ(Json::Value(Json::objectValue), ParseTexts("/no/dir"));
}

// The serialised form pages write into their answers, made once per change.
TEST_P(Texts, AsJsonTextWrittenLikeTheValue) {
  root_.WriteFile(std::string(kTexts) + "/strings", GetParam().content);
  EXPECT_EQ(ZANT::JsonToString(Parse(GetParam().expected)), *ZANT::QRT::LocalizedStringParser::TextsJson(kTexts))
      << GetParam().d;
}

TEST_F(Texts, AsJsonTextFollowsTheFileAndAMissingOneIsEmpty) {
  EXPECT_EQ("{}", *ZANT::QRT::LocalizedStringParser::TextsJson("/no/dir"));
  root_.WriteFile(std::string(kTexts) + "/strings", "[a]\nk = \"1\"\n");
  EXPECT_EQ(R"({"a":{"k":"1"}})", *ZANT::QRT::LocalizedStringParser::TextsJson(kTexts));
  root_.WriteFile(std::string(kTexts) + "/strings", "[b]\nk = \"22\"\n");
  EXPECT_EQ(R"({"b":{"k":"22"}})", *ZANT::QRT::LocalizedStringParser::TextsJson(kTexts));
}

struct ToStringCase { Json::Value value; std::string expected; };
class JsonText : public ::testing::TestWithParam<ToStringCase> {};

TEST_P(JsonText, Compact) { EXPECT_EQ(GetParam().expected, ZANT::JsonToString(GetParam().value)); }

INSTANTIATE_TEST_SUITE_P(Rows, JsonText, ::testing::ValuesIn(std::vector<ToStringCase>{
  {Parse(R"({ "p" : "link:A", "a" : [ 1, true, null, -3, 1.5, 4294967296 ] })"),
   R"({"a":[1,true,null,-3,1.5,4294967296],"p":"link:A"})"},
  {Json::Value("\xe6\x97\xa5\xc3\xa9 </script>"), "\"\xe6\x97\xa5\xc3\xa9 </script>\""},
  {Json::Value("a\"b\\c\nd\x01"), "\"a\\\"b\\\\c\\nd\\u0001\""},
}));

TEST(JsonFile, ReadsValidFilesOnly) {
  plyth_test::ApplianceRoot root;
  root.WriteFile("/ok.json", "{\"date_format\":\"Y-m-d\"}\n");
  root.WriteFile("/bad.json", "{\"date_format\":");
  Json::Value out("untouched");
  EXPECT_FALSE(ZANT::JsonFromFile(root.Host("/bad.json"), out));
  EXPECT_FALSE(ZANT::JsonFromFile(root.Host("/missing.json"), out));
  EXPECT_EQ(Json::Value("untouched"), out);
  ASSERT_TRUE(ZANT::JsonFromFile(root.Host("/ok.json"), out));
  EXPECT_EQ("Y-m-d", out["date_format"].asString());
}

struct RootCase { const char* root; std::string path, expected, webRoot; };  // null: unset
using Root = RootTable<RootCase>;

TEST_P(Root, PlacesPath) {
  GetParam().root ? setenv("ZANT_ROOT", GetParam().root, 1) : unsetenv("ZANT_ROOT");
  EXPECT_EQ(GetParam().expected, ZANT::RootPath(GetParam().path));
  EXPECT_EQ(GetParam().webRoot, ZANT::WebRoot());
}

INSTANTIATE_TEST_SUITE_P(Rows, Root, ::testing::ValuesIn(std::vector<RootCase>{
  {nullptr, "/etc/zantinfo.conf", "/etc/zantinfo.conf", "/usr/zant/zantman"},
  {"", "/etc/x", "/etc/x", "/usr/zant/zantman"},
  {"/tmp/r//", "/etc/x", "/tmp/r/etc/x", "/tmp/r/usr/zant/zantman"},
  {"/", "/etc/x", "/etc/x", "/usr/zant/zantman"},
  {"/tmp/r", "etc/x", "etc/x", "/tmp/r/usr/zant/zantman"},
}));

}  // namespace
