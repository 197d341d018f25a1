// Who sees a linked item, and with which capabilities: roles held by name
// (owner, members) or lent by a sharing token, and the permanent link's
// visibility against anonymous, signed-in and member callers.
#include "services_fixture.h"

namespace services_test {
namespace {

using plyth_services::Item;
using plyth_services::Role;
using plyth_services::Visibility;

// The nine capabilities in record order, as "1"/"0".
std::string CapsBits(const Json::Value& caps) {
  std::string bits;
  for (const char* key : {"can_preview", "can_read", "can_write", "can_delete", "can_rename",
                          "can_comment", "can_share", "can_encrypt", "can_organize"}) {
    EXPECT_TRUE(caps[key].isBool()) << key;
    bits += caps[key].asBool() ? '1' : '0';
  }
  return bits;
}

struct RoleRow {
  const char* description;
  const char* role;  // "owner", or the granted / shared role
  bool viaToken;     // lent by a sharing link instead of a member grant
  const char* caps;  // preview read write delete rename comment share encrypt organize
};
void PrintTo(const RoleRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class RoleCapabilities : public ServicesTest, public ::testing::WithParamInterface<RoleRow> {};

TEST_P(RoleCapabilities, RecordCarriesTheRolesCapabilities) {
  const RoleRow& row = GetParam();
  Item item = AddItem("alice", "/docs/plan.txt", "plan");
  AddUser("bob");
  Json::Value result;
  if (std::string(row.role) == "owner") {
    result = FileGet("link:" + item.permanent_link, "alice");
  } else {
    Role role;
    ASSERT_TRUE(plyth_services::ParseGrantableRole(row.role, &role));
    if (row.viaToken) {
      std::string token = TokenFor(Share(item, "", 0, role));
      result = FileGet("link:" + item.permanent_link, "anonymous", token);
    } else {
      ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", role), 0);
      result = FileGet("link:" + item.permanent_link, "bob");
    }
  }
  ASSERT_EQ(ErrorCode(result), 0) << result.toStyledString();
  EXPECT_EQ(CapsBits(result["data"]["capabilities"]), row.caps);
}

INSTANTIATE_TEST_SUITE_P(
    Roles, RoleCapabilities,
    ::testing::Values(RoleRow{"member previewer", "previewer", false, "100000000"},
                      RoleRow{"member viewer", "viewer", false, "110000000"},
                      RoleRow{"member commenter", "commenter", false, "110001000"},
                      RoleRow{"member editor", "editor", false, "111111001"},
                      RoleRow{"owner", "owner", false, "111111111"},
                      RoleRow{"token previewer", "previewer", true, "100000000"},
                      RoleRow{"token viewer", "viewer", true, "110000000"},
                      RoleRow{"token commenter", "commenter", true, "110001000"},
                      RoleRow{"token editor", "editor", true, "111111001"}),
    [](const ::testing::TestParamInfo<RoleRow>& info) {
      std::string name = info.param.description;
      for (char& c : name) c = c == ' ' ? '_' : c;
      return name;
    });

struct VisibilityRow {
  const char* description;
  Visibility visibility;
  const char* caller;     // alice owns, bob is a member previewer, carol is signed in
  int code;
  const char* caps;       // when code is 0
  bool seesDisplayPath;
};
void PrintTo(const VisibilityRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class LinkVisibility : public ServicesTest, public ::testing::WithParamInterface<VisibilityRow> {};

TEST_P(LinkVisibility, DecidesWhoGetsTheRecord) {
  const VisibilityRow& row = GetParam();
  Item item = AddItem("alice", "/docs/plan.txt", "plan");
  AddUser("bob");
  AddUser("carol");
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", Role::kPreviewer), 0);
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, row.visibility, Role::kViewer), 0);

  Json::Value result = FileGet("link:" + item.permanent_link, row.caller);
  ASSERT_EQ(ErrorCode(result), row.code) << result.toStyledString();
  if (row.code != 0) return;
  EXPECT_EQ(CapsBits(result["data"]["capabilities"]), row.caps);
  EXPECT_EQ(result["data"]["display_path"].asString(), row.seesDisplayPath ? "/docs/plan.txt" : "");
}

INSTANTIATE_TEST_SUITE_P(
    Visibilities, LinkVisibility,
    ::testing::Values(
        VisibilityRow{"members_anonymous", Visibility::kMembers, "anonymous", 1002, "", false},
        VisibilityRow{"members_nobody", Visibility::kMembers, "", 1002, "", false},
        VisibilityRow{"members_signed_in", Visibility::kMembers, "carol", 1002, "", false},
        VisibilityRow{"members_member", Visibility::kMembers, "bob", 0, "100000000", true},
        VisibilityRow{"members_owner", Visibility::kMembers, "alice", 0, "111111111", true},
        VisibilityRow{"signed_in_anonymous", Visibility::kSignedIn, "anonymous", 1002, "", false},
        VisibilityRow{"signed_in_nobody", Visibility::kSignedIn, "", 1002, "", false},
        VisibilityRow{"signed_in_signed_in", Visibility::kSignedIn, "carol", 0, "110000000", false},
        VisibilityRow{"signed_in_member_gets_the_higher_role", Visibility::kSignedIn, "bob", 0,
                      "110000000", true},
        VisibilityRow{"signed_in_owner", Visibility::kSignedIn, "alice", 0, "111111111", true},
        VisibilityRow{"anyone_anonymous", Visibility::kAnyone, "anonymous", 0, "110000000", false},
        VisibilityRow{"anyone_nobody", Visibility::kAnyone, "", 0, "110000000", false},
        VisibilityRow{"anyone_signed_in", Visibility::kAnyone, "carol", 0, "110000000", false},
        VisibilityRow{"anyone_owner", Visibility::kAnyone, "alice", 0, "111111111", true}),
    [](const ::testing::TestParamInfo<VisibilityRow>& info) { return std::string(info.param.description); });

TEST_F(ServicesTest, FileIdPathsAreForTheOwnerAndMembersOnly) {
  Item item = AddItem("alice", "/docs/plan.txt", "plan");
  AddUser("bob");
  AddUser("carol");
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", Role::kViewer), 0);
  // The link's visibility lends nothing to a caller who names the file id.
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, Visibility::kAnyone, Role::kEditor), 0);
  EXPECT_EQ(ErrorCode(FileGet("id:" + item.file_id, "alice")), 0);
  EXPECT_EQ(ErrorCode(FileGet("id:" + item.file_id, "bob")), 0);
  EXPECT_EQ(ErrorCode(FileGet("id:" + item.file_id, "carol")), 1002);
  EXPECT_EQ(ErrorCode(FileGet("id:" + item.file_id, "anonymous")), 1002);
}

TEST_F(ServicesTest, GrantsOnAFolderReachEverythingBelowIt) {
  Item file = AddItem("alice", "/team/q1/report.txt", "r");
  AddUser("bob");
  Item folder;
  ASSERT_EQ(plyth_services::FindItemByPath(Db(), "alice", "/team", &folder), 0);
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), folder, "bob", Role::kCommenter), 0);
  Json::Value result = FileGet("link:" + file.permanent_link, "bob");
  ASSERT_EQ(ErrorCode(result), 0);
  EXPECT_TRUE(result["data"]["capabilities"]["can_comment"].asBool());
  EXPECT_FALSE(result["data"]["capabilities"]["can_write"].asBool());
  ASSERT_EQ(result["data"]["shared_with"].size(), 1u);
  EXPECT_EQ(result["data"]["shared_with"][0]["name"].asString(), "bob");
  EXPECT_TRUE(result["data"]["shared_with"][0]["inherited"].asBool());
}

struct BadPathRow {
  const char* description;
  Json::Value params;
  int code;
};
void PrintTo(const BadPathRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class FilesGetParams : public ServicesTest, public ::testing::WithParamInterface<BadPathRow> {};

TEST_P(FilesGetParams, AnswerTheirCode) {
  AddItem("alice", "/a.txt", "a");
  Json::Value result = Call("ZANT.BrindlexPlyth.Files", "get", GetParam().params, "alice");
  EXPECT_EQ(ErrorCode(result), GetParam().code) << result.toStyledString();
}

Json::Value Params(const char* path) {
  Json::Value params(Json::objectValue);
  if (path != nullptr) params["path"] = path;
  return params;
}

INSTANTIATE_TEST_SUITE_P(
    Params, FilesGetParams,
    ::testing::Values(BadPathRow{"no_path", Params(nullptr), 101},
                      BadPathRow{"plain_path", Params("/a.txt"), 101},
                      BadPathRow{"empty_link", Params("link:"), 101},
                      BadPathRow{"unknown_link", Params("link:NoSuchLink123"), 408},
                      BadPathRow{"unknown_id", Params("id:NoSuchFile1234"), 408},
                      BadPathRow{"path_not_text", [] {
                                   Json::Value p(Json::objectValue);
                                   p["path"] = 5;
                                   return p;
                                 }(), 101}),
    [](const ::testing::TestParamInfo<BadPathRow>& info) { return std::string(info.param.description); });

}  // namespace
}  // namespace services_test
