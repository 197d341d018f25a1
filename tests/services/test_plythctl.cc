// plythctl run in-process: exit codes, what it prints, and what it changes.
#include <sstream>

#include "access_requests.h"
#include "plythctl.h"
#include "services_fixture.h"
#include "zant_host/session.h"

namespace services_test {
namespace {

struct CtlRun {
  int code;
  std::string out, err;
};

CtlRun Ctl(const std::vector<std::string>& args, const std::string& input = "") {
  std::istringstream in(input);
  std::ostringstream out, err;
  const int code = plyth_services::RunPlythctl(args, in, out, err);
  return CtlRun{code, out.str(), err.str()};
}

const std::string kA = "alice:/docs/a.txt";

class Plythctl : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    setenv("TZ", "UTC", 1);
    tzset();
    a_ = AddItem("alice", "/docs/a.txt", "alice's");
    AddItem("bob", "/docs/a.txt", "bob's");
  }
  Item a_;
};

struct ExitRow {
  int code;
  std::vector<std::string> args;
};

class ExitCodes : public Plythctl, public ::testing::WithParamInterface<ExitRow> {};

TEST_P(ExitCodes, TellWhatWentWrong) {
  const CtlRun run = Ctl(GetParam().args);
  EXPECT_EQ(run.code, GetParam().code) << run.err;
  EXPECT_EQ(run.err.rfind("plythctl: ", 0) == 0, run.code != 0) << run.err;
}

INSTANTIATE_TEST_SUITE_P(
    Commands, ExitCodes,
    ::testing::Values(ExitRow{1, {}}, ExitRow{1, {"link", "make", kA, "--bogus"}},
                      ExitRow{2, {"user", "remove", "nobody"}}, ExitRow{2, {"grant", kA, "zed", "viewer"}},
                      ExitRow{3, {"user", "add", "carol", "--uid", "1026"}},
                      ExitRow{3, {"file", "add", "alice", "/docs/a.txt"}},
                      ExitRow{3, {"file", "trash", "/docs/a.txt"}},  // two owners have it
                      ExitRow{4, {"file", "add", "alice", "/docs/a.txt/b"}},  // below a file
                      ExitRow{4, {"grant", kA, "bob", "owner"}}, ExitRow{4, {"grant", kA, "alice", "viewer"}},
                      ExitRow{4, {"share", "make", kA, "--expires", "2031-02-30 10:00:00"}},
                      ExitRow{4, {"share", "make", kA, "--expires", "@0"}},
                      ExitRow{4, {"share", "make", kA, "--password", ""}},
                      ExitRow{2, {"share", "password", "NoSuchLink000000", "--none"}},
                      ExitRow{1, {"share", "password", "NoSuchLink000000", "--none", "--password", "x"}},
                      ExitRow{4, {"share", "password", "NoSuchLink000000"}},  // an empty line
                      ExitRow{0, {"file", "trash", kA}}, ExitRow{0, {"grant", kA, "bob", "viewer"}}));

TEST_F(Plythctl, StoreThatCannotBeOpenedIsExitFive) {
  store_.reset();
  root_.Remove("/var/packages/BrindlexPlyth/target/var/plyth.db");
  root_.MakeDir("/var/packages/BrindlexPlyth/target/var/plyth.db");
  EXPECT_EQ(Ctl({"file", "list"}).code, 5);
}

TEST_F(Plythctl, LinkMakeSetsAccessAndPrintsThePermanentLink) {
  const CtlRun run = Ctl({"link", "make", kA, "--visibility", "anyone", "--role", "commenter"});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, a_.permanent_link + "\n");
  EXPECT_TRUE(FileGet("link:" + a_.permanent_link, "anonymous")["data"]["capabilities"]["can_comment"].asBool());
  EXPECT_EQ(Ctl({"link", "make", "link:" + a_.permanent_link}).out, run.out) << "without options it only prints";
  EXPECT_EQ(Reload(a_).visibility, Visibility::kAnyone);
}

TEST_F(Plythctl, ShareMakeListUrlAndRevoke) {
  const CtlRun run = Ctl({"share", "make", "id:" + a_.file_id, "--password", "pw", "--expires", "@1800000000",
                          "--role", "previewer"});
  ASSERT_EQ(run.code, 0) << run.err;
  const std::string id = run.out.substr(0, run.out.size() - 1);
  EXPECT_EQ(id.size(), 16u);
  EXPECT_EQ(ErrorCode(Auth(id, "")), 1037);
  const Json::Value caps =
      FileGet("link:" + a_.permanent_link, "anonymous", TokenFor(id, "pw"))["data"]["capabilities"];
  EXPECT_EQ(caps["can_preview"].asString() + caps["can_read"].asString(), "truefalse");
  EXPECT_EQ(Ctl({"share", "list"}).out,
            id + "\t" + kA + "\t" + a_.permanent_link + "\tpreviewer\t2027-01-15 08:00:00\tpassword\n");
  std::vector<Item> items;
  ASSERT_EQ(plyth_services::ListItems(Db(), &items), 0);
  std::string urls;
  for (const Item& item : items) {
    urls += "https://nas.example:5001/d/f/" + item.permanent_link + "\t" + item.owner_name + ":" + item.path + "\n";
  }
  EXPECT_EQ(Ctl({"url", "https://nas.example:5001/"}).out,
            urls + "https://nas.example:5001/d/s/" + id + "/" + a_.permanent_link + "\t" + kA + " (sharing link)\n");
  EXPECT_EQ(Ctl({"share", "revoke", id}).code, 0);
  EXPECT_EQ(Ctl({"share", "list"}).out, "");
}

// The new password comes from --password or one line of standard input;
// --none leaves the link without one. Every change ends the tokens out there.
TEST_F(Plythctl, SharePasswordChangesThePasswordAndEndsTheTokens) {
  const std::string id = Share(a_, "old");
  const std::string token = TokenFor(id, "old");
  const CtlRun run = Ctl({"share", "password", id}, "new pass\r\n");
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out + run.err, "");
  EXPECT_EQ(ErrorCode(FileGet("link:" + a_.permanent_link, "anonymous", token)), 1040);
  EXPECT_EQ(ErrorCode(Auth(id, "old")), 1037);
  EXPECT_EQ(ErrorCode(Auth(id, "new pass")), 0);
  ASSERT_EQ(Ctl({"share", "password", id, "--password", "third"}).code, 0);
  EXPECT_EQ(ErrorCode(Auth(id, "third")), 0);
  ASSERT_EQ(Ctl({"share", "password", id, "--none"}).code, 0);
  EXPECT_EQ(ErrorCode(Auth(id, "")), 0);
  EXPECT_EQ(Ctl({"share", "list"}).out.substr(Ctl({"share", "list"}).out.rfind('\t')), "\t-\n");
}

// A removed account's links answer as unknown links, its sessions end, and
// an account made again under the name inherits nothing.
TEST_F(Plythctl, UserRemoveEndsTheAccountsLinksSessionsAndGrants) {
  const Item bobs = Find("bob", "/docs/a.txt");
  ASSERT_EQ(Ctl({"grant", "bob:/docs/a.txt", "alice", "editor"}).code, 0);
  ASSERT_EQ(plyth_services::AddAccessRequest(Db(), bobs, "alice", "may I?"), 0);
  ASSERT_EQ(Ctl({"link", "make", kA, "--visibility", "anyone"}).code, 0);
  const std::string link = Share(a_);
  const std::string token = TokenFor(link);
  zant_host::SessionStore sessions;
  zant_host::Session alice1, alice2, bob;
  ASSERT_TRUE(sessions.Create("alice", 1026, false, "", gNow, &alice1));
  ASSERT_TRUE(sessions.Create("alice", 1026, false, "", gNow, &alice2));
  ASSERT_TRUE(sessions.Create("bob", 1027, false, "", gNow, &bob));

  const CtlRun run = Ctl({"user", "remove", "alice"});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out + run.err, "");
  EXPECT_EQ(ErrorCode(FileGet("link:" + a_.permanent_link, "anonymous")), 408);
  EXPECT_EQ(ErrorCode(FileGet("link:" + a_.permanent_link, "anonymous", token)), 408);
  EXPECT_EQ(ErrorCode(Auth(link, "")), 1036);
  zant_host::Session loaded;
  EXPECT_FALSE(sessions.Load(alice1.id, gNow, &loaded));
  EXPECT_FALSE(sessions.Load(alice2.id, gNow, &loaded));
  EXPECT_TRUE(sessions.Load(bob.id, gNow, &loaded)) << "another account's session stays";
  EXPECT_EQ(Ctl({"share", "list"}).out, "");
  EXPECT_EQ(Ctl({"requests", "list"}).out, "") << "her request on bob's item went with her";

  ASSERT_EQ(Ctl({"user", "add", "alice"}).code, 0);
  EXPECT_EQ(ErrorCode(FileGet("id:" + bobs.file_id, "alice")), 1002) << "the old grant went with the account";
  EXPECT_EQ(Ctl({"file", "add", "alice", "/docs/a.txt"}).code, 0) << "the old path is free";
  EXPECT_EQ(Ctl({"user", "remove", "nobody"}).code, 2);
}

TEST_F(Plythctl, UsersAndFiles) {
  const CtlRun run = Ctl({"user", "add", "carol", "--password-stdin", "--admin"}, "pass word\n");
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, "carol\t1028\n");
  ZANT::UserDB::User user;
  EXPECT_EQ(ZANT::UserDB::Authenticate("carol", "pass word", &user), ZANT::UserDB::Status::kOk);
  EXPECT_EQ(Ctl({"user", "list"}).out, "alice\t1026\tuser\nbob\t1027\tuser\ncarol\t1028\tadmin\n");
  EXPECT_EQ(Ctl({"user", "remove", "carol"}).code, 0);
  EXPECT_EQ(Ctl({"user", "list"}).out, "alice\t1026\tuser\nbob\t1027\tuser\n");

  root_.WriteFile("/tmp/local.txt", "local bytes");
  const CtlRun add = Ctl({"file", "add", "alice", "/new/local.txt", "--from", root_.Host("/tmp/local.txt")});
  ASSERT_EQ(add.code, 0) << add.err;
  const Item item = Find("alice", "/new/local.txt");
  EXPECT_EQ(add.out, item.file_id + "\t" + item.permanent_link + "\n");
  EXPECT_EQ(item.hash, plyth_services::Sha256Hex("local bytes"));
  EXPECT_EQ(root_.ReadFile("/var/packages/BrindlexPlyth/target/var/data/" + item.hash.substr(0, 2) + "/" + item.hash),
            "local bytes");
}

TEST(PlythctlExpiry, IsLocalTimeOrEpochSeconds) {
  setenv("TZ", "UTC", 1);
  tzset();
  int64_t when = -1;
  for (const char* text : {"2024-02-29 12:00:00", "@1709208000"}) {
    EXPECT_TRUE(plyth_services::ParseExpiry(text, &when) && when == 1709208000) << text;
  }
  for (const char* text : {"2023-02-29 12:00:00", "2024-01-01 24:00:00", "2024-01-01 00:00:60", "2024-01-01T00:00:00",
                           "2024-1-01 00:00:00", "2024-01-01 00:00:00 ", "@", "@12a", ""}) {
    EXPECT_FALSE(plyth_services::ParseExpiry(text, &when)) << text;
  }
}

}  // namespace
}  // namespace services_test
