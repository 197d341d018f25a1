// The user database: base-library lookups, password hashes, and the
// changes made by the administration tools.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
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

const char kUsers[] = "/usr/zant/etc/users";

// "secret" with 100000 iterations and salt 00112233...eeff.
const char kSecretHash[] =
    "pbkdf2-sha256$100000$00112233445566778899aabbccddeeff$"
    "f92d0c0b7758f48a976587412c2bf21b7f1dae21875133fda2983fa4cbf1ea9d";

std::string Database() {
  return std::string(
             "# name:uid:gid:full name:home:flags:password\n"
             "admin:1024:101:System Admin:/var/services/homes/admin:admin:") +
         kSecretHash +
         "\n"
         "\n"
         "alice:1026:100:Alice Liddell:/var/services/homes/alice::\n"
         "bob:1027:100:Bob:/home/bob:disabled,admin:\n"
         "carol:1028:100::/home/carol:disabled,future:\n"
         "#dave:1029:100:Dave:/home/dave::\n"
         "short:1030:100:Short:/home/short:\n"
         "baduid:12x:100:Bad:/home/bad::\n"
         "alice:1999:100:Second Alice:/x::\n";
}

User NewUser(const std::string& name, uid_t uid = 0, const std::string& fullName = "",
             const std::string& home = "/", bool admin = false) {
  User user;
  user.name = name;
  user.uid = uid;
  user.gid = 100;
  user.fullName = fullName;
  user.home = home;
  user.admin = admin;
  return user;
}

class UserDatabase : public ::testing::Test {
 protected:
  void SetUp() override { root_.WriteFile(kUsers, Database()); }
  plyth_test::ApplianceRoot root_;
};

struct LookupCase {
  const char* name;
  uid_t uid;
  gid_t gid;
  const char* fullName;
  const char* home;
  int isAdmin;
  int isDisabled;
};
void PrintTo(const LookupCase& c, std::ostream* os) { *os << c.name; }

class LookupTable : public UserDatabase, public ::testing::WithParamInterface<LookupCase> {};

TEST_P(LookupTable, FindsRecord) {
  const LookupCase& c = GetParam();
  PZANTUSER user = nullptr;
  ASSERT_EQ(0, ZANTUserGet(c.name, &user));
  ASSERT_NE(nullptr, user);
  EXPECT_STREQ(c.name, user->szName);
  EXPECT_EQ(c.uid, user->uid);
  EXPECT_EQ(c.gid, user->gid);
  EXPECT_STREQ(c.fullName, user->szFullName);
  EXPECT_STREQ(c.home, user->szHome);
  EXPECT_EQ(c.isAdmin, user->isAdmin);
  EXPECT_EQ(c.isDisabled, user->isDisabled);
  ZANTUserFree(user);
}

INSTANTIATE_TEST_SUITE_P(
    Users, LookupTable,
    ::testing::Values(
        LookupCase{"admin", 1024, 101, "System Admin", "/var/services/homes/admin", 1, 0},
        // The first line of a name counts.
        LookupCase{"alice", 1026, 100, "Alice Liddell", "/var/services/homes/alice", 0, 0},
        LookupCase{"bob", 1027, 100, "Bob", "/home/bob", 1, 1},
        // Unknown flags are ignored; the full name may be empty.
        LookupCase{"carol", 1028, 100, "", "/home/carol", 0, 1}));

struct FailureCase {
  const char* description;
  const char* name;
  int expectedError;
};
void PrintTo(const FailureCase& c, std::ostream* os) { *os << c.description; }

class LookupFailureTable : public UserDatabase,
                           public ::testing::WithParamInterface<FailureCase> {};

TEST_P(LookupFailureTable, SetsError) {
  const FailureCase& c = GetParam();
  VLIBCErrSet(VLIBC_ERR_NONE, "", 0);
  PZANTUSER user = nullptr;
  EXPECT_EQ(-1, ZANTUserGet(c.name, &user));
  EXPECT_EQ(nullptr, user);
  EXPECT_EQ(c.expectedError, VLIBCErrGet());
  EXPECT_STREQ("users.cc", VLIBCErrorGetFile());
  EXPECT_GT(VLIBCErrorGetLine(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Names, LookupFailureTable,
    ::testing::Values(FailureCase{"unknown", "mallory", VLIBC_ERR_NO_SUCH_USER},
                      FailureCase{"case differs", "Alice", VLIBC_ERR_NO_SUCH_USER},
                      FailureCase{"commented out", "#dave", VLIBC_ERR_NO_SUCH_USER},
                      FailureCase{"commented out, bare name", "dave", VLIBC_ERR_NO_SUCH_USER},
                      FailureCase{"too few fields", "short", VLIBC_ERR_NO_SUCH_USER},
                      FailureCase{"uid not a number", "baduid", VLIBC_ERR_NO_SUCH_USER},
                      FailureCase{"empty name", "", VLIBC_ERR_BAD_PARAMETER},
                      FailureCase{"null name", nullptr, VLIBC_ERR_BAD_PARAMETER}));

TEST_F(UserDatabase, NullRecordPointerIsBadParameter) {
  EXPECT_EQ(-1, ZANTUserGet("alice", nullptr));
  EXPECT_EQ(VLIBC_ERR_BAD_PARAMETER, VLIBCErrGet());
}

TEST_F(UserDatabase, UnreadableFileIsFileOpen) {
  PZANTUSER user = nullptr;
  root_.Remove(kUsers);
  EXPECT_EQ(-1, ZANTUserGet("alice", &user));
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
  root_.MakeDir(kUsers);
  EXPECT_EQ(-1, ZANTUserGet("alice", &user));
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
  User added = NewUser("x");
  EXPECT_EQ(Status::kFileOpen, ZANT::UserDB::AddUser(&added, ""));
}

TEST_F(UserDatabase, ListsWellFormedUsersInOrder) {
  std::vector<User> users;
  ASSERT_EQ(Status::kOk, ZANT::UserDB::ListUsers(&users));
  std::vector<std::string> names;
  for (const User& u : users) names.push_back(u.name);
  EXPECT_EQ((std::vector<std::string>{"admin", "alice", "bob", "carol", "alice"}), names);
  EXPECT_EQ(kSecretHash, users[0].password);
}

TEST(PasswordHash, KnownAnswer) {
  // PBKDF2-HMAC-SHA256("passwd", "salt", 1 iteration), first 32 bytes.
  const char stored[] =
      "pbkdf2-sha256$1$73616c74$55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc";
  EXPECT_TRUE(ZANT::UserDB::CheckPassword("passwd", stored));
  EXPECT_FALSE(ZANT::UserDB::CheckPassword("passwe", stored));
  EXPECT_TRUE(ZANT::UserDB::CheckPassword("secret", kSecretHash));
}

TEST(PasswordHash, FreshHashesAreSaltedAndCheck) {
  std::string first = ZANT::UserDB::HashPassword("pa:ss$word");
  std::string second = ZANT::UserDB::HashPassword("pa:ss$word", 5);
  const std::regex shape("pbkdf2-sha256\\$100000\\$[0-9a-f]{32}\\$[0-9a-f]{64}");
  EXPECT_TRUE(std::regex_match(first, shape)) << first;
  EXPECT_TRUE(std::regex_match(second, shape)) << second;  // iterations raised
  EXPECT_NE(first, second);
  EXPECT_TRUE(ZANT::UserDB::CheckPassword("pa:ss$word", first));
  EXPECT_FALSE(ZANT::UserDB::CheckPassword("pa:ss$wore", first));
  EXPECT_FALSE(ZANT::UserDB::CheckPassword("", first));
}

class MalformedHashTable : public ::testing::TestWithParam<const char*> {};

TEST_P(MalformedHashTable, NeverMatches) {
  EXPECT_FALSE(ZANT::UserDB::CheckPassword("passwd", GetParam()));
}

INSTANTIATE_TEST_SUITE_P(
    Hashes, MalformedHashTable,
    ::testing::Values("", "passwd", "pbkdf2-sha256$1$73616c74",
                      "pbkdf2-sha1$1$73616c74$55ac046e56e3089fec1691c22544b605",
                      "pbkdf2-sha256$0$73616c74$55ac046e56e3089fec1691c22544b605",
                      "pbkdf2-sha256$-1$73616c74$55ac046e56e3089fec1691c22544b605",
                      "pbkdf2-sha256$99999999$73616c74$55ac046e56e3089fec1691c22544b605",
                      "pbkdf2-sha256$1$7361zc74$55ac046e56e3089fec1691c22544b605",
                      "pbkdf2-sha256$1$73616c7$55ac046e56e3089fec1691c22544b605",
                      "pbkdf2-sha256$1$$55ac046e56e3089fec1691c22544b605",
                      "pbkdf2-sha256$1$73616c74$",
                      "pbkdf2-sha256$1$73616c74$55ac046e56e3089fec1691c22544b605$"));

TEST_F(UserDatabase, AddPicksNextUidAndKeepsOtherLines) {
  User user = NewUser("erin", 0, "Erin", "/home/erin");
  ASSERT_EQ(Status::kOk, ZANT::UserDB::AddUser(&user, ""));
  EXPECT_EQ(2000u, user.uid);  // one past the highest uid (1999)
  EXPECT_EQ(Database() + "erin:2000:100:Erin:/home/erin::\n", root_.ReadFile(kUsers));
}

TEST_F(UserDatabase, AddRefusesTakenNameOrUidAndBadFields) {
  User taken = NewUser("bob");
  EXPECT_EQ(Status::kUserExists, ZANT::UserDB::AddUser(&taken, "pw"));
  User uid = NewUser("frank", 1027);
  EXPECT_EQ(Status::kUidInUse, ZANT::UserDB::AddUser(&uid, ""));
  for (User bad : {NewUser(""), NewUser("a:b"), NewUser("#x"), NewUser("x", 0, "Full\nName"),
                   NewUser("x", 0, "F", "/h:x")}) {
    EXPECT_EQ(Status::kBadParameter, ZANT::UserDB::AddUser(&bad, "")) << bad.name;
  }
  EXPECT_EQ(Database(), root_.ReadFile(kUsers));
}

TEST(UserDatabaseFresh, FirstAutomaticUidAndPrivateFile) {
  plyth_test::ApplianceRoot root;
  User user = NewUser("first", 0, "First", "/home/first", true);
  ASSERT_EQ(Status::kOk, ZANT::UserDB::AddUser(&user, ""));
  EXPECT_EQ(1026u, user.uid);
  EXPECT_EQ("first:1026:100:First:/home/first:admin:\n", root.ReadFile(kUsers));
  struct stat status;
  ASSERT_EQ(0, stat(root.Host(kUsers).c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 07777);
  User explicitUid = NewUser("second", 500);
  ASSERT_EQ(Status::kOk, ZANT::UserDB::AddUser(&explicitUid, ""));
  EXPECT_EQ(500u, explicitUid.uid);
}

TEST_F(UserDatabase, RemoveDeletesFirstLineOfName) {
  ASSERT_EQ(Status::kOk, ZANT::UserDB::RemoveUser("alice"));
  User found;
  ASSERT_EQ(Status::kOk, ZANT::UserDB::FindUser("alice", &found));
  EXPECT_EQ(1999u, found.uid);
  EXPECT_EQ(Status::kNoSuchUser, ZANT::UserDB::RemoveUser("mallory"));
  EXPECT_EQ(Status::kNoSuchUser, ZANT::UserDB::RemoveUser("dave"));
  EXPECT_NE(std::string::npos, root_.ReadFile(kUsers).find("#dave:1029"));
}

TEST_F(UserDatabase, SetFlagsRewritesOneLine) {
  ASSERT_EQ(Status::kOk, ZANT::UserDB::SetFlags("bob", false, false));
  ASSERT_EQ(Status::kOk, ZANT::UserDB::SetFlags("alice", true, true));
  std::string text = root_.ReadFile(kUsers);
  EXPECT_NE(std::string::npos, text.find("\nbob:1027:100:Bob:/home/bob::\n"));
  EXPECT_NE(std::string::npos,
            text.find("\nalice:1026:100:Alice Liddell:/var/services/homes/alice:admin,disabled:\n"));
  EXPECT_EQ(Status::kNoSuchUser, ZANT::UserDB::SetFlags("mallory", true, false));
}

struct SignInCase {
  const char* description;
  const char* name;
  const char* password;
  Status expected;
};
void PrintTo(const SignInCase& c, std::ostream* os) { *os << c.description; }

class SignInTable : public UserDatabase, public ::testing::WithParamInterface<SignInCase> {};

TEST_P(SignInTable, Authenticates) {
  const SignInCase& c = GetParam();
  ASSERT_EQ(Status::kOk, ZANT::UserDB::SetPassword("bob", "secret"));
  User user;
  EXPECT_EQ(c.expected, ZANT::UserDB::Authenticate(c.name, c.password, &user));
  if (c.expected == Status::kOk) {
    EXPECT_EQ(c.name, user.name);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Attempts, SignInTable,
    ::testing::Values(SignInCase{"right password", "admin", "secret", Status::kOk},
                      SignInCase{"wrong password", "admin", "Secret", Status::kWrongPassword},
                      SignInCase{"empty password", "admin", "", Status::kWrongPassword},
                      SignInCase{"no password set", "alice", "", Status::kWrongPassword},
                      SignInCase{"disabled account", "bob", "secret", Status::kDisabled},
                      SignInCase{"disabled, wrong password", "bob", "x", Status::kWrongPassword},
                      SignInCase{"unknown user", "mallory", "secret", Status::kNoSuchUser},
                      SignInCase{"empty name", "", "secret", Status::kNoSuchUser}));

TEST_F(UserDatabase, SetPasswordThenClearIt) {
  ASSERT_EQ(Status::kOk, ZANT::UserDB::SetPassword("alice", "n3w"));
  User user;
  EXPECT_EQ(Status::kOk, ZANT::UserDB::Authenticate("alice", "n3w", &user));
  EXPECT_EQ(1026u, user.uid);
  ASSERT_EQ(Status::kOk, ZANT::UserDB::SetPassword("alice", ""));
  EXPECT_EQ(Status::kWrongPassword, ZANT::UserDB::Authenticate("alice", "n3w", &user));
  EXPECT_EQ(Status::kNoSuchUser, ZANT::UserDB::SetPassword("mallory", "x"));
}

TEST(UserDatabaseConcurrency, ForkedWritersLoseNothing) {
  plyth_test::ApplianceRoot root;
  root.WriteFile(kUsers, "# shared\n");
  const int kWriters = 4, kEach = 8;
  std::vector<pid_t> children;
  for (int w = 0; w < kWriters; ++w) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int failures = 0;
      for (int i = 0; i < kEach; ++i) {
        User user = NewUser("w" + std::to_string(w) + "u" + std::to_string(i));
        if (ZANT::UserDB::AddUser(&user, "") != Status::kOk) ++failures;
      }
      _exit(failures);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  std::vector<User> users;
  ASSERT_EQ(Status::kOk, ZANT::UserDB::ListUsers(&users));
  ASSERT_EQ(static_cast<size_t>(kWriters * kEach), users.size());
  std::set<uid_t> uids;
  for (const User& u : users) uids.insert(u.uid);
  EXPECT_EQ(static_cast<size_t>(kWriters * kEach), uids.size());
  EXPECT_EQ(1026u, *uids.begin());
  EXPECT_EQ(1026u + kWriters * kEach - 1, *uids.rbegin());
  EXPECT_EQ(0u, root.ReadFile(kUsers).find("# shared\n"));
}

}  // namespace
