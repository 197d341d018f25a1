// plythctl run in-process: exit codes, what it prints, and what it changes.
#include <sstream>

#include "plythctl.h"
#include "services_fixture.h"

namespace services_test {
namespace {

struct CtlRun {
  int code;
  std::string out;
  std::string err;
};

CtlRun Ctl(const std::vector<std::string>& args, const std::string& input = "") {
  std::istringstream in(input);
  std::ostringstream out;
  std::ostringstream err;
  int code = plyth_services::RunPlythctl(args, in, out, err);
  return CtlRun{code, out.str(), err.str()};
}

class Plythctl : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    AddUser("alice");
    AddUser("bob");
    alicesFile_ = AddItem("alice", "/docs/a.txt", "alice's");
    AddItem("bob", "/docs/a.txt", "bob's");
  }
  plyth_services::Item alicesFile_;
};

struct ExitRow {
  const char* description;
  std::vector<std::string> args;
  int code;
};
void PrintTo(const ExitRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class ExitCodes : public Plythctl, public ::testing::WithParamInterface<ExitRow> {};

TEST_P(ExitCodes, TellWhatWentWrong) {
  CtlRun run = Ctl(GetParam().args);
  EXPECT_EQ(run.code, GetParam().code) << run.err;
  if (run.code != 0) {
    EXPECT_EQ(run.err.compare(0, 10, "plythctl: "), 0) << run.err;
  }
}

const std::string kA = "alice:/docs/a.txt";

INSTANTIATE_TEST_SUITE_P(
    Commands, ExitCodes,
    ::testing::Values(
        ExitRow{"no_command", {}, 1},
        ExitRow{"unknown_command", {"bogus"}, 1},
        ExitRow{"missing_argument", {"user", "add"}, 1},
        ExitRow{"extra_argument", {"file", "list", "x"}, 1},
        ExitRow{"unknown_option", {"link", "make", kA, "--bogus"}, 1},
        ExitRow{"option_without_value", {"share", "make", kA, "--expires"}, 1},
        ExitRow{"folder_with_content", {"file", "add", "alice", "/x", "--dir", "--from", "/y"}, 1},
        ExitRow{"both_password_options", {"user", "add", "carol", "--password", "p", "--password-stdin"}, 1},
        ExitRow{"bad_uid", {"user", "add", "carol", "--uid", "abc"}, 4},
        ExitRow{"duplicate_user", {"user", "add", "alice"}, 3},
        ExitRow{"uid_in_use", {"user", "add", "carol", "--uid", "1026"}, 3},
        ExitRow{"remove_unknown_user", {"user", "remove", "nobody"}, 2},
        ExitRow{"file_of_unknown_owner", {"file", "add", "nobody", "/x"}, 2},
        ExitRow{"relative_path", {"file", "add", "alice", "relative"}, 4},
        ExitRow{"duplicate_path", {"file", "add", "alice", "/docs/a.txt"}, 3},
        ExitRow{"below_a_file", {"file", "add", "alice", "/docs/a.txt/b"}, 4},
        ExitRow{"unreadable_content", {"file", "add", "alice", "/x", "--from", "/no/such/file"}, 2},
        ExitRow{"trash_unknown", {"file", "trash", "/nope"}, 2},
        ExitRow{"trash_ambiguous", {"file", "trash", "/docs/a.txt"}, 3},
        ExitRow{"trash_by_owner", {"file", "trash", kA}, 0},
        ExitRow{"restore_by_owner", {"file", "restore", kA}, 0},
        ExitRow{"grant_owner_role", {"grant", kA, "bob", "owner"}, 4},
        ExitRow{"grant_to_owner", {"grant", kA, "alice", "viewer"}, 4},
        ExitRow{"grant_to_unknown", {"grant", kA, "zed", "viewer"}, 2},
        ExitRow{"grant", {"grant", kA, "bob", "viewer"}, 0},
        ExitRow{"grant_none", {"grant", kA, "bob", "none"}, 0},
        ExitRow{"bad_visibility", {"link", "make", kA, "--visibility", "public"}, 4},
        ExitRow{"bad_link_role", {"link", "make", kA, "--role", "owner"}, 4},
        ExitRow{"impossible_date", {"share", "make", kA, "--expires", "2031-02-30 10:00:00"}, 4},
        ExitRow{"not_a_date", {"share", "make", kA, "--expires", "tomorrow"}, 4},
        ExitRow{"epoch_zero", {"share", "make", kA, "--expires", "@0"}, 4},
        ExitRow{"empty_password", {"share", "make", kA, "--password", ""}, 4},
        ExitRow{"share_of_unknown", {"share", "make", "alice:/nope"}, 2},
        ExitRow{"revoke_unknown", {"share", "revoke", "nope"}, 2},
        ExitRow{"empty_base", {"url", "/"}, 4}),
    [](const ::testing::TestParamInfo<ExitRow>& info) { return std::string(info.param.description); });

TEST_F(Plythctl, StoreThatCannotBeOpenedIsExitFive) {
  store_.reset();
  root_.Remove("/var/packages/BrindlexPlyth/target/var/plyth.db");
  root_.MakeDir("/var/packages/BrindlexPlyth/target/var/plyth.db");
  EXPECT_EQ(Ctl({"file", "list"}).code, 5);
}

TEST_F(Plythctl, LinkMakeSetsAccessAndPrintsThePermanentLink) {
  CtlRun run = Ctl({"link", "make", kA, "--visibility", "anyone", "--role", "commenter"});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, alicesFile_.permanent_link + "\n");
  Json::Value result = FileGet("link:" + alicesFile_.permanent_link, "anonymous");
  ASSERT_EQ(ErrorCode(result), 0);
  EXPECT_TRUE(result["data"]["capabilities"]["can_comment"].asBool());
  // Without options it only prints.
  EXPECT_EQ(Ctl({"link", "make", "link:" + alicesFile_.permanent_link}).out, run.out);
  EXPECT_EQ(Reload(alicesFile_).visibility, plyth_services::Visibility::kAnyone);
}

TEST_F(Plythctl, ShareMakeCreatesAWorkingPasswordLink) {
  CtlRun run = Ctl({"share", "make", "id:" + alicesFile_.file_id, "--password", "pw", "--expires", "@1800000000",
                    "--role", "previewer"});
  ASSERT_EQ(run.code, 0) << run.err;
  const std::string id = run.out.substr(0, run.out.size() - 1);
  EXPECT_EQ(id.size(), 16u);
  EXPECT_EQ(ErrorCode(Auth(id, "")), 1037);
  std::string token = TokenFor(id, "pw");
  Json::Value result = FileGet("link:" + alicesFile_.permanent_link, "anonymous", token);
  EXPECT_FALSE(result["data"]["capabilities"]["can_read"].asBool());
  EXPECT_TRUE(result["data"]["capabilities"]["can_preview"].asBool());

  setenv("TZ", "UTC", 1);
  tzset();
  CtlRun list = Ctl({"share", "list"});
  EXPECT_EQ(list.out, id + "\t" + kA + "\t" + alicesFile_.permanent_link +
                          "\tpreviewer\t2027-01-15 08:00:00\tpassword\n");
  EXPECT_EQ(Ctl({"share", "revoke", id}).code, 0);
  EXPECT_EQ(Ctl({"share", "list"}).out, "");
}

TEST_F(Plythctl, UrlPrintsEveryLink) {
  std::string share = Share(alicesFile_);
  CtlRun run = Ctl({"url", "https://nas.example:5001/"});
  ASSERT_EQ(run.code, 0);
  std::vector<plyth_services::Item> items;
  ASSERT_EQ(plyth_services::ListItems(Db(), &items), 0);
  std::string expected;
  for (const plyth_services::Item& item : items) {
    expected += "https://nas.example:5001/d/f/" + item.permanent_link + "\t" + item.owner_name + ":" +
                item.path + "\n";
  }
  expected += "https://nas.example:5001/d/s/" + share + "/" + alicesFile_.permanent_link + "\t" + kA +
              " (sharing link)\n";
  EXPECT_EQ(run.out, expected);
}

TEST_F(Plythctl, UsersAddedWithAPasswordCanSignIn) {
  CtlRun run = Ctl({"user", "add", "carol", "--password-stdin", "--admin"}, "pass word\n");
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, "carol\t1028\n");
  ZANT::UserDB::User user;
  EXPECT_EQ(ZANT::UserDB::Authenticate("carol", "pass word", &user), ZANT::UserDB::Status::kOk);
  EXPECT_TRUE(user.admin);
  EXPECT_EQ(Ctl({"user", "list"}).out, "alice\t1026\tuser\nbob\t1027\tuser\ncarol\t1028\tadmin\n");
  EXPECT_EQ(Ctl({"user", "remove", "carol"}).code, 0);
  EXPECT_EQ(Ctl({"user", "list"}).out, "alice\t1026\tuser\nbob\t1027\tuser\n");
}

TEST_F(Plythctl, FileAddStoresTheContentAndPrintsIds) {
  root_.WriteFile("/tmp/local.txt", "local bytes");
  CtlRun run = Ctl({"file", "add", "alice", "/new/local.txt", "--from", root_.Host("/tmp/local.txt")});
  ASSERT_EQ(run.code, 0) << run.err;
  plyth_services::Item item;
  ASSERT_EQ(plyth_services::FindItemByPath(Db(), "alice", "/new/local.txt", &item), 0);
  EXPECT_EQ(run.out, item.file_id + "\t" + item.permanent_link + "\n");
  EXPECT_EQ(item.size, 11u);
  EXPECT_EQ(item.hash, plyth_services::Sha256Hex("local bytes"));
  EXPECT_EQ(root_.ReadFile("/var/packages/BrindlexPlyth/target/var/data/" + item.hash.substr(0, 2) + "/" +
                           item.hash),
            "local bytes");
}

struct ExpiryRow {
  const char* text;
  bool ok;
  int64_t when;
};
void PrintTo(const ExpiryRow& row, std::ostream* os) { *os << "\"" << row.text << "\""; }

class Expiries : public ::testing::TestWithParam<ExpiryRow> {};

TEST_P(Expiries, AreParsedInLocalTime) {
  setenv("TZ", "UTC", 1);
  tzset();
  int64_t when = -1;
  EXPECT_EQ(plyth_services::ParseExpiry(GetParam().text, &when), GetParam().ok) << GetParam().text;
  if (GetParam().ok) {
    EXPECT_EQ(when, GetParam().when);
  }
}

INSTANTIATE_TEST_SUITE_P(Texts, Expiries,
                         ::testing::Values(ExpiryRow{"2024-02-29 12:00:00", true, 1709208000},
                                           ExpiryRow{"@1709208000", true, 1709208000},
                                           ExpiryRow{"2023-02-29 12:00:00", false, 0},
                                           ExpiryRow{"2024-01-01 24:00:00", false, 0},
                                           ExpiryRow{"2024-01-01 00:00:60", false, 0},
                                           ExpiryRow{"2024-01-01T00:00:00", false, 0},
                                           ExpiryRow{"2024-1-01 00:00:00", false, 0},
                                           ExpiryRow{"2024-01-01 00:00:00 ", false, 0},
                                           ExpiryRow{"@", false, 0},
                                           ExpiryRow{"@12a", false, 0},
                                           ExpiryRow{"", false, 0}));

}  // namespace
}  // namespace services_test
