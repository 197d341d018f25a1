// The appliance APIs answered from configuration files, who may call them,
// and the desktop framework's scripts.
#include "services_api.h"
#include "services_fixture.h"

namespace services_test {
namespace {

const char kScriptHead[] = "Content-Type: application/javascript; charset=\"UTF-8\"\r\n\r\n";

// Administrators only; the answer comes from the file.
TEST_F(ServicesTest, ConfigurationApisAnswerAdministratorsFromTheFile) {
  AddUser("root2", true);
  AddUser("bob");
  std::string codes;
  for (const char* user : {"admin", "root2", "bob", "anonymous"}) {
    for (const char* api : {"ZANT.BrindlexPlyth.Info", "ZANT.Core.Skyvane.Permission", "ZANT.Core.Skyvane"})
      codes += std::to_string(ErrorCode(Call(api, "get", Json::Value(), user))) + " ";
    codes += std::to_string(ErrorCode(Call("ZANT.Core.DDNS.Record", "list", Json::Value(), user))) + "|";
  }
  EXPECT_EQ(codes, "0 0 0 0|0 0 0 0|105 105 105 105|105 105 105 105|");
  const char kDDNS[] = "/usr/zant/etc/ddns_records.json", kRelay[] = "/usr/zant/etc/relay/skyvane.json";
  // `content` nullptr: no file; `data` compact JSON, nullptr: error 100.
  struct Row { const char* api; const char* file; const char* content; const char* data; } rows[] = {
      {.api = "ZANT.BrindlexPlyth.Info", .file = "/etc/zantinfo.conf",
       .content = "hostname=\"nas\"\nqv_id=\"zant-4711\"\n", .data = R"({"qv_id":"zant-4711"})"},
      {.api = "ZANT.Core.DDNS.Record", .file = kDDNS, .content = nullptr, .data = R"({"records":[]})"},
      {.api = "ZANT.Core.DDNS.Record", .file = kDDNS, .content = R"([{"hostname":"b"}])",
       .data = R"({"records":[{"hostname":"b"}]})"},
      {.api = "ZANT.Core.DDNS.Record", .file = kDDNS, .content = "{not json", .data = nullptr},
      {.api = "ZANT.Core.Skyvane.Permission", .file = "/usr/zant/etc/relay/permission.json",
       .content = R"({"services":[{"enabled":true,"id":"nxo_portal"}]})",
       .data = R"({"services":[{"enabled":true,"id":"nxo_portal"}]})"},
      {.api = "ZANT.Core.Skyvane", .file = kRelay, .content = R"({"enabled":"yes","region":"eu"})",
       .data = R"({"domain":"","enabled":false,"region":"eu","server_alias":""})"},
      {.api = "ZANT.Core.Skyvane", .file = kRelay, .content = "[", .data = nullptr}};
  for (const Row& row : rows) {
    root_.Remove(row.file);
    if (row.content != nullptr) root_.WriteFile(row.file, row.content);
    const char* method = std::string(row.api) == "ZANT.Core.DDNS.Record" ? "list" : "get";
    const Json::Value result = Call(row.api, method, Json::Value(), "admin");
    EXPECT_EQ(ErrorCode(result) != 0 ? std::to_string(ErrorCode(result)) : ZANT::JsonToString(result["data"]),
              row.data != nullptr ? row.data : "100") << row.api << " " << (row.content ? row.content : "(no file)");
  }
}

plyth_test::HandlerRun Script(ZANT::APIHandler handler, const char* lang, const std::string& uiLang = "enu") {
  ZANT::APIRequest request;
  if (lang != nullptr) request.SetParam("lang", lang);
  request.SetUILanguage(uiLang);
  return plyth_test::RunHandler(handler, request);
}

TEST_F(ServicesTest, DesktopScripts) {
  root_.WriteFile("/usr/zant/zantman/texts/enu/strings", "[common]\nok = \"OK\"\n");
  root_.WriteFile("/usr/zant/zantman/texts/ger/strings", "[common]\nok = \"Gut\"\n");
  root_.WriteFile("/usr/zant/zantman/zantQRTjslib/texts/enu/strings", "[lib]\nyes = \"Yes\"\n");
  EXPECT_EQ(Script(plyth_services::DesktopDefsGetJSFunc, "ger").answer, std::string(kScriptHead) +
                             "window.ZANTDefs={\"lang\":\"ger\",\"product\":\"Brindlex Plyth\",\"signed_in\":false};\n"
                             "window.ZANTDef=function(k,d){var v=window.ZANTDefs[k];return v===undefined?d:v;};\n");
  EXPECT_EQ(Script(plyth_services::DesktopJSUIStringGetJSFunc, "enu").answer,
            std::string(kScriptHead) + "window.ZANTJSUIStrings={\"lib\":{\"yes\":\"Yes\"}};\n" +
                "window.ZANTJSText=function(s,k){var t=window.ZANTJSUIStrings[s];"
                "return t&&typeof t[k]==='string'?t[k]:'';};\n");
  // The asked language, else the UI language, else English; never a path.
  struct Row { const char* lang; const char* uiLang; const char* ok; } rows[] = {  // lang nullptr: none asked
      {.lang = "ger", .uiLang = "enu", .ok = "Gut"},
      {.lang = "fre", .uiLang = "enu", .ok = "OK"},
      {.lang = nullptr, .uiLang = "ger", .ok = "Gut"},
      {.lang = "../../etc", .uiLang = "enu", .ok = "OK"}};
  for (const Row& row : rows) {
    EXPECT_EQ(Script(plyth_services::DesktopUIStringGetJSFunc, row.lang, row.uiLang).answer,
              std::string(kScriptHead) + "window.ZANTUIStrings={\"common\":{\"ok\":\"" + row.ok +
                  "\"}};\nwindow.ZANTText=function(s,k){var t=window.ZANTUIStrings[s];"
                  "return t&&typeof t[k]==='string'?t[k]:'';};\n");
  }
}

}  // namespace
}  // namespace services_test
