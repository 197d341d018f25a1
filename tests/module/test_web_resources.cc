// Which file versions a resource name, with the web server's CGI variables
// set: DOCUMENT_ROOT for absolute names, the directory above webapi/ of
// SCRIPT_FILENAME for the rest, the working directory for names holding
// both webman/ and webapi/. The directories are read once per process, so
// the whole file shares one tree made before the first test.
#include <stdlib.h>
#include <unistd.h>

#include <ctime>
#include <memory>

#include "module_testing.h"
#include "web_resources.h"

namespace {

class WebTree : public ::testing::Environment {
 public:
  void SetUp() override {
    root_ = std::make_unique<ApplianceRoot>();
    const std::pair<const char*, time_t> files[] = {
        {"/docroot/abs/page.js", 1000000002}, {"/ui/scripts/a.js?v=1", 1000000004},
        {"/cwd/webman/x/webapi/y.js", 1000000005}, {"/ui/webman/x/webapi/y.js", 1000000105},
        {"/ui/webman/only.js", 1000000006}, {"/cwd/webman/only.js", 1000000106}};
    for (const auto& file : files) {
      root_->WriteFile(file.first, "//");
      SetMTime(root_->Host(file.first), file.second);
    }
    SetMTime(root_->Host("/ui"), 1000000001);  // last: creating files changes it
    setenv("DOCUMENT_ROOT", root_->Host("/docroot").c_str(), 1);
    setenv("SCRIPT_FILENAME", root_->Host("/ui/webapi/entry.cgi").c_str(), 1);
    ASSERT_EQ(chdir(root_->Host("/cwd").c_str()), 0);
  }
  void TearDown() override {
    EXPECT_EQ(chdir("/"), 0);
    root_.reset();
  }

 private:
  std::unique_ptr<ApplianceRoot> root_;
};
::testing::Environment* const kTree = ::testing::AddGlobalTestEnvironment(new WebTree);

TEST(GetWebFileModifyTime, ResolvesTheName) {
  const std::pair<const char*, const char*> rows[] = {
      {nullptr, "1000000001"},  // the script directory
      {"/abs/page.js", "1000000002"},  // under the document root
      {"scripts/a.js?v=1?x=2", "1000000004"},  // only the last query is cut
      {"webman/x/webapi/y.js", "1000000005"},  // both words: the working directory
      {"webman/only.js", "1000000006"}};
  for (const auto& row : rows) EXPECT_EQ(GetWebFileModifyTime(row.first), row.second) << row.first;

  time_t before = time(nullptr);
  long long missing = std::stoll(GetWebFileModifyTime("scripts/missing.js"));
  EXPECT_TRUE(missing >= before && missing <= time(nullptr)) << "missing files are versioned now";
}

// The page tests show the tag with either separator.
TEST(GetScriptTag, CutTo1023Bytes) {
  const std::string src = "scripts/" + std::string(1100, 'a') + ".js";
  EXPECT_EQ(GetScriptTag(src.c_str(), false), ("<script type=\"text/javascript\" src=\"" + src).substr(0, 1023));
}

}  // namespace
