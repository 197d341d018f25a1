// Links end to end: an appliance root made by scripts/mkroot, links made
// with its plythctl, and the real entry.cgi answering them with the shard
// module and the link service loaded side by side.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string Shell(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("popen");
  std::string out;
  char buffer[4096];
  size_t got;
  while ((got = fread(buffer, 1, sizeof(buffer), pipe)) > 0) out.append(buffer, got);
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + command + "\n" + out);
  return out;
}

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

// One appliance root for the whole program: making it copies the staging tree.
struct Appliance {
  std::string root;
  std::string permanent;  // alice:/docs/report.txt
  std::string openLink;    // sharing link without a password
  std::string lockedLink;  // sharing link with the password "pw"

  Appliance() {
    char dir[] = "/tmp/services-blackbox-XXXXXX";
    if (mkdtemp(dir) == nullptr) throw std::runtime_error("mkdtemp");
    root = dir;
    Shell(std::string(SERVICES_MKROOT) + " --stage '" + SERVICES_STAGE_DIR + "' '" + root + "' 2>&1");
    std::ofstream(root + "/report.txt") << "0123456789";
    Ctl("user add alice");
    Ctl("file add alice /docs/report.txt --from '" + root + "/report.txt'");
    permanent = FirstLine(Ctl("link make alice:/docs/report.txt"));
    openLink = FirstLine(Ctl("share make alice:/docs/report.txt"));
    lockedLink = FirstLine(Ctl("share make alice:/docs/report.txt --password pw"));
  }
  ~Appliance() {
    if (getenv("SERVICES_KEEP_ROOT") == nullptr) Shell("rm -rf '" + root + "'");
  }
  std::string Ctl(const std::string& args) const {
    return Shell("'" + root + "/usr/zant/bin/plythctl' --root '" + root + "' " + args);
  }

  // entry.cgi with a clean CGI environment plus `extra`; its standard output.
  std::string Cgi(const std::string& query, std::vector<std::string> extra = {}) const {
    std::vector<std::string> env = {"ZANT_ROOT=" + root,
                                    "PATH=/usr/bin:/bin",
                                    "GATEWAY_INTERFACE=CGI/1.1",
                                    "REQUEST_METHOD=GET",
                                    "SERVER_NAME=nas.test",
                                    "SERVER_PORT=5000",
                                    "HTTP_HOST=nas.test:5000",
                                    "REQUEST_URI=/webapi/entry.cgi?" + query,
                                    "QUERY_STRING=" + query};
    env.insert(env.end(), extra.begin(), extra.end());
    std::vector<char*> envp;
    for (std::string& entry : env) envp.push_back(&entry[0]);
    envp.push_back(nullptr);
    const std::string program = root + "/usr/zant/zantman/webapi/entry.cgi";
    const std::string out = root + "/cgi.out";
    pid_t pid = fork();
    if (pid == 0) {
      int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      int null = open("/dev/null", O_RDWR);
      dup2(null, 0);
      dup2(fd, 1);
      dup2(null, 2);
      char* argv[] = {const_cast<char*>(program.c_str()), nullptr};
      execve(program.c_str(), argv, envp.data());
      _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << query;
    return Slurp(out);
  }
};

Appliance* gAppliance = nullptr;

class Environment : public ::testing::Environment {
 public:
  void SetUp() override { gAppliance = new Appliance(); }
  void TearDown() override { delete gAppliance; }
};
const ::testing::Environment* const kEnvironment = ::testing::AddGlobalTestEnvironment(new Environment);

const char kDesktopAgent[] = "HTTP_USER_AGENT=Mozilla/5.0 (X11; Linux x86_64) Chrome/120.0";

std::string ShardQuery(const std::string& method, const std::string& permanent, const std::string& sharing) {
  if (method == "get") {
    return "api=ZANT.BrindlexPlyth.Shard&version=1&method=get&link_id=" + permanent + "&sharing_link=" + sharing;
  }
  return "api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs&permanent_link=%22" + permanent +
         "%22&sharing_link=%22" + sharing + "%22";
}

TEST(Links, SharingLinkSetsTheTokenCookieAndAnswersTheDesktopPage) {
  const Appliance& a = *gAppliance;
  std::string answer = a.Cgi(ShardQuery("get", a.permanent, a.openLink), {kDesktopAgent});
  std::smatch cookie;
  ASSERT_TRUE(std::regex_search(answer, cookie,
                                std::regex("^Set-Cookie: plyth-sharing-" + a.openLink +
                                           "=([A-Za-z0-9]{43}); path=/\r\nContent-Type:text/html; "
                                           "charset=\"UTF-8\"\r\n")))
      << answer.substr(0, 400);
  EXPECT_NE(answer.find("<title>Brindlex Plyth</title>"), std::string::npos);
  // The page loads its script with both identifiers.
  EXPECT_NE(answer.find("method=getjs&permanent_link=%22" + a.permanent + "%22&sharing_link=%22" + a.openLink + "%22"),
            std::string::npos)
      << answer;

  // The cookie's token is one the link service knows.
  const std::string token = cookie[1];
  std::string record = a.Cgi("api=ZANT.BrindlexPlyth.Files&version=1&method=get&path=link:" + a.permanent +
                             "&sharing_token=" + token);
  EXPECT_NE(record.find("\"name\":\"report.txt\""), std::string::npos) << record;
  EXPECT_NE(record.find("\"success\":true"), std::string::npos) << record;
}

TEST(Links, PasswordLinkScriptReportsPasswordNeeded) {
  const Appliance& a = *gAppliance;
  std::string script = a.Cgi(ShardQuery("getjs", a.permanent, a.lockedLink));
  EXPECT_EQ(script.compare(0, 56, "Content-Type:application/javascript; charset=\"UTF-8\"\r\n\r\n"), 0) << script;
  EXPECT_NE(script.find("window.getPlythErrCode=function(){return 1037;}\r\n"), std::string::npos) << script;
  EXPECT_NE(script.find("window.getPlythFile=function(){return ;}\r\n"), std::string::npos) << script;
  EXPECT_EQ(script.find("Set-Cookie"), std::string::npos);
}

TEST(Links, PasswordUnlockThroughEntryCgiOpensTheScript) {
  const Appliance& a = *gAppliance;
  std::string auth = a.Cgi("api=ZANT.BrindlexPlyth.AdvanceSharing.Public&version=1&method=auth&sharing_link=" +
                           a.lockedLink + "&password=pw");
  std::smatch token;
  ASSERT_TRUE(std::regex_search(auth, token, std::regex("\"sharing_token\":\"([A-Za-z0-9]{43})\""))) << auth;
  std::string script = a.Cgi(ShardQuery("getjs", a.permanent, a.lockedLink),
                             {"HTTP_COOKIE=plyth-sharing-" + a.lockedLink + "=" + token[1].str()});
  EXPECT_NE(script.find("window.getPlythErrCode=function(){return 0;}\r\n"), std::string::npos) << script;
  EXPECT_NE(script.find("\"name\":\"report.txt\""), std::string::npos) << script;

  std::string wrong = a.Cgi("api=ZANT.BrindlexPlyth.AdvanceSharing.Public&version=1&method=auth&sharing_link=" +
                            a.lockedLink + "&password=nope");
  EXPECT_EQ(wrong, "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n"
                   "{\"error\":{\"code\":1037},\"success\":false}");
}

TEST(Links, DownloadWithARangeThroughEntryCgi) {
  const Appliance& a = *gAppliance;
  // The browser's token cookie, as the landing page set it.
  std::smatch cookie;
  std::string page = a.Cgi(ShardQuery("get", a.permanent, a.openLink), {kDesktopAgent});
  ASSERT_TRUE(std::regex_search(page, cookie, std::regex("^Set-Cookie: ([^;]*);")));
  std::string answer = a.Cgi("api=ZANT.BrindlexPlyth.Files&version=1&method=download&path=link:" + a.permanent +
                                 "&sharing_link=" + a.openLink,
                             {"HTTP_RANGE=bytes=2-5", "HTTP_COOKIE=" + cookie[1].str()});
  EXPECT_EQ(answer,
            "Status: 206 Partial Content\r\n"
            "Content-Type: text/plain\r\n"
            "Content-Length: 4\r\n"
            "Content-Range: bytes 2-5/10\r\n"
            "Accept-Ranges: bytes\r\n"
            "Content-Disposition: attachment; filename=\"report.txt\"; filename*=UTF-8''report.txt\r\n"
            "X-Content-Type-Options: nosniff\r\n"
            "\r\n"
            "2345");
}

TEST(Links, DesktopScriptsAreJavaScript) {
  const Appliance& a = *gAppliance;
  std::string defs = a.Cgi("api=ZANT.Core.Desktop.Defs&version=1&method=getjs");
  EXPECT_EQ(defs.compare(0, 57, "Content-Type: application/javascript; charset=\"UTF-8\"\r\n\r\n"), 0) << defs;
  EXPECT_NE(defs.find("window.ZANTDefs="), std::string::npos);
  std::string texts = a.Cgi("api=ZANT.Core.Desktop.UIString&method=getjs&version=1&lang=enu");
  EXPECT_NE(texts.find("window.ZANTUIStrings="), std::string::npos) << texts;
}

}  // namespace
