// Which file versions a resource name, with the web server's CGI variables
// set: DOCUMENT_ROOT for absolute names, the directory above webapi/ of
// SCRIPT_FILENAME for the rest, the working directory for names holding
// both webman/ and webapi/. The directories are read once per process, so
// the whole file shares one tree made before the first test.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <ctime>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "web_resources.h"

namespace {

class WebTree : public ::testing::Environment {
 public:
  static std::string base;

  void SetUp() override {
    char pattern[] = "/tmp/plyth-webres-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    base = pattern;
    File("/docroot/abs/page.js", 1000000002);
    File("/ui/webapi/entry.cgi", 1000000003);
    File("/ui/scripts/a.js?v=1", 1000000004);
    File("/cwd/webman/x/webapi/y.js", 1000000005);
    File("/ui/webman/x/webapi/y.js", 1000000105);
    File("/ui/webman/only.js", 1000000006);
    File("/cwd/webman/only.js", 1000000106);
    File("/ui/webapi/only.js", 1000000007);
    Touch("/ui", 1000000001);  // last: creating files changes it
    setenv("DOCUMENT_ROOT", (base + "/docroot").c_str(), 1);
    setenv("SCRIPT_FILENAME", (base + "/ui/webapi/entry.cgi").c_str(), 1);
    ASSERT_EQ(chdir((base + "/cwd").c_str()), 0);
  }

  void TearDown() override {
    if (chdir("/") != 0) return;
    std::string command = "rm -rf '" + base + "'";
    if (system(command.c_str()) != 0) ADD_FAILURE() << command;
  }

 private:
  static void File(const std::string& path, time_t mtime) {
    std::string full = base + path;
    std::string mkdirs = "mkdir -p '" + full.substr(0, full.rfind('/')) + "'";
    ASSERT_EQ(system(mkdirs.c_str()), 0);
    std::ofstream(full) << "//";
    Touch(path, mtime);
  }
  static void Touch(const std::string& path, time_t mtime) {
    struct utimbuf times = {mtime, mtime};
    ASSERT_EQ(utime((base + path).c_str(), &times), 0) << path;
  }
};
std::string WebTree::base;
::testing::Environment* const kTree = ::testing::AddGlobalTestEnvironment(new WebTree);

struct ModifyTimeRow {
  const char* description;
  const char* name;
  const char* expected;
};

class ModifyTime : public ::testing::TestWithParam<ModifyTimeRow> {};

TEST_P(ModifyTime, ResolvesTheName) {
  EXPECT_EQ(GetWebFileModifyTime(GetParam().name), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ModifyTime,
    ::testing::Values(
        ModifyTimeRow{"null is the script directory", nullptr, "1000000001"},
        ModifyTimeRow{"empty is the script directory", "", "1000000001"},
        ModifyTimeRow{"absolute names are under the document root", "/abs/page.js",
                      "1000000002"},
        ModifyTimeRow{"the query is ignored", "webapi/entry.cgi?api=X&method=get",
                      "1000000003"},
        ModifyTimeRow{"only the last query is cut", "scripts/a.js?v=1?x=2", "1000000004"},
        ModifyTimeRow{"webman/ and webapi/ together: working directory",
                      "webman/x/webapi/y.js", "1000000005"},
        ModifyTimeRow{"webman/ alone: script directory", "webman/only.js", "1000000006"},
        ModifyTimeRow{"webapi/ alone: script directory", "webapi/only.js", "1000000007"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

TEST(ModifyTimeMissing, AMissingFileIsVersionedNow) {
  time_t before = time(nullptr);
  long long version = std::stoll(GetWebFileModifyTime("scripts/missing.js"));
  time_t after = time(nullptr);
  EXPECT_GE(version, before);
  EXPECT_LE(version, after);
}

struct ScriptTagRow {
  const char* description;
  const char* src;
  const char* expected;
};

class ScriptTag : public ::testing::TestWithParam<ScriptTagRow> {};

TEST_P(ScriptTag, WritesOneLine) {
  EXPECT_EQ(GetScriptTag(GetParam().src, false), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ScriptTag,
    ::testing::Values(
        ScriptTagRow{"a query gets &", "webapi/entry.cgi?api=X",
                     "<script type=\"text/javascript\" "
                     "src=\"webapi/entry.cgi?api=X&v=1000000003\"></script>\n"},
        ScriptTagRow{"no query gets ?", "webman/only.js",
                     "<script type=\"text/javascript\" "
                     "src=\"webman/only.js?v=1000000006\"></script>\n"},
        ScriptTagRow{"the source is not escaped", "/abs/page.js",
                     "<script type=\"text/javascript\" "
                     "src=\"/abs/page.js?v=1000000002\"></script>\n"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

TEST(ScriptTagNoCache, AppendsTheCurrentTime) {
  time_t before = time(nullptr);
  std::string tag = GetScriptTag("webman/only.js", true);
  time_t after = time(nullptr);
  const std::string head =
      "<script type=\"text/javascript\" src=\"webman/only.js?v=1000000006&_dc=";
  const std::string tail = "\"></script>\n";
  ASSERT_EQ(tag.compare(0, head.size(), head), 0) << tag;
  ASSERT_EQ(tag.compare(tag.size() - tail.size(), tail.size(), tail), 0) << tag;
  long long dc = std::stoll(tag.substr(head.size(), tag.size() - head.size() - tail.size()));
  EXPECT_GE(dc, before);
  EXPECT_LE(dc, after);
}

TEST(ScriptTagLength, IsCutTo1023Characters) {
  std::string src = "scripts/" + std::string(1100, 'a') + ".js";
  std::string tag = GetScriptTag(src.c_str(), false);
  EXPECT_EQ(tag.size(), 1023u);
  EXPECT_EQ(tag, ("<script type=\"text/javascript\" src=\"" + src).substr(0, 1023));
}

}  // namespace
