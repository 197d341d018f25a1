// plythctl run in-process: exit codes, what it prints, and what it changes.
#include "access_requests.h"
#include "services_fixture.h"
#include "zant_host/session.h"

namespace services_test {
namespace {

const std::string kA = "alice:/docs/a.txt";

// alice and bob (uids 1026, 1027) each have /docs/a.txt.
class Plythctl : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    a_ = AddItem("alice", "/docs/a.txt", "alice's");
    AddItem("bob", "/docs/a.txt", "bob's");
  }
  Item a_;
};

// Each command's refusals and short answers, in one store (the rows run in
// order). `in` is standard input; `err` the message after "plythctl: ",
// which exit 1 follows with the usage text.
TEST_F(Plythctl, ExitPrintAndComplain) {
  // The usage text is printed from the command table; help shows it whole.
  const std::string usage = Ctl({"help"}).out;
  EXPECT_EQ(usage.substr(0, usage.find('\n', usage.find('\n') + 1)), "usage: plythctl [--root DIR] COMMAND\n  init");
  struct Row { std::vector<std::string> args; std::string in = ""; int code; std::string out = "", err = ""; };
  const Row rows[] = {
      {.args = {}, .code = 1, .err = "no command"},
      {.args = {"user", "bogus"}, .code = 1, .err = "unknown command: user bogus"},
      {.args = {"init", "extra"}, .code = 1, .err = "wrong number of arguments for init"},
      {.args = {"user", "add", "carol", "--uid", "abc"}, .code = 4, .err = "not a uid: abc"},
      {.args = {"user", "add", "carol", "--uid", "1026"}, .code = 3, .err = "cannot add user carol: uid in use"},
      {.args = {"user", "add", "carol", "--password", "a", "--password-stdin"}, .code = 1,
       .err = "give --password or --password-stdin, not both"},
      {.args = {"user", "add", "carol", "--uid"}, .code = 1, .err = "--uid needs a value"},
      {.args = {"user", "add", "carol", "--uid", "1030", "--admin"}, .code = 0, .out = "carol\t1030\n"},
      {.args = {"user", "list"}, .code = 0, .out = "alice\t1026\tuser\nbob\t1027\tuser\ncarol\t1030\tadmin\n"},
      {.args = {"user", "remove", "nobody"}, .code = 2, .err = "cannot remove user nobody: no such user"},
      {.args = {"file", "add", "alice", "/e", "--dir", "--from", "x"}, .code = 1, .err = "a folder takes no --from"},
      {.args = {"file", "add", "alice", "bad"}, .code = 4, .err = "not a usable path: bad"},
      {.args = {"file", "add", "nobody", "/x"}, .code = 2, .err = "no such user: nobody"},
      {.args = {"file", "add", "alice", "/docs/a.txt/b"}, .code = 4, .err = "a file stands above /docs/a.txt/b"},
      {.args = {"file", "add", "alice", "/docs/a.txt"}, .code = 3, .err = "already exists: alice:/docs/a.txt"},
      {.args = {"file", "add", "alice", "/m", "--from", "/nonexistent"}, .code = 2, .err = "cannot read /nonexistent"},
      {.args = {"file", "trash", "/docs/a.txt"}, .code = 3,
       .err = "/docs/a.txt names items of several owners; write OWNER:/docs/a.txt"},
      {.args = {"file", "trash", "nopath"}, .code = 4, .err = "not a usable path: nopath"},
      {.args = {"file", "restore", "id:nope"}, .code = 2, .err = "no such item: id:nope"},
      {.args = {"grant", kA, "bob", "none"}, .code = 0},
      {.args = {"grant", kA, "bob", "owner"}, .code = 4, .err = "not a role: owner"},
      {.args = {"grant", kA, "alice", "viewer"}, .code = 4, .err = "alice owns alice:/docs/a.txt"},
      {.args = {"grant", kA, "zed", "viewer"}, .code = 2, .err = "no such user: zed"},
      {.args = {"link", "make", kA, "--visibility", "x"}, .code = 4, .err = "not a visibility: x"},
      {.args = {"link", "make", kA, "--role", "owner"}, .code = 4, .err = "not a role: owner"},
      {.args = {"link", "make", kA, "--bogus"}, .code = 1, .err = "unknown option --bogus"},
      {.args = {"share", "make", kA, "--expires", "@0"}, .code = 4,
       .err = "not a date (\"YYYY-MM-DD HH:MM:SS\" or @EPOCH): @0"},
      {.args = {"share", "make", kA, "--password", ""}, .code = 4,
       .err = "an empty password; leave --password out for a link without one"},
      {.args = {"share", "make", kA, "--role", "x"}, .code = 4, .err = "not a role: x"},
      {.args = {"share", "revoke", "NoSuchLink000000"}, .code = 2, .err = "no such sharing link: NoSuchLink000000"},
      {.args = {"share", "password", "X", "--none", "--password", "x"}, .code = 1,
       .err = "give --password or --none, not both"},
      {.args = {"share", "password", "X"}, .in = "\r\n", .code = 4,
       .err = "an empty password; give --none for a link without one"},
      {.args = {"url", "/"}, .code = 4, .err = "an empty base URL"}};
  for (const Row& row : rows) {
    const CtlRun run = Ctl(row.args, row.in);
    const std::string what = ::testing::PrintToString(row.args);
    EXPECT_EQ(run.code, row.code) << what;
    EXPECT_EQ(run.out, row.out) << what;
    EXPECT_EQ(run.err, (row.err.empty() ? "" : "plythctl: " + row.err + "\n") + (row.code == 1 ? usage : "")) << what;
  }
  store_.reset();
  root_.Remove("/var/packages/BrindlexPlyth/target/var/plyth.db");
  root_.MakeDir("/var/packages/BrindlexPlyth/target/var/plyth.db");
  EXPECT_EQ(Ctl({"file", "list"}).code, 5) << "a store that cannot be opened";
}

// Adding prints what was made; the listings show what the commands changed:
// access, the recycle bin, links.
TEST_F(Plythctl, AddsPrintWhatTheyMadeAndListingsShowTheChanges) {
  ASSERT_EQ(Ctl({"user", "add", "carol", "--password-stdin"}, "pass word\r\n").out, "carol\t1028\n");
  ZANT::UserDB::User user;
  EXPECT_EQ(ZANT::UserDB::Authenticate("carol", "pass word", &user), ZANT::UserDB::Status::kOk);
  const CtlRun add = Ctl({"file", "add", "alice", "/new/local.txt"});
  const Item added = Find("alice", "/new/local.txt");
  EXPECT_EQ(add.out, added.file_id + "\t" + added.permanent_link + "\n");
  EXPECT_EQ(Ctl({"link", "make", kA, "--visibility", "anyone", "--role", "commenter"}).out, a_.permanent_link + "\n");
  EXPECT_EQ(Ctl({"link", "make", "link:" + a_.permanent_link}).out, a_.permanent_link + "\n")
      << "without options it only prints";
  const std::string id = Ctl({"share", "make", "id:" + a_.file_id, "--password", "pw", "--expires", "@1800000000",
                              "--role", "previewer"}).out.substr(0, 16);
  ASSERT_EQ(Ctl({"file", "trash", kA}).code, 0);
  std::vector<Item> items;
  ASSERT_EQ(plyth_services::ListItems(Db(), &items), 0);
  std::string files, urls;
  for (const Item& item : items) {
    const std::string label = item.owner_name + ":" + item.path;
    const bool a = item.file_id == a_.file_id;
    files += label + (item.kind == 1 ? "\tdir\t" : "\tfile\t") + std::to_string(item.size) + (a ? "\tremoved\t" : "\t-\t") +
             item.file_id + "\t" + item.permanent_link + (a ? "\tanyone\tcommenter\n" : "\tmembers\tviewer\n");
    urls += "https://nas.example:5001/d/f/" + item.permanent_link + "\t" + label + "\n";
  }
  EXPECT_EQ(Ctl({"file", "list"}).out, files);
  EXPECT_EQ(Ctl({"url", "https://nas.example:5001/"}).out,
            urls + "https://nas.example:5001/d/s/" + id + "/" + a_.permanent_link + "\t" + kA + " (sharing link)\n");
  EXPECT_EQ(Ctl({"share", "list"}).out,
            id + "\t" + kA + "\t" + a_.permanent_link + "\tpreviewer\t2027-01-15 08:00:00\tpassword\n");
  ASSERT_EQ(Ctl({"file", "restore", kA}).code, 0);
  EXPECT_FALSE(Reload(a_).removed);
  EXPECT_EQ(Ctl({"share", "revoke", id}).code, 0);
  EXPECT_EQ(Ctl({"share", "list"}).out, "");
}

// The new password comes from standard input (a CR dropped) or --password;
// --none removes it.
TEST_F(Plythctl, SharePasswordTakesItFromEitherSourceOrRemovesIt) {
  const std::string id = Share(a_, "old");
  ASSERT_EQ(Ctl({"share", "password", id}, "new pass\r\n").code, 0);
  EXPECT_EQ(ErrorCode(Auth(id, "new pass")), 0);
  ASSERT_EQ(Ctl({"share", "password", id, "--password", "third"}).code, 0);
  EXPECT_EQ(ErrorCode(Auth(id, "new pass")), 1037);
  EXPECT_EQ(ErrorCode(Auth(id, "third")), 0);
  ASSERT_EQ(Ctl({"share", "password", id, "--none"}).code, 0);
  EXPECT_EQ(ErrorCode(Auth(id, "")), 0);
}

// A removed account's items and links answer as unknown, its sessions end,
// and an account made again under the name inherits nothing.
TEST_F(Plythctl, UserRemoveEndsTheAccountsLinksSessionsAndGrants) {
  const Item bobs = Find("bob", "/docs/a.txt");
  ASSERT_EQ(Ctl({"grant", "bob:/docs/a.txt", "alice", "editor"}).code, 0);
  ASSERT_EQ(plyth_services::AddAccessRequest(Db(), bobs, "alice", "may I?"), 0);
  const std::string link = Share(a_);
  zant_host::SessionStore sessions;
  zant_host::Session alice, bob;
  ASSERT_TRUE(sessions.Create("alice", 1026, false, "", gNow, &alice));
  ASSERT_TRUE(sessions.Create("bob", 1027, false, "", gNow, &bob));
  const CtlRun run = Ctl({"user", "remove", "alice"});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out + run.err, "");
  EXPECT_EQ(ErrorCode(FileGet("link:" + a_.permanent_link, "anonymous")), 408);
  EXPECT_EQ(ErrorCode(Auth(link, "")), 1036);
  zant_host::Session loaded;
  EXPECT_FALSE(sessions.Load(alice.id, gNow, &loaded));
  EXPECT_TRUE(sessions.Load(bob.id, gNow, &loaded)) << "another account's session stays";
  EXPECT_EQ(Ctl({"requests", "list"}).out, "") << "her request on bob's item went with her";
  ASSERT_EQ(Ctl({"user", "add", "alice"}).code, 0);
  EXPECT_EQ(ErrorCode(FileGet("id:" + bobs.file_id, "alice")), 1002) << "the old grant went with the account";
  EXPECT_EQ(Ctl({"file", "add", "alice", "/docs/a.txt"}).code, 0) << "the old path is free";
}

TEST_F(ServicesTest, LocalTimeIsLocalTimeOrEpochSeconds) {
  int64_t when = -1;
  for (const char* good : {"2024-02-29 12:00:00", "@1709208000"})
    EXPECT_TRUE(plyth_services::ParseLocalTime(good, &when) && when == 1709208000) << good;
  for (const char* bad : {"2023-02-29 12:00:00", "2024-01-01 24:00:00", "2024-01-01 00:00:60", "2024-01-01T00:00:00",
                          "2024-1-01 00:00:00", "2024-01-01 00:00:00 ", "@", "@12a", ""}) {
    EXPECT_FALSE(plyth_services::ParseLocalTime(bad, &when)) << bad;
  }
}

}  // namespace
}  // namespace services_test
