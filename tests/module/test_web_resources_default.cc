// Without DOCUMENT_ROOT and SCRIPT_FILENAME both directories are the
// appliance's web root "/usr/zant/zantman/" (under ZANT_ROOT), read once per
// process: the root lives for the whole run.
#include <stdlib.h>
#include <utime.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "harness.h"
#include "web_resources.h"

namespace {

class DefaultRoot : public ::testing::Environment {
 public:
  static std::unique_ptr<plyth_test::ApplianceRoot> root;

  void SetUp() override {
    unsetenv("DOCUMENT_ROOT");
    unsetenv("SCRIPT_FILENAME");
    root = std::make_unique<plyth_test::ApplianceRoot>();
    root->WriteFile("/usr/zant/zantman/x.css", "");
    root->WriteFile("/usr/zant/zantman/scripts/y.js", "");
    Touch("/usr/zant/zantman/x.css", 1100000001);
    Touch("/usr/zant/zantman/scripts/y.js", 1100000002);
    Touch("/usr/zant/zantman", 1100000003);
  }
  void TearDown() override { root.reset(); }

 private:
  static void Touch(const std::string& path, time_t mtime) {
    struct utimbuf times = {mtime, mtime};
    ASSERT_EQ(utime(root->Host(path).c_str(), &times), 0) << path;
  }
};
std::unique_ptr<plyth_test::ApplianceRoot> DefaultRoot::root;
::testing::Environment* const kRoot = ::testing::AddGlobalTestEnvironment(new DefaultRoot);

struct Row {
  const char* description;
  const char* name;
  const char* expected;
};

class DefaultWebRoot : public ::testing::TestWithParam<Row> {};

TEST_P(DefaultWebRoot, ResolvesUnderTheApplianceWebRoot) {
  EXPECT_EQ(GetWebFileModifyTime(GetParam().name), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, DefaultWebRoot,
    ::testing::Values(
        // ".../zantman/" + "/x.css": the doubled slash is harmless.
        Row{"absolute name", "/x.css", "1100000001"},
        Row{"relative name", "scripts/y.js?v=3", "1100000002"},
        Row{"empty name", "", "1100000003"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

}  // namespace
