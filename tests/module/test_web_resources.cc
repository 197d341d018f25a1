// Which file versions a resource name. The page asks only for fixed names
// relative to the web-UI root, which is the directory above webapi/ of
// SCRIPT_FILENAME, read once per process: one test sets it and asks every
// question. Without the variable the root is the appliance's web root, as
// the page tests show.
#include <stdlib.h>

#include <ctime>

#include "module_testing.h"
#include "web_resources.h"

namespace {

TEST(WebResources, VersionsUnderTheScriptsRoot) {
  ApplianceRoot root;
  root.WriteFile("/ui/webman/only.js", "//");
  SetMTime(root.Host("/ui/webman/only.js"), 1000000006);
  setenv("SCRIPT_FILENAME", root.Host("/ui/webapi/entry.cgi").c_str(), 1);
  EXPECT_EQ(GetWebFileModifyTime("webman/only.js?v=1"), "1000000006");

  time_t before = time(nullptr);
  long long missing = std::stoll(GetWebFileModifyTime("scripts/missing.js"));
  EXPECT_TRUE(missing >= before && missing <= time(nullptr)) << "missing files are versioned now";

  const std::string src = "scripts/" + std::string(1100, 'a') + ".js";
  EXPECT_EQ(GetScriptTag(src.c_str(), false), ("<script type=\"text/javascript\" src=\"" + src).substr(0, 1023));
}

}  // namespace
