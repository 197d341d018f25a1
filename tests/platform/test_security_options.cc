// Security headers from "/usr/zant/etc/security.conf".
#include <gtest/gtest.h>

#include <string>

#include "temp_root.h"
#include "zant/nxo.h"

namespace {

const char kDefaultCSP[] =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "object-src 'none'; base-uri 'self'; frame-ancestors 'self'";

struct SecurityCase {
  const char* description;
  const char* conf;  // null: no file
  std::string xFrame;
  std::string csp;
};

class SecurityOptionsTest : public ::testing::TestWithParam<SecurityCase> {};

TEST_P(SecurityOptionsTest, ReadsSystemFile) {
  platform_test::TempRoot root;
  if (GetParam().conf != nullptr) root.WriteFile("/usr/zant/etc/security.conf", GetParam().conf);
  ZANT::NXO::SecurityOptions options(nullptr);
  EXPECT_EQ(GetParam().xFrame, options.GetXFrameOption());
  EXPECT_EQ(GetParam().csp, options.GetCSPHeader());
}

INSTANTIATE_TEST_SUITE_P(
    Table, SecurityOptionsTest,
    ::testing::Values(
        SecurityCase{"no file", nullptr, "SAMEORIGIN", kDefaultCSP},
        SecurityCase{"both keys",
                     "x_frame_options=\"DENY\"\ncontent_security_policy=\"default-src 'none'\"\n",
                     "DENY", "default-src 'none'"},
        SecurityCase{"one key", "# desktop\nx_frame_options=DENY\n", "DENY", kDefaultCSP},
        SecurityCase{"empty values fall back", "x_frame_options=\"\"\ncontent_security_policy=\n",
                     "SAMEORIGIN", kDefaultCSP}),
    [](const ::testing::TestParamInfo<SecurityCase>& info) { return "row" + std::to_string(info.index); });

TEST(SecurityOptionsOwnFileTest, NamedFileIsAnAppliancePath) {
  platform_test::TempRoot root;
  root.WriteFile("/etc/other.conf", "x_frame_options=\"DENY\"\n");
  ZANT::NXO::SecurityOptions options("/etc/other.conf");
  EXPECT_EQ("DENY", options.GetXFrameOption());
  EXPECT_EQ(kDefaultCSP, options.GetCSPHeader());
  EXPECT_EQ(std::string(kDefaultCSP), ZANT::NXO::SecurityOptions::DefaultCSP());
}

}  // namespace
