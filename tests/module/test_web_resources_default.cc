// Without DOCUMENT_ROOT and SCRIPT_FILENAME both directories are the
// appliance's web root "/usr/zant/zantman/" (under ZANT_ROOT), read once per
// process, so one test makes the root and asks every question.
#include <stdlib.h>

#include "module_testing.h"
#include "web_resources.h"

namespace {

TEST(DefaultWebRoot, ResolvesUnderTheApplianceWebRoot) {
  unsetenv("DOCUMENT_ROOT");
  unsetenv("SCRIPT_FILENAME");
  ApplianceRoot root;
  root.WriteFile("/usr/zant/zantman/x.css", "");
  root.WriteFile("/usr/zant/zantman/scripts/y.js", "");
  SetMTime(root.Host("/usr/zant/zantman/x.css"), 1100000001);
  SetMTime(root.Host("/usr/zant/zantman/scripts/y.js"), 1100000002);
  SetMTime(root.Host("/usr/zant/zantman"), 1100000003);
  EXPECT_EQ(GetWebFileModifyTime("/x.css"), "1100000001");  // ".../zantman/" + "/x.css"
  EXPECT_EQ(GetWebFileModifyTime("scripts/y.js?v=3"), "1100000002");
  EXPECT_EQ(GetWebFileModifyTime(""), "1100000003");
}

}  // namespace
