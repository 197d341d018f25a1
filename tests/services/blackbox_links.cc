// Links end to end: an appliance root made by scripts/mkroot, links made
// with its plythctl as an operator runs it, and the real entry.cgi answering
// them with the shard module and the link service loaded side by side. What
// each answer says is pinned in-process; here only the wiring is.
#include <cstdio>
#include <fstream>
#include <regex>
#include <vector>

#include <gtest/gtest.h>

#include "blackbox_root.h"

namespace {

std::string gRoot, gPermanent, gOpenLink, gFolder;

// plythctl's exit code; `out` its first line.
int Ctl(const std::string& args, std::string* out, std::string* err = nullptr) {
  const blackbox::Run run = blackbox::RunCommand(
      "env -u ZANT_ROOT " + gRoot + "/usr/zant/bin/plythctl --root " + gRoot + " " + args + " </dev/null", gRoot);
  *out = run.out.substr(0, run.out.find('\n'));
  if (err != nullptr) *err = run.err;
  return run.status;
}

class Environment : public ::testing::Environment {
 public:
  void SetUp() override {
    gRoot = blackbox::MakeRoot("services-blackbox", SERVICES_MKROOT,
                               std::string("--stage '") + SERVICES_STAGE_DIR + "'");
    std::string out;
    std::ofstream(gRoot + "/report.txt") << "0123456789";
    for (const auto& [args, result] : std::vector<std::pair<std::string, std::string*>>{
             {"user add alice", &out}, {"file add alice /docs/report.txt --from " + gRoot + "/report.txt", &out},
             {"link make alice:/docs/report.txt", &gPermanent}, {"share make alice:/docs/report.txt", &gOpenLink},
             {"link make alice:/docs --visibility anyone", &gFolder}}) {
      if (Ctl(args, result) != 0) throw std::runtime_error("plythctl " + args);
    }
  }
  void TearDown() override { blackbox::RemoveRoot(gRoot, "SERVICES_KEEP_ROOT"); }
};
const ::testing::Environment* const kEnvironment = ::testing::AddGlobalTestEnvironment(new Environment);

// entry.cgi's standard output for `query` with a clean CGI environment plus `extra`.
std::string Cgi(const std::string& query, const std::string& extra = "") {
  const blackbox::Run run = blackbox::RunCommand(
      "env -i ZANT_ROOT=" + gRoot + " REQUEST_METHOD=GET SERVER_NAME=nas.test SERVER_PORT=5000 HTTP_HOST=nas.test:5000 "
      "'REQUEST_URI=/webapi/entry.cgi?" + query + "' 'QUERY_STRING=" + query + "' " + extra + " " + gRoot +
      "/usr/zant/zantman/webapi/entry.cgi </dev/null", gRoot);
  EXPECT_EQ(run.status, 0) << query;
  return run.out;
}

const char kDesktopAgent[] = "'HTTP_USER_AGENT=Mozilla/5.0 (X11; Linux x86_64) Chrome/120.0'";

TEST(Links, SharingLinkSetsTheTokenCookieAndAnswersTheDesktopPage) {
  const std::string page = Cgi("api=ZANT.BrindlexPlyth.Shard&version=1&method=get&link_id=" + gPermanent +
                               "&sharing_link=" + gOpenLink, kDesktopAgent);
  std::smatch cookie;
  ASSERT_TRUE(std::regex_search(page, cookie, std::regex("^Set-Cookie: plyth-sharing-" + gOpenLink +
                                                         "=([A-Za-z0-9]{16}\\.[0-9]+\\.[0-9a-f]{64}); path=/\r\nContent-Type:text/html; "
                                                         "charset=\"UTF-8\"\r\n")))
      << page.substr(0, 400);
  EXPECT_NE(page.find("<title>Brindlex Plyth</title>"), std::string::npos);

  // The download a browser makes with that cookie.
  EXPECT_EQ(Cgi("api=ZANT.BrindlexPlyth.Files&version=1&method=download&path=link:" + gPermanent +
                    "&sharing_link=" + gOpenLink,
                "HTTP_RANGE=bytes=2-5 HTTP_COOKIE=plyth-sharing-" + gOpenLink + "=" + cookie[1].str()),
            "Status: 206 Partial Content\r\nContent-Type: text/plain\r\nContent-Length: 4\r\n"
            "Content-Range: bytes 2-5/10\r\nAccept-Ranges: bytes\r\n"
            "Content-Disposition: attachment; filename=\"report.txt\"; filename*=UTF-8''report.txt\r\n"
            "X-Content-Type-Options: nosniff\r\n\r\n2345");
}

// The ZIP writer is a library of its own, loaded by the process that
// writes the archive; without it the archive is refused as a store failure.
TEST(Links, FolderLinkAnswersItsZipOrAStoreErrorWithoutTheZipLibrary) {
  const std::string query = "api=ZANT.BrindlexPlyth.Files&version=1&method=archive&path=link:" + gFolder;
  const std::string zip = Cgi(query);  // its head is pinned in-process
  EXPECT_EQ(zip.substr(zip.find("\r\n\r\n") + 4, 4), "PK\x03\x04");

  const std::string library = gRoot + "/usr/zant/lib/plyth/zip.so";
  ASSERT_EQ(rename(library.c_str(), (library + ".away").c_str()), 0);
  EXPECT_EQ(Cgi(query), "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n"
                        "{\"error\":{\"code\":1050},\"success\":false}");
  rename((library + ".away").c_str(), library.c_str());
}

TEST(Plythctl, ErrorsGoToStandardErrorWithTheirExitCode) {
  std::string out, err;
  EXPECT_EQ(Ctl("bogus", &out, &err), 1);
  EXPECT_EQ(out + err.substr(0, err.find('\n')), "plythctl: unknown command: bogus");
  EXPECT_EQ(Ctl("init", &out), 0);
  EXPECT_EQ(out, gRoot + "/var/packages/BrindlexPlyth/target/var/plyth.db");
}

}  // namespace
