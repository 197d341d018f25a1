// The appliance's external origin (configured host, dynamic DNS, relay
// service), the relay test of a request and the base URL built from them,
// with the exact system-log lines of every failure and privilege switch.
#include "module_testing.h"
#include "plyth_http.h"

namespace {

// Results of the three web APIs; a failure is logged in this very form.
const char kFail[] = R"({"error":{"code":105},"success":false})";
const char kRecords[] =
    R"({"success":true,"data":{"records":[{"enable":false,"hostname":"off.example"},"junk",)"
    R"({"enable":true,"hostname":""},{"enable":"true","hostname":"s.example"},)"
    R"({"enable":true,"hostname":"b.example"},{"enable":true,"hostname":"c"}]}})";
const char kNoPortal[] = R"({"success":true,"data":{"services":[{"id":"other","enabled":true}]}})";
const char kPortal[] = R"({"success":true,"data":{"services":[{"id":"other","enabled":true},)"
                       R"({"id":"nxo_portal","enabled":true}]}})";
const char kPortalOff[] = R"({"success":true,"data":{"services":[{"id":"nxo_portal","enabled":false}]}})";
const char kRelay[] = R"({"success":true,"data":{"enabled":true,"server_alias":"mynas",)"
                      R"("region":"eu","domain":"skyvane.example"}})";
const char kRelayOff[] = R"({"success":true,"data":{"enabled":false,"server_alias":"mynas"}})";
const char kNoAlias[] = R"({"success":true,"data":{"enabled":true,"server_alias":""}})";
const char kRelayOrigin[] = "https://mynas.eu.skyvane.example";

class Origin : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.WriteFile("/usr/zant/etc/relay/relay.conf",
                    "global_suffix=\".quickrelay.test\"\nchina_suffix=\".qrelay-china.cn\"\n");
    Answer(ddns_, R"({"success":true,"data":{"records":[]}})");
    Answer(permission_, kNoPortal);
    Answer(skyvane_, kRelay);
  }
  static void Answer(FakeAPI& api, const char* result) { if (result != nullptr) api.AlwaysReturn(Parse(result)); }

  ApplianceRoot root_;
  FakeAPI ddns_{"ZANT.Core.DDNS.Record", 1, "list"};
  FakeAPI permission_{"ZANT.Core.Skyvane.Permission", 1, "get"};
  FakeAPI skyvane_{"ZANT.Core.Skyvane", 1, "get"};
};

// /etc/zantinfo.conf; the three APIs' results (null: the fixture's); the origin
// (null: false); the calls to dynamic DNS, relay permission and relay.
struct OriginRow {
  const char *description, *proto, *zantinfo;
  bool ddnsSupported;
  const char *ddns, *permission, *skyvane, *origin, *source, *calls;
  int logLine = 0;  // nothing logged
  const char* logText = "";
};

class ExternalOrigin : public Origin, public ::testing::WithParamInterface<OriginRow> {};

TEST_P(ExternalOrigin, OrderOfPreference) {
  const OriginRow& row = GetParam();
  root_.WriteFile("/etc/zantinfo.conf", row.zantinfo);
  root_.WriteFile("/etc.defaults/zantinfo.conf", row.ddnsSupported ? "supportddns=\"yes\"\n" : "");
  Answer(ddns_, row.ddns);
  Answer(permission_, row.permission);
  Answer(skyvane_, row.skyvane);
  FakeIdentity identity(0, 0);  // root: no privilege lines
  SyslogCapture log;
  std::string origin, source;
  EXPECT_EQ(PlythGetOrigin(origin, source, row.proto, 443), row.origin != nullptr);
  EXPECT_EQ(origin, row.origin ? row.origin : "");
  EXPECT_EQ(source, row.source);
  EXPECT_EQ(std::to_string(ddns_.Calls().size()) + std::to_string(permission_.Calls().size()) +
                std::to_string(skyvane_.Calls().size()), row.calls);
  EXPECT_EQ(log.Lines(), row.logLine ? (Lines{Logged(3, PLYTH_HTTP_SOURCE, row.logLine, row.logText)}) : Lines());
  for (const FakeAPI* api : {&ddns_, &permission_, &skyvane_}) {
    for (const auto& call : api->Calls()) EXPECT_EQ(call.user, "admin");
  }
}

const char kExtHost[] = "external_port_nxo_https=\"8443\"\nexternal_host_ip=\"ext.example\"\n";
const char kPorts[] = "nxo_https_port=\"5101\"\nnxo_http_port=\"5100\"\n";
const char kHttp[] = "nxo_http_port=\"80\"\nexternal_host_ip=\"h\"\n";
using O = OriginRow;

INSTANTIATE_TEST_SUITE_P(Rows, ExternalOrigin, ::testing::Values(
    O{"external host", "https", kExtHost, true, kRecords, kPortal, 0, "https://ext.example:8443", "external", "000"},
    O{"http: the desktop's port", "http", kHttp, false, 0, 0, 0, "http://h:80", "external", "000"},
    O{"first named record", "https", kPorts, true, kRecords, kPortal, 0, "https://b.example:5101", "ddns", "100"},
    O{"record list failed", "https", kPorts, true, kFail, kPortal, 0, kRelayOrigin, "skyvane", "111", 84, kFail},
    O{"permission failed", "https", "", false, 0, kFail, 0, 0, "", "010", 31, kFail},
    O{"portal disabled", "https", "", false, 0, kPortalOff, 0, 0, "", "010"},
    O{"relay query failed", "https", "", false, 0, kPortal, kFail, 0, "", "011", 55, kFail},
    O{"relay disabled", "https", "", false, 0, kPortal, kRelayOff, 0, "", "011"},
    O{"relay alias empty", "https", "", false, 0, kPortal, kNoAlias, 0, "", "011"}));

// The one address variable not set (or ""); the connections table (null: none;
// "DIR": unreadable).
struct RelayRow {
  const char *description, *host, *missing, *connections;
  bool relayed, queried;
};

class RelayRequest : public Origin, public ::testing::WithParamInterface<RelayRow> {};

TEST_P(RelayRequest, ByNameThenByConnection) {
  const RelayRow& row = GetParam();
  RelayConnections(root_, row.connections);
  ZANT::APIRequest request;
  request.SetServerVar("HTTP_HOST", row.host);
  for (const char* name : {"SERVER_ADDR", "SERVER_PORT", "REMOTE_ADDR", "REMOTE_PORT"}) {
    if (std::string(name) != row.missing) request.SetServerVar(name, "10.0.0.1");
  }
  FakeIdentity identity(1000, 100);
  SyslogCapture log;
  EXPECT_EQ(IsSkyvaneRequest(&request), row.relayed);
  EXPECT_EQ(log.Lines(), row.queried ? Switched(PLYTH_HTTP_SOURCE, 215) : Lines());
}

INSTANTIATE_TEST_SUITE_P(Rows, RelayRequest, ::testing::Values(
    RelayRow{"upper case, port ignored", "NAS.QUICKRELAY.TEST:443", "", "* * * * 16", true, false},
    RelayRow{"mainland suffix, no variables", "a.qrelay-china.cn", "SERVER_ADDR", 0, true, false},
    // At least one character must stand before the 16-character suffix.
    RelayRow{"bare suffix", ".quickrelay.test", "", "* * * * 16", false, true},
    RelayRow{"connection type 32", "nas.local", "", "* * * * 32", true, true},
    RelayRow{"connection type 64", "nas.local", "", "* * * * 64", true, true},
    RelayRow{"failed query", "nas.local", "", "DIR", false, true},
    RelayRow{"REMOTE_PORT missing", "nas.local", "REMOTE_PORT", "* * * * 32", false, false}));

struct BaseRow {
  const char *description, *httpHost, *hostVar /* HOST; null: not set */, *rewriteApp;
  const char *requestURI, *zantinfo, *permission, *baseURL, *source;
};

class BaseURL : public Origin, public ::testing::WithParamInterface<BaseRow> {};

TEST_P(BaseURL, OriginAndPrefix) {
  const BaseRow& row = GetParam();
  root_.WriteFile("/etc/zantinfo.conf", row.zantinfo);
  Answer(permission_, row.permission);
  ZANT::APIRequest request;
  request.SetServerVar("HTTP_HOST", row.httpHost);
  if (row.hostVar != nullptr) request.SetServerVar("HOST", row.hostVar);
  request.SetServerVar("REWRITE_APP", row.rewriteApp);
  request.SetServerVar("REQUEST_URI", row.requestURI);
  FakeIdentity identity(0, 0);
  std::string source, baseURL;
  PlythGetBaseURL(&request, source, baseURL);
  EXPECT_EQ(baseURL, row.baseURL);
  EXPECT_EQ(source, row.source);
}

const char kExt[] = "external_port_nxo_http=\"8080\"\nexternal_host_ip=\"ext.example\"\n";
const char kApp[] = "ZANT.QRT.Plyth.Application";

using B = BaseRow;

INSTANTIATE_TEST_SUITE_P(Rows, BaseURL, ::testing::Values(
    B{"relayed", "n.quickrelay.test", 0, "", "/d", kExt, kPortal, "https://mynas.eu.skyvane.example/", "skyvane"},
    B{"relayed: never the external one", "n.quickrelay.test", 0, "", "/d", kExt, kNoPortal, "http://n.quickrelay.test/",
      "browser"},
    B{"HOST absent", "nas:5", 0, "", "/d", kExt, kNoPortal, "http://ext.example:8080/", "external"},
    B{"HOST dotted", "nas:5", "10.0.0.5", "", "/d", kExt, kPortal, "http://nas:5/", "browser"},
    B{"application", "nas", "nas", kApp, "/p/oo/sharing/webapi/e.cgi?x=1", kExt, kNoPortal,
      "http://ext.example:8080/p/", "external"},
    B{"application: cuts in turn", "nas", "a.b", kApp, "/a/webapi/oo/r/webapi/e.cgi", "", kNoPortal, "http://nas/a/",
      "browser"},
    B{"other application", "nas", "a.b", "ZANT.Other", "/p/webapi/e.cgi", "", kNoPortal, "http://nas/", "browser"}));

}  // namespace
