// Appliance paths under ZANT_ROOT.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "zant/appliance.h"

namespace {

struct RootCase {
  const char* description;
  const char* root;  // null: unset
  std::string path;
  std::string expected;
};

class RootPathTest : public ::testing::TestWithParam<RootCase> {
 protected:
  void SetUp() override {
    const char* saved = std::getenv("ZANT_ROOT");
    hadRoot_ = saved != nullptr;
    if (hadRoot_) saved_ = saved;
  }
  void TearDown() override {
    if (hadRoot_) {
      setenv("ZANT_ROOT", saved_.c_str(), 1);
    } else {
      unsetenv("ZANT_ROOT");
    }
  }

 private:
  bool hadRoot_ = false;
  std::string saved_;
};

TEST_P(RootPathTest, PlacesPath) {
  const RootCase& c = GetParam();
  if (c.root != nullptr) {
    setenv("ZANT_ROOT", c.root, 1);
  } else {
    unsetenv("ZANT_ROOT");
  }
  EXPECT_EQ(c.expected, ZANT::RootPath(c.path)) << c.description;
}

INSTANTIATE_TEST_SUITE_P(
    Table, RootPathTest,
    ::testing::Values(
        RootCase{"unset", nullptr, "/etc/zantinfo.conf", "/etc/zantinfo.conf"},
        RootCase{"empty", "", "/etc/zantinfo.conf", "/etc/zantinfo.conf"},
        RootCase{"set", "/tmp/r", "/etc/zantinfo.conf", "/tmp/r/etc/zantinfo.conf"},
        RootCase{"trailing slashes of the root", "/tmp/r//", "/etc/x", "/tmp/r/etc/x"},
        RootCase{"root is /", "/", "/etc/x", "/etc/x"},
        RootCase{"relative path unchanged", "/tmp/r", "etc/x", "etc/x"},
        RootCase{"empty path unchanged", "/tmp/r", "", ""}),
    [](const ::testing::TestParamInfo<RootCase>& info) { return "row" + std::to_string(info.index); });

TEST_F(RootPathTest, WebRootFollowsTheRoot) {
  unsetenv("ZANT_ROOT");
  EXPECT_EQ("/usr/zant/zantman", ZANT::WebRoot());
  setenv("ZANT_ROOT", "/srv/nas", 1);
  EXPECT_EQ("/srv/nas/usr/zant/zantman", ZANT::WebRoot());
}

}  // namespace
