// Key-value files, the last error, the desktop ports and the relay suffixes
// (all read through the same key-value reader).
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <thread>

#include "harness.h"
#include "zant/nxo.h"
#include "zant/relay.h"
#include "zant/vlibc.h"

namespace {

const char kConf[] = "/etc/test.conf";

struct KeyValueCase {
  const char* description;
  const char* content;
  const char* key;
  int expectedReturn;
  const char* expectedValue;  // buffer after the call
};
void PrintTo(const KeyValueCase& c, std::ostream* os) { *os << c.description; }

class KeyValueTable : public ::testing::TestWithParam<KeyValueCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(KeyValueTable, ReadsValue) {
  const KeyValueCase& c = GetParam();
  root_.WriteFile(kConf, c.content);
  char buffer[64];
  std::memset(buffer, 'X', sizeof(buffer));
  buffer[0] = '\0';
  EXPECT_EQ(c.expectedReturn, VLIBCFileGetKeyValue(kConf, c.key, buffer, sizeof(buffer), 0));
  EXPECT_STREQ(c.expectedValue, buffer);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, KeyValueTable,
    ::testing::Values(
        KeyValueCase{"quoted", "a=\"hello world\"\n", "a", 12, "hello world"},
        KeyValueCase{"unquoted", "a=hello\n", "a", 6, "hello"},
        KeyValueCase{"spaces around equals", "a = \"x y\"\n", "a", 4, "x y"},
        KeyValueCase{"unquoted value trimmed", "a=  v w \t\n", "a", 4, "v w"},
        KeyValueCase{"indented line", "   a=\"v\"\n", "a", 2, "v"},
        KeyValueCase{"first of duplicate keys", "a=\"1\"\na=\"2\"\n", "a", 2, "1"},
        KeyValueCase{"comment skipped", "#a=\"c\"\n  # a=\"d\"\na=\"e\"\n", "a", 2, "e"},
        KeyValueCase{"blank lines and lines without equals", "\n\njunk\na=\"v\"\n", "a", 2, "v"},
        KeyValueCase{"empty quoted value", "a=\"\"\n", "a", 1, ""},
        KeyValueCase{"empty unquoted value", "a=\n", "a", 1, ""},
        KeyValueCase{"absent key", "b=\"1\"\n", "a", 0, ""},
        KeyValueCase{"longer key is another key", "ab=\"1\"\n", "a", 0, ""},
        KeyValueCase{"keys are case sensitive", "A=\"1\"\n", "a", 0, ""},
        KeyValueCase{"equals inside value", "a=\"x=y\"\n", "a", 4, "x=y"},
        KeyValueCase{"text after closing quote", "a=\"v\" # note\n", "a", 2, "v"},
        KeyValueCase{"unterminated quote", "a=\"abc\n", "a", 4, "abc"},
        KeyValueCase{"single quotes kept", "a='v'\n", "a", 4, "'v'"},
        KeyValueCase{"CR LF line ends", "b=1\r\na=\"v\"\r\n", "a", 2, "v"},
        KeyValueCase{"last line without line end", "a=\"v\"", "a", 2, "v"},
        KeyValueCase{"empty file", "", "a", 0, ""}));

class KeyValueFile : public ::testing::Test {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_F(KeyValueFile, CutsValueToBuffer) {
  root_.WriteFile(kConf, "a=\"abcdef\"\n");
  char buffer[4];
  EXPECT_EQ(4, VLIBCFileGetKeyValue(kConf, "a", buffer, sizeof(buffer), 0));
  EXPECT_STREQ("abc", buffer);
  EXPECT_EQ(1, VLIBCFileGetKeyValue(kConf, "a", buffer, 1, 0));
  EXPECT_STREQ("", buffer);
}

TEST_F(KeyValueFile, MissingFileSetsError) {
  VLIBCErrSet(VLIBC_ERR_NONE, "", 0);
  char buffer[16] = "unchanged";
  EXPECT_EQ(-1, VLIBCFileGetKeyValue("/etc/missing.conf", "a", buffer, sizeof(buffer), 0));
  EXPECT_STREQ("unchanged", buffer);
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
  EXPECT_STREQ("keyvalue.cc", VLIBCErrorGetFile());
  EXPECT_GT(VLIBCErrorGetLine(), 0);
}

TEST_F(KeyValueFile, DirectoryIsUnreadable) {
  root_.WriteFile("/etc/dir.conf/inner", "a=1\n");
  char buffer[16];
  EXPECT_EQ(-1, VLIBCFileGetKeyValue("/etc/dir.conf", "a", buffer, sizeof(buffer), 0));
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
}

TEST_F(KeyValueFile, BadParametersSetError) {
  char buffer[16];
  EXPECT_EQ(-1, VLIBCFileGetKeyValue(nullptr, "a", buffer, sizeof(buffer), 0));
  EXPECT_EQ(VLIBC_ERR_BAD_PARAMETER, VLIBCErrGet());
  VLIBCErrSet(VLIBC_ERR_NONE, "", 0);
  EXPECT_EQ(-1, VLIBCFileGetKeyValue(kConf, "a", buffer, 0, 0));
  EXPECT_EQ(VLIBC_ERR_BAD_PARAMETER, VLIBCErrGet());
}

TEST_F(KeyValueFile, PathsArePlacedUnderRoot) {
  root_.WriteFile("/etc/zantinfo.conf", "k=\"in root\"\n");
  char buffer[16];
  EXPECT_EQ(8, VLIBCFileGetKeyValue("/etc/zantinfo.conf", "k", buffer, sizeof(buffer), 0));
  EXPECT_STREQ("in root", buffer);
}

struct CheckCase {
  const char* description;
  const char* key;
  const char* value;
  int expected;
};
void PrintTo(const CheckCase& c, std::ostream* os) { *os << c.description; }

class CheckKeyValueTable : public ::testing::TestWithParam<CheckCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(CheckKeyValueTable, ComparesWholeValue) {
  root_.WriteFile(kConf, "supportddns=\"yes\"\nempty=\"\"\n");
  const CheckCase& c = GetParam();
  EXPECT_EQ(c.expected, VLIBCFileCheckKeyValue(kConf, c.key, c.value, 0));
}

INSTANTIATE_TEST_SUITE_P(Values, CheckKeyValueTable,
                         ::testing::Values(CheckCase{"same", "supportddns", "yes", 1},
                                           CheckCase{"other case", "supportddns", "YES", 0},
                                           CheckCase{"prefix", "supportddns", "ye", 0},
                                           CheckCase{"longer", "supportddns", "yess", 0},
                                           CheckCase{"empty value", "empty", "", 1},
                                           CheckCase{"absent key", "other", "", 0}));

TEST_F(KeyValueFile, CheckOfAbsentKeyOrFileIsZero) {
  root_.WriteFile(kConf, "a=\"\"\n");
  EXPECT_EQ(0, VLIBCFileCheckKeyValue(kConf, "b", "", 0));
  EXPECT_EQ(0, VLIBCFileCheckKeyValue("/etc/missing.conf", "a", "", 0));
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
}

TEST(LastError, KeptPerThreadAndCopied) {
  std::string file = "caller.cc";
  VLIBCErrSet(VLIBC_ERR_NO_SUCH_USER, file.c_str(), 42);
  file = "overwritten";
  EXPECT_STREQ("caller.cc", VLIBCErrorGetFile());
  int otherCode = -1;
  std::string otherFile = "x";
  std::thread([&] {
    otherCode = VLIBCErrGet();
    otherFile = VLIBCErrorGetFile();
  }).join();
  EXPECT_EQ(VLIBC_ERR_NONE, otherCode);
  EXPECT_EQ("", otherFile);
  EXPECT_EQ(VLIBC_ERR_NO_SUCH_USER, VLIBCErrGet());
  EXPECT_EQ(42, VLIBCErrorGetLine());
}

struct PortsCase {
  const char* description;
  const char* content;  // null: no file
  int http;
  int https;
};
void PrintTo(const PortsCase& c, std::ostream* os) { *os << c.description; }

class PortsTable : public ::testing::TestWithParam<PortsCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(PortsTable, ReadsPortsOrDefaults) {
  const PortsCase& c = GetParam();
  if (c.content != nullptr) root_.WriteFile("/etc/zantinfo.conf", c.content);
  zantw3::Engine engine;
  zantw3::NXO nxo(engine);
  EXPECT_EQ(c.http, nxo.GetHttpPort());
  EXPECT_EQ(c.https, nxo.GetHttpsPort());
}

INSTANTIATE_TEST_SUITE_P(
    Files, PortsTable,
    ::testing::Values(
        PortsCase{"no file", nullptr, 5000, 5001},
        PortsCase{"no keys", "other=\"1\"\n", 5000, 5001},
        PortsCase{"both set", "nxo_http_port=\"80\"\nnxo_https_port=\"443\"\n", 80, 443},
        PortsCase{"unquoted", "nxo_http_port=8080\n", 8080, 5001},
        PortsCase{"not a number", "nxo_http_port=\"abc\"\nnxo_https_port=\"44x\"\n", 5000, 5001},
        PortsCase{"sign", "nxo_http_port=\"-80\"\nnxo_https_port=\"+443\"\n", 5000, 5001},
        PortsCase{"out of range", "nxo_http_port=\"0\"\nnxo_https_port=\"65536\"\n", 5000, 5001},
        PortsCase{"highest port", "nxo_https_port=\"65535\"\n", 5000, 65535},
        PortsCase{"empty", "nxo_http_port=\"\"\n", 5000, 5001}));

struct SuffixCase {
  const char* description;
  const char* content;  // null: no file
  const char* global;
  const char* china;
};
void PrintTo(const SuffixCase& c, std::ostream* os) { *os << c.description; }

class SuffixTable : public ::testing::TestWithParam<SuffixCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(SuffixTable, ReadsSuffixOrDefault) {
  const SuffixCase& c = GetParam();
  if (c.content != nullptr) root_.WriteFile("/usr/zant/etc/relay/relay.conf", c.content);
  EXPECT_EQ(c.global, ZANT::RelayGlobalSuffix());
  EXPECT_EQ(c.china, ZANT::RelayChinaSuffix());
}

INSTANTIATE_TEST_SUITE_P(
    Files, SuffixTable,
    ::testing::Values(
        SuffixCase{"no file", nullptr, ".skyvane-zant.io", ".skyvane-zant.cn"},
        SuffixCase{"both set", "global_suffix=\".example-abc.net\"\nchina_suffix=\".example-abc.org\"\n",
                   ".example-abc.net", ".example-abc.org"},
        SuffixCase{"too short", "global_suffix=\".short.net\"\n", ".skyvane-zant.io", ".skyvane-zant.cn"},
        SuffixCase{"too long", "global_suffix=\".example-abcd.net\"\n", ".skyvane-zant.io",
                   ".skyvane-zant.cn"},
        SuffixCase{"no leading dot", "china_suffix=\"xexample-abc.org\"\n", ".skyvane-zant.io",
                   ".skyvane-zant.cn"},
        SuffixCase{"upper case folded", "global_suffix=\".Example-ABC.net\"\n", ".example-abc.net",
                   ".skyvane-zant.cn"}));

}  // namespace
