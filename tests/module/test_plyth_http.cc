// The appliance's external origin (configured host, dynamic DNS, relay
// service), the relay test of a request and the base URL built from them,
// with the exact system-log lines of every failure and privilege switch.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "harness.h"
#include "plyth_http.h"

namespace plyth_test {
void PrintTo(const SyslogLine& line, std::ostream* os) { *os << line.priority << " " << line.text; }
}  // namespace plyth_test

namespace {

using plyth_test::ApplianceRoot;
using plyth_test::FakeAPI;
using plyth_test::FakeIdentity;
using plyth_test::SyslogCapture;
using plyth_test::SyslogLine;

const char kSource[] = "server/ui-web/webapi/plyth/shard/plyth_http";

const char kNoPortal[] = R"({"success":true,"data":{"services":[{"id":"other","enabled":true}]}})";
const char kPortal[] =
    R"({"success":true,"data":{"services":[{"id":"other","enabled":true},)"
    R"({"id":"nxo_portal","enabled":true}]}})";
const char kRelay[] =
    R"({"success":true,"data":{"enabled":true,"server_alias":"mynas","region":"eu",)"
    R"("domain":"skyvane.example"}})";
const char kRelayOrigin[] = "https://mynas.eu.skyvane.example";
const char kNoRecords[] = R"({"success":true,"data":{"records":[]}})";

Json::Value Parse(const char* text) {
  Json::Value value;
  EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
  return value;
}

SyslogLine Err(int line, const std::string& text) {
  return SyslogLine{3, std::string(kSource) + ":" + std::to_string(line) + " " + text};
}
SyslogLine Warn(int line, const std::string& call) {
  return SyslogLine{38, std::string(kSource) + ":" + std::to_string(line) + " WARNING: " + call};
}
// What a non-root process logs around one critical section: raising both
// ids, then putting the uid back through root first.
std::vector<SyslogLine> Switch(int line) {
  return {Warn(line, "setresgid(-1, 0, -1)"), Warn(line, "setresuid(-1, 0, -1)"),
          Warn(line, "setresuid(-1, 0, -1)")};
}

class Origin : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.WriteFile("/usr/zant/etc/relay/relay.conf",
                    "global_suffix=\".quickrelay.test\"\nchina_suffix=\".qrelay-china.cn\"\n");
    Answer(ddns_, kNoRecords);
    Answer(permission_, kNoPortal);
    Answer(skyvane_, kRelay);
  }
  static void Answer(FakeAPI& api, const char* result) {
    if (result != nullptr) api.AlwaysReturn(Parse(result));
  }

  ApplianceRoot root_;
  FakeAPI ddns_{"ZANT.Core.DDNS.Record", 1, "list"};
  FakeAPI permission_{"ZANT.Core.Skyvane.Permission", 1, "get"};
  FakeAPI skyvane_{"ZANT.Core.Skyvane", 1, "get"};
};

// ---------------------------------------------------------------- PlythGetOrigin

struct OriginRow {
  const char* description;
  const char* proto;
  const char* zantinfo;  // /etc/zantinfo.conf
  const char* defaults;  // /etc.defaults/zantinfo.conf
  const char* ddns;      // results; null: the fixture's
  const char* permission;
  const char* skyvane;
  bool ok;
  const char* origin;
  const char* source;
  size_t ddnsCalls;
  size_t permissionCalls;
  size_t skyvaneCalls;
  std::vector<SyslogLine> log;
};
void PrintTo(const OriginRow& row, std::ostream* os) { *os << row.description; }

class ExternalOrigin : public Origin, public ::testing::WithParamInterface<OriginRow> {};

TEST_P(ExternalOrigin, OrderOfPreference) {
  const OriginRow& row = GetParam();
  root_.WriteFile("/etc/zantinfo.conf", row.zantinfo);
  root_.WriteFile("/etc.defaults/zantinfo.conf", row.defaults);
  Answer(ddns_, row.ddns);
  Answer(permission_, row.permission);
  Answer(skyvane_, row.skyvane);
  FakeIdentity identity(0, 0);  // root: no privilege lines
  SyslogCapture log;

  std::string origin, source;
  EXPECT_EQ(PlythGetOrigin(origin, source, row.proto, 443), row.ok);

  EXPECT_EQ(origin, row.origin);
  EXPECT_EQ(source, row.source);
  EXPECT_EQ(ddns_.Calls().size(), row.ddnsCalls);
  EXPECT_EQ(permission_.Calls().size(), row.permissionCalls);
  EXPECT_EQ(skyvane_.Calls().size(), row.skyvaneCalls);
  EXPECT_EQ(log.Lines(), row.log);
  for (const FakeAPI* api : {&ddns_, &permission_, &skyvane_}) {
    for (const auto& call : api->Calls()) EXPECT_EQ(call.user, "admin");
  }
}

const char kDDNSOn[] = "supportddns=\"yes\"\n";
const char kHttpsPort[] = "nxo_https_port=\"5101\"\nnxo_http_port=\"5100\"\n";

INSTANTIATE_TEST_SUITE_P(
    Rows, ExternalOrigin,
    ::testing::Values(
        OriginRow{"empty scheme: success with nothing", "", "external_host_ip=\"ext.example\"\n",
                  kDDNSOn, nullptr, kPortal, nullptr, true, "", "", 0, 0, 0, {}},
        OriginRow{"configured host wins over dynamic DNS", "https",
                  "external_port_nxo_https=\"8443\"\nexternal_host_ip=\"ext.example\"\n", kDDNSOn,
                  R"({"success":true,"data":{"records":[{"enable":true,"hostname":"d.example"}]}})",
                  kPortal, nullptr, true, "https://ext.example:8443", "external", 0, 0, 0, {}},
        OriginRow{"no external https port: the desktop's", "https",
                  "nxo_https_port=\"5101\"\nexternal_host_ip=\"1.2.3.4\"\n", "", nullptr, nullptr,
                  nullptr, true, "https://1.2.3.4:5101", "external", 0, 0, 0, {}},
        OriginRow{"empty external port: the desktop's", "https",
                  "external_port_nxo_https=\"\"\nnxo_https_port=\"5101\"\nexternal_host_ip=\"h\"\n",
                  "", nullptr, nullptr, nullptr, true, "https://h:5101", "external", 0, 0, 0, {}},
        OriginRow{"http: the port is written even when 80", "http",
                  "external_port_nxo_http=\"80\"\nexternal_host_ip=\"ext.example\"\n", "", nullptr,
                  nullptr, nullptr, true, "http://ext.example:80", "external", 0, 0, 0, {}},
        OriginRow{"http: the desktop's http port", "http",
                  "nxo_http_port=\"5100\"\nexternal_host_ip=\"ext.example\"\n", "", nullptr,
                  nullptr, nullptr, true, "http://ext.example:5100", "external", 0, 0, 0, {}},
        OriginRow{"first enabled dynamic-DNS record with a host name", "https", kHttpsPort,
                  kDDNSOn,
                  R"({"success":true,"data":{"records":[{"enable":false,"hostname":"off.example"},)"
                  R"("junk",{"enable":true,"hostname":""},{"enable":"true","hostname":"s.example"},)"
                  R"({"enable":true,"hostname":"b.example"},{"enable":true,"hostname":"c.example"}]}})",
                  kPortal, nullptr, true, "https://b.example:5101", "ddns", 1, 0, 0, {}},
        OriginRow{"supportddns absent: no query", "https", kHttpsPort, "", nullptr, nullptr,
                  nullptr, false, "", "", 0, 1, 0, {}},
        OriginRow{"supportddns not yes: no query", "https", kHttpsPort, "supportddns=\"no\"\n",
                  nullptr, nullptr, nullptr, false, "", "", 0, 1, 0, {}},
        OriginRow{"record list failed: logged, then the relay", "https", kHttpsPort, kDDNSOn,
                  R"({"success":false,"error":{"code":1234}})", kPortal, nullptr, true,
                  kRelayOrigin, "skyvane", 1, 1, 1,
                  {Err(84, R"({"error":{"code":1234},"success":false})")}},
        OriginRow{"records not an array: not logged", "https", kHttpsPort, kDDNSOn,
                  R"({"success":true,"data":{"records":{"a":1}}})", nullptr, nullptr, false, "",
                  "", 1, 1, 0, {}},
        OriginRow{"no usable record: the relay", "https", kHttpsPort, kDDNSOn,
                  R"({"success":true,"data":{"records":[{"enable":true}]}})", kPortal, nullptr,
                  true, kRelayOrigin, "skyvane", 1, 1, 1, {}},
        OriginRow{"other scheme: only the relay", "ftp", "external_host_ip=\"ext.example\"\n",
                  kDDNSOn, nullptr, kPortal, nullptr, true, kRelayOrigin, "skyvane", 0, 1, 1, {}},
        OriginRow{"relay permission failed: logged", "ftp", "", "", nullptr,
                  R"({"success":false,"error":{"code":105}})", nullptr, false, "", "", 0, 1, 0,
                  {Err(31, R"({"error":{"code":105},"success":false})")}},
        OriginRow{"relay permission without services", "ftp", "", "", nullptr,
                  R"({"success":true,"data":{}})", nullptr, false, "", "", 0, 1, 0, {}},
        OriginRow{"portal service disabled", "ftp", "", "", nullptr,
                  R"({"success":true,"data":{"services":[{"id":"nxo_portal","enabled":false}]}})",
                  nullptr, false, "", "", 0, 1, 0, {}},
        OriginRow{"relay query failed: logged", "ftp", "", "", nullptr, kPortal,
                  R"({"success":false})", false, "", "", 0, 1, 1,
                  {Err(55, R"({"success":false})")}},
        OriginRow{"relay disabled", "ftp", "", "", nullptr, kPortal,
                  R"({"success":true,"data":{"enabled":false,"server_alias":"mynas"}})", false,
                  "", "", 0, 1, 1, {}},
        OriginRow{"relay alias empty", "ftp", "", "", nullptr, kPortal,
                  R"({"success":true,"data":{"enabled":true,"server_alias":""}})", false, "", "",
                  0, 1, 1, {}}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

TEST_F(Origin, AnOriginGivenOnEntryCountsAsDynamicDNS) {
  root_.WriteFile("/etc/zantinfo.conf", kHttpsPort);
  root_.WriteFile("/etc.defaults/zantinfo.conf", kDDNSOn);
  FakeIdentity identity(0, 0);
  std::string origin = "https://given.example", source;
  EXPECT_TRUE(PlythGetOrigin(origin, source, "https", 0));
  EXPECT_EQ(origin, "https://given.example");
  EXPECT_EQ(source, "ddns");
}

TEST_F(Origin, EachConfigurationReadHoldsRootIds) {
  root_.WriteFile("/etc/zantinfo.conf",
                  "external_port_nxo_https=\"8443\"\nexternal_host_ip=\"ext.example\"\n");
  FakeIdentity identity(1000, 100);
  SyslogCapture log;
  std::string origin, source;
  EXPECT_TRUE(PlythGetOrigin(origin, source, "https", 0));

  std::vector<SyslogLine> expected = Switch(144);
  for (const SyslogLine& line : Switch(116)) expected.push_back(line);
  EXPECT_EQ(log.Lines(), expected);
  EXPECT_EQ(identity.Euid(), 1000u);
  EXPECT_EQ(identity.Egid(), 100u);
}

// ---------------------------------------------------------------- IsSkyvaneRequest

struct RelayRow {
  const char* description;
  const char* host;
  const char* missing;  // the one address variable not set, or ""
  const char* connections;  // null: no table; "DIR": unreadable
  bool relayed;
  bool queried;
};
void PrintTo(const RelayRow& row, std::ostream* os) { *os << row.description; }

class RelayRequest : public Origin, public ::testing::WithParamInterface<RelayRow> {};

TEST_P(RelayRequest, ByNameThenByConnection) {
  const RelayRow& row = GetParam();
  if (row.connections != nullptr && std::string(row.connections) == "DIR") {
    root_.MakeDir("/usr/zant/etc/relay/connections");
  } else if (row.connections != nullptr) {
    root_.WriteFile("/usr/zant/etc/relay/connections", row.connections);
  }
  ZANT::APIRequest request;
  request.SetServerVar("HTTP_HOST", row.host);
  for (const char* name : {"SERVER_ADDR", "SERVER_PORT", "REMOTE_ADDR", "REMOTE_PORT"}) {
    if (std::string(name) != row.missing) request.SetServerVar(name, "10.0.0.1");
  }
  FakeIdentity identity(1000, 100);
  SyslogCapture log;

  EXPECT_EQ(IsSkyvaneRequest(&request), row.relayed);
  EXPECT_EQ(log.Lines(), row.queried ? Switch(215) : std::vector<SyslogLine>{});
  EXPECT_EQ(identity.Euid(), 1000u);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RelayRequest,
    ::testing::Values(
        RelayRow{"global suffix", "nas.quickrelay.test", "", "* * * * 16", true, false},
        RelayRow{"upper case, port ignored", "NAS.QUICKRELAY.TEST:443", "", "* * * * 16", true,
                 false},
        RelayRow{"mainland suffix", "a.qrelay-china.cn", "", "* * * * 16", true, false},
        RelayRow{"name match needs no variables", "a.quickrelay.test", "SERVER_ADDR", nullptr,
                 true, false},
        RelayRow{"bare suffix is no name match", ".quickrelay.test", "", "* * * * 16", false,
                 true},
        RelayRow{"bare suffix, relayed connection", ".quickrelay.test", "", "* * * * 32", true,
                 true},
        RelayRow{"connection type 32", "nas.local", "", "* * * * 32", true, true},
        RelayRow{"connection type 64", "nas.local", "", "* * * * 64", true, true},
        RelayRow{"connection type 16", "nas.local", "", "* * * * 16", false, true},
        RelayRow{"failed query", "nas.local", "", "DIR", false, true},
        RelayRow{"SERVER_ADDR missing", "nas.local", "SERVER_ADDR", "* * * * 32", false, false},
        RelayRow{"REMOTE_PORT missing", "nas.local", "REMOTE_PORT", "* * * * 32", false,
                 false}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

// ---------------------------------------------------------------- PlythGetBaseURL

struct BaseRow {
  const char* description;
  const char* httpHost;  // null: not set
  const char* hostVar;   // HOST; null: not set
  const char* rewriteApp;  // null: not set
  const char* requestURI;
  const char* zantinfo;
  const char* permission;
  const char* baseURL;
  const char* source;
};
void PrintTo(const BaseRow& row, std::ostream* os) { *os << row.description; }

class BaseURL : public Origin, public ::testing::WithParamInterface<BaseRow> {};

TEST_P(BaseURL, OriginAndPrefix) {
  const BaseRow& row = GetParam();
  root_.WriteFile("/etc/zantinfo.conf", row.zantinfo);
  Answer(permission_, row.permission);
  ZANT::APIRequest request;
  if (row.httpHost != nullptr) request.SetServerVar("HTTP_HOST", row.httpHost);
  if (row.hostVar != nullptr) request.SetServerVar("HOST", row.hostVar);
  if (row.rewriteApp != nullptr) request.SetServerVar("REWRITE_APP", row.rewriteApp);
  request.SetServerVar("REQUEST_URI", row.requestURI);
  FakeIdentity identity(0, 0);
  SyslogCapture log;

  std::string source, baseURL;
  PlythGetBaseURL(&request, source, baseURL);
  EXPECT_EQ(baseURL, row.baseURL);
  EXPECT_EQ(source, row.source);
  EXPECT_TRUE(log.Lines().empty());
}

const char kExternal[] = "external_port_nxo_http=\"8080\"\nexternal_host_ip=\"ext.example\"\n";
const char kApp[] = "ZANT.QRT.Plyth.Application";

INSTANTIATE_TEST_SUITE_P(
    Rows, BaseURL,
    ::testing::Values(
        BaseRow{"relayed: the relay's origin", "nas.quickrelay.test", nullptr, nullptr, "/d/s/x",
                kExternal, kPortal, "https://mynas.eu.skyvane.example/", "skyvane"},
        BaseRow{"relayed without relay origin: the browser's, never the external one",
                "nas.quickrelay.test", nullptr, nullptr, "/d/s/x", kExternal, kNoPortal,
                "http://nas.quickrelay.test/", "browser"},
        BaseRow{"HOST without a dot: external origin", "nas:5000", "nas", nullptr, "/d/s/x",
                kExternal, kNoPortal, "http://ext.example:8080/", "external"},
        BaseRow{"HOST empty: external origin", "nas:5000", "", nullptr, "/d/s/x", kExternal,
                kNoPortal, "http://ext.example:8080/", "external"},
        BaseRow{"HOST absent: external origin", "nas:5000", nullptr, nullptr, "/d/s/x", kExternal,
                kNoPortal, "http://ext.example:8080/", "external"},
        BaseRow{"HOST dotted: the browser's", "nas:5000", "nas.example.com", nullptr, "/d/s/x",
                kExternal, kPortal, "http://nas:5000/", "browser"},
        BaseRow{"HOST an IPv4 address: the browser's", "10.0.0.5:5000", "10.0.0.5", nullptr,
                "/d/s/x", kExternal, kPortal, "http://10.0.0.5:5000/", "browser"},
        BaseRow{"no origin anywhere: the browser's", "nas:5000", nullptr, nullptr, "/d/s/x", "",
                kNoPortal, "http://nas:5000/", "browser"},
        BaseRow{"no HTTP_HOST either", nullptr, "a.b", nullptr, "/d/s/x", "", kNoPortal,
                "http:///", "browser"},
        BaseRow{"application: oo/sharing/webapi/", "nas", "a.b", kApp,
                "/plyth/oo/sharing/webapi/entry.cgi?x=1", "", kNoPortal, "http://nas/plyth/",
                "browser"},
        BaseRow{"application: oo/r/webapi/", "nas", "a.b", kApp, "/p/oo/r/webapi/entry.cgi", "",
                kNoPortal, "http://nas/p/", "browser"},
        BaseRow{"application: d/f/webapi/", "nas", "a.b", kApp, "/p/d/f/webapi/entry.cgi", "",
                kNoPortal, "http://nas/p/", "browser"},
        BaseRow{"application: webapi/", "nas", "a.b", kApp, "/p/webapi/entry.cgi", "", kNoPortal,
                "http://nas/p/", "browser"},
        BaseRow{"application: cuts run one after the other", "nas", "a.b", kApp,
                "/a/webapi/oo/sharing/webapi/entry.cgi", "", kNoPortal, "http://nas/a/",
                "browser"},
        BaseRow{"application: no entry point, path kept whole", "nas", "a.b", kApp,
                "/p/other/entry.cgi", "", kNoPortal, "http://nas/p/other/entry.cgi", "browser"},
        BaseRow{"other application: root prefix", "nas", "a.b", "ZANT.QRT.Other",
                "/p/webapi/entry.cgi", "", kNoPortal, "http://nas/", "browser"},
        BaseRow{"external origin gets the prefix too", "nas", "nas", kApp,
                "/p/oo/sharing/webapi/entry.cgi", kExternal, kNoPortal,
                "http://ext.example:8080/p/", "external"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

}  // namespace
