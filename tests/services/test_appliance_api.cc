// The appliance APIs answered from configuration files, who may call them,
// and the desktop framework's scripts.
#include "services_api.h"
#include "services_fixture.h"

namespace services_test {
namespace {

const char kScriptHead[] = "Content-Type: application/javascript; charset=\"UTF-8\"\r\n\r\n";

class Appliance : public ServicesTest {};

TEST_F(Appliance, InfoCarriesTheQvIdWhenConfigured) {
  Json::Value result = Call("ZANT.BrindlexPlyth.Info", "get", Json::Value(), "admin");
  ASSERT_EQ(ErrorCode(result), 0);
  EXPECT_EQ(result["data"], Json::Value(Json::objectValue));
  root_.WriteFile("/etc/zantinfo.conf", "hostname=\"nas\"\nqv_id=\"zant-4711\"\n");
  result = Call("ZANT.BrindlexPlyth.Info", "get", Json::Value(), "admin");
  EXPECT_EQ(result["data"]["qv_id"].asString(), "zant-4711");
}

struct ConfigRow {
  const char* description;
  const char* api;
  const char* method;
  const char* file;
  const char* content;  // nullptr: no file
  const char* data;     // expected "data" as compact JSON; nullptr: error 100
};
void PrintTo(const ConfigRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class ConfigAnswers : public Appliance, public ::testing::WithParamInterface<ConfigRow> {};

TEST_P(ConfigAnswers, ComeFromTheFile) {
  const ConfigRow& row = GetParam();
  if (row.content != nullptr) root_.WriteFile(row.file, row.content);
  Json::Value result = Call(row.api, row.method, Json::Value(), "admin");
  if (row.data == nullptr) {
    EXPECT_EQ(ErrorCode(result), 100);
    return;
  }
  ASSERT_EQ(ErrorCode(result), 0) << result.toStyledString();
  Json::Value expected;
  ASSERT_TRUE(Json::Reader().parse(row.data, expected));
  EXPECT_EQ(result["data"], expected) << result["data"].toStyledString();
}

const char kDDNS[] = "/usr/zant/etc/ddns_records.json";
const char kPermission[] = "/usr/zant/etc/relay/permission.json";
const char kRelay[] = "/usr/zant/etc/relay/skyvane.json";

INSTANTIATE_TEST_SUITE_P(
    Files, ConfigAnswers,
    ::testing::Values(
        ConfigRow{"ddns_missing", "ZANT.Core.DDNS.Record", "list", kDDNS, nullptr, R"({"records":[]})"},
        ConfigRow{"ddns_object", "ZANT.Core.DDNS.Record", "list", kDDNS,
                  R"({"records":[{"enable":true,"hostname":"a.example.net","provider":"x"}]})",
                  R"({"records":[{"enable":true,"hostname":"a.example.net","provider":"x"}]})"},
        ConfigRow{"ddns_bare_array", "ZANT.Core.DDNS.Record", "list", kDDNS,
                  R"([{"enable":false,"hostname":"b"}])", R"({"records":[{"enable":false,"hostname":"b"}]})"},
        ConfigRow{"ddns_broken", "ZANT.Core.DDNS.Record", "list", kDDNS, "{not json", nullptr},
        ConfigRow{"permission_missing", "ZANT.Core.Skyvane.Permission", "get", kPermission, nullptr,
                  R"({"services":[]})"},
        ConfigRow{"permission_object", "ZANT.Core.Skyvane.Permission", "get", kPermission,
                  R"({"services":[{"id":"nxo_portal","enabled":true}]})",
                  R"({"services":[{"id":"nxo_portal","enabled":true}]})"},
        ConfigRow{"relay_missing", "ZANT.Core.Skyvane", "get", kRelay, nullptr,
                  R"({"enabled":false,"server_alias":"","region":"","domain":""})"},
        ConfigRow{"relay_set", "ZANT.Core.Skyvane", "get", kRelay,
                  R"({"enabled":true,"server_alias":"box","region":"eu","domain":"relay.example"})",
                  R"({"enabled":true,"server_alias":"box","region":"eu","domain":"relay.example"})"},
        ConfigRow{"relay_partial", "ZANT.Core.Skyvane", "get", kRelay, R"({"enabled":"yes","region":"eu"})",
                  R"({"enabled":false,"server_alias":"","region":"eu","domain":""})"},
        ConfigRow{"relay_broken", "ZANT.Core.Skyvane", "get", kRelay, "[", nullptr}),
    [](const ::testing::TestParamInfo<ConfigRow>& info) { return std::string(info.param.description); });

struct CallerRow {
  const char* description;
  const char* user;
  bool admin;  // the user database makes the user an administrator
  int code;
};
void PrintTo(const CallerRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class AdminOnly : public Appliance, public ::testing::WithParamInterface<CallerRow> {};

TEST_P(AdminOnly, ConfigurationApisRefuseOthers) {
  const CallerRow& row = GetParam();
  if (std::string(row.user) != "anonymous" && std::string(row.user) != "admin") {
    ZANT::UserDB::User user;
    user.name = row.user;
    user.admin = row.admin;
    ASSERT_EQ(ZANT::UserDB::AddUser(&user, ""), ZANT::UserDB::Status::kOk);
  }
  for (const char* api : {"ZANT.BrindlexPlyth.Info", "ZANT.Core.Skyvane.Permission", "ZANT.Core.Skyvane"}) {
    EXPECT_EQ(ErrorCode(Call(api, "get", Json::Value(), row.user)), row.code) << api;
  }
  EXPECT_EQ(ErrorCode(Call("ZANT.Core.DDNS.Record", "list", Json::Value(), row.user)), row.code);
}

INSTANTIATE_TEST_SUITE_P(Callers, AdminOnly,
                         ::testing::Values(CallerRow{"in_process_admin", "admin", false, 0},
                                           CallerRow{"administrator", "root2", true, 0},
                                           CallerRow{"ordinary_user", "bob", false, 105},
                                           CallerRow{"anonymous", "anonymous", false, 105}),
                         [](const ::testing::TestParamInfo<CallerRow>& info) {
                           return std::string(info.param.description);
                         });

plyth_test::HandlerRun Script(ZANT::APIHandler handler, const char* lang, const std::string& uiLang = "enu") {
  ZANT::APIRequest request;
  if (lang != nullptr) request.SetParam("lang", lang);
  request.SetUILanguage(uiLang);
  return plyth_test::RunHandler(handler, request);
}

TEST_F(Appliance, DefsScriptDefinesTheDefsObject) {
  plyth_test::HandlerRun run = Script(plyth_services::DesktopDefsGetJSFunc, "ger");
  EXPECT_FALSE(run.response.IsEnableOutput());
  EXPECT_EQ(run.answer, std::string(kScriptHead) +
                            "window.ZANTDefs={\"lang\":\"ger\",\"product\":\"Brindlex Plyth\",\"signed_in\":false};\n"
                            "window.ZANTDef=function(k,d){var v=window.ZANTDefs[k];return v===undefined?d:v;};\n");
}

struct TextsRow {
  const char* description;
  const char* lang;     // parameter; nullptr: none
  const char* uiLang;   // the request's UI language
  const char* expected; // the texts object
};
void PrintTo(const TextsRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class UITexts : public Appliance, public ::testing::WithParamInterface<TextsRow> {};

TEST_P(UITexts, ComeInTheAskedLanguageOrEnglish) {
  root_.WriteFile("/usr/zant/zantman/texts/enu/strings", "[common]\nok = \"OK\"\n");
  root_.WriteFile("/usr/zant/zantman/texts/ger/strings", "[common]\nok = \"Gut\"\n");
  root_.WriteFile("/usr/zant/zantman/zantQRTjslib/texts/enu/strings", "[lib]\nyes = \"Yes\"\n");
  const TextsRow& row = GetParam();
  plyth_test::HandlerRun run = Script(plyth_services::DesktopUIStringGetJSFunc, row.lang, row.uiLang);
  EXPECT_EQ(run.answer, std::string(kScriptHead) + "window.ZANTUIStrings=" + row.expected +
                            ";\nwindow.ZANTText=function(s,k){var t=window.ZANTUIStrings[s];"
                            "return t&&typeof t[k]==='string'?t[k]:'';};\n");
}

INSTANTIATE_TEST_SUITE_P(
    Languages, UITexts,
    ::testing::Values(TextsRow{"asked", "ger", "enu", R"({"common":{"ok":"Gut"}})"},
                      TextsRow{"missing_falls_back", "fre", "enu", R"({"common":{"ok":"OK"}})"},
                      TextsRow{"no_parameter_uses_ui_language", nullptr, "ger", R"({"common":{"ok":"Gut"}})"},
                      TextsRow{"path_in_parameter_is_ignored", "../../etc", "enu", R"({"common":{"ok":"OK"}})"}),
    [](const ::testing::TestParamInfo<TextsRow>& info) { return std::string(info.param.description); });

TEST_F(Appliance, JSLibraryTextsHaveTheirOwnObject) {
  root_.WriteFile("/usr/zant/zantman/zantQRTjslib/texts/enu/strings", "[lib]\nyes = \"Yes\"\n");
  plyth_test::HandlerRun run = Script(plyth_services::DesktopJSUIStringGetJSFunc, "enu");
  EXPECT_EQ(run.answer, std::string(kScriptHead) + "window.ZANTJSUIStrings={\"lib\":{\"yes\":\"Yes\"}};\n" +
                            "window.ZANTJSText=function(s,k){var t=window.ZANTJSUIStrings[s];"
                            "return t&&typeof t[k]==='string'?t[k]:'';};\n");
}

}  // namespace
}  // namespace services_test
