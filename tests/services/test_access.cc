// Who sees a linked item, with which capabilities, and what the file record
// that "get" answers tells insiders and outsiders.
#include "services_fixture.h"

namespace services_test {
namespace {

// The nine capabilities in record order, as "1"/"0".
std::string CapsBits(const Json::Value& caps) {
  std::string bits;
  for (const char* key : {"can_preview", "can_read", "can_write", "can_delete", "can_rename", "can_comment",
                          "can_share", "can_encrypt", "can_organize"}) {
    bits += caps[key].isBool() ? (caps[key].asBool() ? '1' : '0') : '?';
  }
  return bits;
}

// Role rows: the role, how the caller holds it ("member" grant, sharing "token", or "owner"), capabilities.
struct RoleRow {
  const char* role;
  const char* via;
  const char* caps;  // preview read write delete rename comment share encrypt organize
};

class RoleCapabilities : public ServicesTest, public ::testing::WithParamInterface<RoleRow> {};

TEST_P(RoleCapabilities, RecordCarriesTheRolesCapabilities) {
  const Item item = AddItem("alice", "/docs/plan.txt", "plan");
  AddUser("bob");
  const std::string via = GetParam().via, path = "link:" + item.permanent_link;
  Role role = Role::kOwner;
  ASSERT_TRUE(via == "owner" || plyth_services::ParseGrantableRole(GetParam().role, &role));
  if (via == "member") {
    ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", role), 0);
  }
  const Json::Value result = via == "owner"    ? FileGet(path, "alice")
                             : via == "member" ? FileGet(path, "bob")
                                               : FileGet(path, "anonymous", TokenFor(Share(item, "", 0, role)));
  ASSERT_EQ(ErrorCode(result), 0) << result.toStyledString();
  EXPECT_EQ(CapsBits(result["data"]["capabilities"]), GetParam().caps) << via << " " << GetParam().role;
}

INSTANTIATE_TEST_SUITE_P(
    Roles, RoleCapabilities,
    ::testing::Values(RoleRow{"previewer", "member", "100000000"}, RoleRow{"viewer", "member", "110000000"},
                      RoleRow{"commenter", "member", "110001000"}, RoleRow{"editor", "member", "111111001"},
                      RoleRow{"owner", "owner", "111111111"}, RoleRow{"previewer", "token", "100000000"},
                      RoleRow{"viewer", "token", "110000000"}, RoleRow{"commenter", "token", "110001000"},
                      RoleRow{"editor", "token", "111111001"}));

struct VisibilityRow {
  Visibility visibility;
  const char* caller;  // alice owns, bob is a member previewer, carol is signed in; "" is nobody
  const char* answer;  // error code, or capabilities and whether the display path shows
};

class LinkVisibility : public ServicesTest, public ::testing::WithParamInterface<VisibilityRow> {};

TEST_P(LinkVisibility, DecidesWhoGetsTheRecord) {
  const Item item = AddItem("alice", "/docs/plan.txt", "plan");
  AddUser("bob");
  AddUser("carol");
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", Role::kPreviewer), 0);
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, GetParam().visibility, Role::kViewer), 0);
  const Json::Value result = FileGet("link:" + item.permanent_link, GetParam().caller);
  const Json::Value& data = result["data"];
  EXPECT_EQ(ErrorCode(result) != 0 ? std::to_string(ErrorCode(result))
                                   : CapsBits(data["capabilities"]) + " " + data["display_path"].asString(),
            GetParam().answer)
      << plyth_services::VisibilityName(GetParam().visibility) << " to \"" << GetParam().caller << "\"";
}

INSTANTIATE_TEST_SUITE_P(
    Visibilities, LinkVisibility,
    ::testing::Values(VisibilityRow{Visibility::kMembers, "anonymous", "1002"},
                      VisibilityRow{Visibility::kMembers, "", "1002"},
                      VisibilityRow{Visibility::kMembers, "carol", "1002"},
                      VisibilityRow{Visibility::kMembers, "bob", "100000000 /docs/plan.txt"},
                      VisibilityRow{Visibility::kMembers, "alice", "111111111 /docs/plan.txt"},
                      VisibilityRow{Visibility::kSignedIn, "anonymous", "1002"},
                      VisibilityRow{Visibility::kSignedIn, "", "1002"},
                      VisibilityRow{Visibility::kSignedIn, "carol", "110000000 "},
                      VisibilityRow{Visibility::kSignedIn, "bob", "110000000 /docs/plan.txt"},  // the higher role
                      VisibilityRow{Visibility::kSignedIn, "alice", "111111111 /docs/plan.txt"},
                      VisibilityRow{Visibility::kAnyone, "anonymous", "110000000 "},
                      VisibilityRow{Visibility::kAnyone, "", "110000000 "},
                      VisibilityRow{Visibility::kAnyone, "carol", "110000000 "},
                      VisibilityRow{Visibility::kAnyone, "alice", "111111111 /docs/plan.txt"}));

TEST_F(ServicesTest, FileIdPathsAreForTheOwnerAndMembersOnly) {
  const Item item = AddItem("alice", "/docs/plan.txt", "plan");
  AddUser("bob");
  AddUser("carol");
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", Role::kViewer), 0);
  // The link's visibility lends nothing to a caller who names the file id.
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, Visibility::kAnyone, Role::kEditor), 0);
  std::string codes;
  for (const char* user : {"alice", "bob", "carol", "anonymous"}) {
    codes += std::to_string(ErrorCode(FileGet("id:" + item.file_id, user))) + " ";
  }
  EXPECT_EQ(codes, "0 0 1002 1002 ");
}

TEST_F(ServicesTest, GrantsOnAFolderReachEverythingBelowIt) {
  const Item file = AddItem("alice", "/team/q1/report.txt", "r");
  AddUser("bob");
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), Find("alice", "/team"), "bob", Role::kCommenter), 0);
  const Json::Value data = FileGet("link:" + file.permanent_link, "bob")["data"];
  EXPECT_EQ(CapsBits(data["capabilities"]), "110001000");
  EXPECT_EQ(Pick(data["shared_with"][0], {"name", "inherited"}), "{\"inherited\":true,\"name\":\"bob\"}");
  EXPECT_EQ(data["shared_with"].size(), 1u);
}

TEST_F(ServicesTest, BadPathsAnswerTheirCode) {
  AddItem("alice", "/a.txt", "a");
  std::string codes;
  for (const Json::Value& path : {Json::Value(), Json::Value("/a.txt"), Json::Value("link:"), Json::Value(5),
                                  Json::Value("link:NoSuchLink123"), Json::Value("id:NoSuchFile1234")}) {
    Json::Value params(Json::objectValue);
    if (!path.isNull()) params["path"] = path;
    codes += std::to_string(ErrorCode(Call("ZANT.BrindlexPlyth.Files", "get", params, "alice"))) + " ";
  }
  EXPECT_EQ(codes, "101 101 101 101 408 408 ");
}

TEST_F(ServicesTest, RecordsShowOutsidersOnlyTheItemItself) {
  const Item item = AddItem("alice", "/private/docs/plan.txt", "plan!");
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, Visibility::kAnyone, Role::kViewer), 0);
  const auto keys = {"path", "display_path", "nxo_path", "original_path", "parent_id", "shared_with", "name", "type",
                     "size", "content_type", "revisions", "created_time", "shared", "adv_shared", "removed"};
  EXPECT_EQ(Pick(FileGet("link:" + item.permanent_link, "anonymous")["data"], keys),
            "{\"adv_shared\":false,\"content_type\":\"text/plain\",\"created_time\":1700000000,\"display_path\":\"\","
            "\"name\":\"plan.txt\",\"nxo_path\":\"\",\"original_path\":\"\",\"parent_id\":\"\",\"path\":\"/plan.txt\","
            "\"removed\":false,\"revisions\":1,\"shared\":true,\"shared_with\":[],\"size\":5,\"type\":\"file\"}");
  Share(item);
  const Json::Value data = FileGet("link:" + item.permanent_link, "alice")["data"];
  EXPECT_EQ(Pick(data, {"path", "display_path", "parent_id", "adv_shared"}),
            "{\"adv_shared\":true,\"display_path\":\"/private/docs/plan.txt\",\"parent_id\":\"" + item.parent_id +
                "\",\"path\":\"/private/docs/plan.txt\"}");
  EXPECT_EQ(Pick(data["owner"], {"name", "uid"}),
            "{\"name\":\"alice\",\"uid\":" + std::to_string(item.owner_uid) + "}");
  EXPECT_EQ(Pick(FileGet("link:" + Find("alice", "/private").permanent_link, "alice")["data"],
                 {"type", "content_type", "revisions"}),
            "{\"content_type\":\"\",\"revisions\":0,\"type\":\"dir\"}");
}

// Trash reaches everything below a folder, not a sibling sharing its prefix;
// removed items are still answered, as removed, to a token holder.
TEST_F(ServicesTest, RemovedItemsAreAnsweredAsRemoved) {
  const Item inside = AddItem("alice", "/old/notes/a.txt", "a");
  const Item beside = AddItem("alice", "/older/b.txt", "b");
  const Item folder = Find("alice", "/old");
  const std::string token = TokenFor(Share(inside));
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, true), 0);
  auto bit = [this](const Item& item) { return Reload(item).removed ? '1' : '0'; };
  EXPECT_EQ((std::string{bit(folder), bit(inside), bit(beside)}), "110");
  const Json::Value result = FileGet("link:" + inside.permanent_link, "anonymous", token);
  EXPECT_EQ(ErrorCode(result), 0);
  EXPECT_TRUE(result["data"]["removed"].asBool());
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, false), 0);
  EXPECT_FALSE(FileGet("link:" + inside.permanent_link, "anonymous", token)["data"]["removed"].asBool());
}

}  // namespace
}  // namespace services_test
