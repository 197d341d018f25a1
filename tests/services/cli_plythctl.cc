// The built plythctl as an operator runs it, against a throw-away root.
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "harness.h"

namespace {

struct Result {
  int code;
  std::string out;
  std::string err;
};

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

class Cli : public ::testing::Test {
 protected:
  // `args` is shell text; the root is always named with --root.
  Result Run(const std::string& args, const std::string& input = "") {
    const std::string dir = root_.Path();
    std::ofstream(dir + "/cli.in") << input;
    const std::string command = std::string("env -u ZANT_ROOT '") + PLYTHCTL_PATH + "' --root '" + dir + "' " +
                                args + " <'" + dir + "/cli.in' >'" + dir + "/cli.out' 2>'" + dir + "/cli.err'";
    int status = system(command.c_str());
    return Result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(dir + "/cli.out"), Slurp(dir + "/cli.err")};
  }
  plyth_test::ApplianceRoot root_;
};

TEST_F(Cli, InitCreatesTheStoreUnderTheRoot) {
  Result run = Run("init");
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, root_.Path() + "/var/packages/BrindlexPlyth/target/var/plyth.db\n");
  EXPECT_FALSE(root_.ReadFile("/var/packages/BrindlexPlyth/target/var/plyth.db").empty());
}

TEST_F(Cli, ErrorsGoToStandardErrorWithTheirExitCode) {
  Result run = Run("bogus");
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.compare(0, 34, "plythctl: unknown command: bogus\nu"), 0) << run.err;
  run = Run("file trash /nope");
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.err, "plythctl: no such item: /nope\n");
  ASSERT_EQ(Run("user add bob").code, 0);
  run = Run("user add bob");
  EXPECT_EQ(run.code, 3);
  run = Run("share make /nope --expires 'next week'");
  EXPECT_EQ(run.code, 4);
}

TEST_F(Cli, HelpPrintsTheUsage) {
  Result run = Run("help");
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out.compare(0, 38, "usage: plythctl [--root DIR] COMMAND\n "), 0) << run.out;
}

}  // namespace
