// The user database: base-library lookups, password hashes, and the
// changes made by the administration tools.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include "harness.h"
#include "zant/userdb.h"
#include "zant/vlibc.h"

namespace {

using ZANT::UserDB::Status;
using ZANT::UserDB::User;
namespace db = ZANT::UserDB;

const char kUsers[] = "/usr/zant/etc/users";

// "secret" with 100000 iterations and salt 00112233...eeff.
const std::string kSecretHash =
    "pbkdf2-sha256$100000$00112233445566778899aabbccddeeff$"
    "f92d0c0b7758f48a976587412c2bf21b7f1dae21875133fda2983fa4cbf1ea9d";

const std::string kDatabase =
    "# name:uid:gid:full name:home:flags:password\n"
    "admin:1024:101:System Admin:/homes/admin:admin:" + kSecretHash + "\n\n"
    "alice:1026:100:Alice Liddell:/homes/alice::\n"
    "bob:1027:100:Bob:/home/bob:disabled,admin:" + kSecretHash + "\n"
    "carol:1028:100::/home/carol:future:\n"
    "#dave:1029:100:Dave:/home/dave::\n"
    "short:1030:100:Short:/home/short:\n"
    "alice:1999:100:Second Alice:/x::\n";

User NewUser(const std::string& name, uid_t uid = 0, const std::string& fullName = "") {
  return User{name, uid, 100, fullName, "/h", false, false, ""};
}

class UserDatabase : public ::testing::Test {
 protected:
  void SetUp() override { root_.WriteFile(kUsers, kDatabase); }
  plyth_test::ApplianceRoot root_;
};

TEST_F(UserDatabase, LookupFindsRecordOrSetsError) {
  // expected: "0 name:uid:full name:home:<admin><disabled>", or "-1, error <code>".
  const std::string noSuchUser = "-1, error " + std::to_string(VLIBC_ERR_NO_SUCH_USER);
  const struct Row { const char* name; std::string expected; } rows[] = {
      {"admin", "0 admin:1024:System Admin:/homes/admin:10"},
      {"alice", "0 alice:1026:Alice Liddell:/homes/alice:00"},  // the first line of a name
      {"bob", "0 bob:1027:Bob:/home/bob:11"},
      {"carol", "0 carol:1028::/home/carol:00"},  // unknown flags ignored
      {"mallory", noSuchUser},
      {"short", noSuchUser},  // too few fields
  };
  for (const Row& row : rows) {
    VLIBCErrSet(VLIBC_ERR_NONE, "", 0);
    PZANTUSER u = nullptr;
    std::string got = std::to_string(ZANTUserGet(row.name, &u));
    if (u == nullptr) {
      got += ", error " + std::to_string(VLIBCErrGet());
    } else {
      got += std::string(" ") + u->szName + ":" + std::to_string(u->uid) + ":" + u->szFullName + ":" + u->szHome +
             ":" + std::to_string(u->isAdmin) + std::to_string(u->isDisabled);
    }
    EXPECT_EQ(row.expected, got);
    ZANTUserFree(u);
  }
}

TEST_F(UserDatabase, UnreadableFileIsFileOpen) {
  PZANTUSER user = nullptr;
  root_.Remove(kUsers);
  root_.MakeDir(kUsers);
  EXPECT_EQ(-1, ZANTUserGet("alice", &user));
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
  EXPECT_STREQ("users.cc", VLIBCErrorGetFile());
  User added = NewUser("x");
  EXPECT_EQ(Status::kFileOpen, db::AddUser(&added, ""));
}

TEST_F(UserDatabase, AddPicksNextUidOrRefuses) {
  User user = NewUser("erin", 0, "Erin");
  ASSERT_EQ(Status::kOk, db::AddUser(&user, ""));
  EXPECT_EQ(2000u, user.uid);  // one past the highest uid
  const std::string added = kDatabase + "erin:2000:100:Erin:/h::\n";
  EXPECT_EQ(added, root_.ReadFile(kUsers));
  User taken = NewUser("bob"), uid = NewUser("frank", 1027), bad = NewUser("x", 0, "F\nN");
  EXPECT_EQ(Status::kUserExists, db::AddUser(&taken, "pw"));
  EXPECT_EQ(Status::kUidInUse, db::AddUser(&uid, ""));
  EXPECT_EQ(Status::kBadParameter, db::AddUser(&bad, ""));
  EXPECT_EQ(added, root_.ReadFile(kUsers));
}

TEST_F(UserDatabase, RemoveDeletesFirstLineOfName) {
  ASSERT_EQ(Status::kOk, db::RemoveUser("alice"));
  EXPECT_EQ(Status::kNoSuchUser, db::RemoveUser("dave"));
  std::string expected = kDatabase;
  expected.erase(expected.find("alice:1026"), expected.find("bob:") - expected.find("alice:1026"));
  EXPECT_EQ(expected, root_.ReadFile(kUsers));
}

TEST(PasswordHash, KnownAnswerFreshSaltAndMalformed) {
  // PBKDF2-HMAC-SHA256("passwd", "salt", 1 iteration).
  const std::string known = "pbkdf2-sha256$1$73616c74$55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc";
  EXPECT_TRUE(db::CheckPassword("passwd", known));
  EXPECT_FALSE(db::CheckPassword("passwe", known));
  std::string fresh = db::HashPassword("pa:ss$word");
  const std::regex shape("pbkdf2-sha256\\$100000\\$[0-9a-f]{32}\\$[0-9a-f]{64}");
  EXPECT_TRUE(std::regex_match(fresh, shape)) << fresh;
  EXPECT_NE(fresh, db::HashPassword("pa:ss$word"));
  EXPECT_TRUE(db::CheckPassword("pa:ss$word", fresh));
  const std::string h = "$55ac046e56e3089fec1691c22544b605";  // a prefix of the right hash
  EXPECT_TRUE(db::CheckPassword("passwd", "pbkdf2-sha256$1$73616c74" + h));
  for (std::string bad : {"pbkdf2-sha1$1$73616c74" + h, "pbkdf2-sha256$0$73616c74" + h,
                          "pbkdf2-sha256$1$7361zc74" + h, "pbkdf2-sha256$1$73616c7" + h,
                          std::string("pbkdf2-sha256$1$73616c74$"), "pbkdf2-sha256$1$73616c74" + h + "$"}) {
    EXPECT_FALSE(db::CheckPassword("passwd", bad)) << bad;
  }
}

TEST_F(UserDatabase, SignInAuthenticates) {
  const struct Row { const char* name; const char* password; Status expected; } rows[] = {
      {"admin", "secret", Status::kOk},
      {"admin", "Secret", Status::kWrongPassword},
      {"alice", "", Status::kWrongPassword},  // no password set
      {"bob", "secret", Status::kDisabled},
      {"bob", "x", Status::kWrongPassword},
      {"mallory", "secret", Status::kNoSuchUser},
  };
  for (const Row& row : rows) {
    User user;
    EXPECT_EQ(row.expected, db::Authenticate(row.name, row.password, &user)) << row.name << " " << row.password;
    EXPECT_EQ(row.expected == Status::kOk ? 1024u : 0u, user.uid);
  }
  ASSERT_EQ(Status::kOk, db::SetPassword("alice", "n3w"));
  User user;
  EXPECT_EQ(Status::kOk, db::Authenticate("alice", "n3w", &user));
  ASSERT_EQ(Status::kOk, db::SetPassword("alice", ""));
  EXPECT_EQ(Status::kWrongPassword, db::Authenticate("alice", "n3w", &user));
}

TEST(UserDatabaseConcurrency, ForkedWritersLoseNothing) {
  plyth_test::ApplianceRoot root;
  const int kWriters = 4, kEach = 8;
  for (int w = 0; w < kWriters; ++w) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int failures = 0;
      for (int i = 0; i < kEach; ++i) {
        User user = NewUser("w" + std::to_string(w) + "u" + std::to_string(i));
        failures += db::AddUser(&user, "") != Status::kOk;
      }
      _exit(failures);
    }
  }
  for (int w = 0; w < kWriters; ++w) {
    int status = 0;
    ASSERT_GT(wait(&status), 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  std::vector<User> users;
  ASSERT_EQ(Status::kOk, db::ListUsers(&users));
  std::set<uid_t> uids;
  for (const User& u : users) uids.insert(u.uid);
  EXPECT_EQ(static_cast<size_t>(kWriters * kEach), users.size());
  EXPECT_EQ(users.size(), uids.size());
  EXPECT_EQ(1026u + kWriters * kEach - 1, *uids.rbegin());  // first automatic uid 1026
  struct stat status;
  ASSERT_EQ(0, stat(root.Host(kUsers).c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 07777);
}

}  // namespace
