// Who sees a linked item, with which capabilities, and what the file record
// that "get" answers tells insiders and outsiders.
#include <set>

#include "services_fixture.h"

namespace services_test {
namespace {

using Caps = std::set<std::string>;
const Caps kPreviewer = {"can_preview"}, kViewer = {"can_preview", "can_read"},
           kCommenter = {"can_preview", "can_read", "can_comment"},
           kEditor = {"can_preview", "can_read", "can_write", "can_delete", "can_rename", "can_comment",
                      "can_organize"},
           kOwner = {"can_preview", "can_read", "can_write", "can_delete", "can_rename", "can_comment", "can_share",
                     "can_encrypt", "can_organize"};

// The capabilities the record grants, by name; one that is not a boolean as "name?".
Caps Granted(const Json::Value& caps) {
  Caps granted;
  for (const std::string& key : kOwner)
    if (!caps[key].isBool() || caps[key].asBool()) granted.insert(caps[key].isBool() ? key : key + "?");
  return granted;
}

// alice owns the item; bob is a member when `member` is given; carol is
// only signed in; a token lends the role of its sharing link.
TEST_F(ServicesTest, TheHighestRoleDecidesWhoGetsTheRecordAndPathsAnswerTheirCode) {
  const Item item = AddItem("alice", "/docs/plan.txt", "plan");
  AddUser("bob");
  AddUser("carol");
  // `caps` none: refused with 1002, and no record.
  struct Row { Visibility visibility = Visibility::kMembers; const char* caller; Role member = Role::kNone;
               Role token = Role::kNone; Caps caps = {}; bool showsPath = false; } rows[] = {
      {.caller = "carol"},
      {.caller = "bob", .member = Role::kPreviewer, .caps = kPreviewer, .showsPath = true},
      {.caller = "bob", .member = Role::kEditor, .caps = kEditor, .showsPath = true},
      {.caller = "alice", .caps = kOwner, .showsPath = true},
      {.caller = "anonymous", .token = Role::kPreviewer, .caps = kPreviewer},
      {.visibility = Visibility::kSignedIn, .caller = "anonymous"},
      {.visibility = Visibility::kSignedIn, .caller = "carol", .caps = kViewer},
      {.visibility = Visibility::kSignedIn, .caller = "bob", .member = Role::kPreviewer, .caps = kViewer,
       .showsPath = true},
      {.visibility = Visibility::kAnyone, .caller = "anonymous", .caps = kViewer}};
  for (const Row& row : rows) {
    ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, row.visibility, Role::kViewer), 0);
    ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", row.member), 0);
    const std::string token = row.token == Role::kNone ? "" : TokenFor(Share(item, "", 0, row.token));
    const Json::Value result = FileGet("link:" + item.permanent_link, row.caller, token);
    SCOPED_TRACE(plyth_services::VisibilityName(row.visibility) + std::string(" to \"") + row.caller + "\" as " +
                 plyth_services::RoleName(row.member));
    EXPECT_EQ(ErrorCode(result), row.caps.empty() ? 1002 : 0);
    if (row.caps.empty()) continue;
    EXPECT_EQ(Granted(result["data"]["capabilities"]), row.caps);
    EXPECT_EQ(result["data"]["display_path"].asString(), row.showsPath ? "/docs/plan.txt" : "");
  }

  // The link's visibility lends nothing to a caller who names the file id.
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), item, "bob", Role::kViewer), 0);
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, Visibility::kAnyone, Role::kEditor), 0);
  struct PathRow { Json::Value path; const char* user; int code; } pathRows[] = {  // a null path: none given
      {.path = "id:" + item.file_id, .user = "bob", .code = 0},
      {.path = "id:" + item.file_id, .user = "carol", .code = 1002},
      {.path = Json::nullValue, .user = "alice", .code = 101},
      {.path = "/docs/plan.txt", .user = "alice", .code = 101},
      {.path = "link:", .user = "alice", .code = 101},
      {.path = "id:NoSuchFile1234", .user = "alice", .code = 408}};
  for (const PathRow& row : pathRows) {
    EXPECT_EQ(ErrorCode(Call("ZANT.BrindlexPlyth.Files", "get", Params({{"path", row.path}}), row.user)), row.code)
        << ZANT::JsonToString(row.path) << " by " << row.user;
  }
}

TEST_F(ServicesTest, GrantsAndTheRecycleBinOnAFolderReachEverythingBelowIt) {
  const Item file = AddItem("alice", "/team/q1/report.txt", "r");
  AddUser("bob");
  const Item team = Find("alice", "/team");
  ASSERT_EQ(plyth_services::SetMemberRole(Db(), team, "bob", Role::kCommenter), 0);
  const Json::Value data = FileGet("link:" + file.permanent_link, "bob")["data"];
  EXPECT_EQ(Granted(data["capabilities"]), kCommenter);
  EXPECT_EQ(ZANT::JsonToString(data["shared_with"]), R"([{"inherited":true,"name":"bob","permission_id":")" +
                                                        team.file_id + R"(:bob","role":"commenter","type":"user"}])");

  // The recycle bin too, but not a sibling sharing the folder's prefix;
  // removed items are still answered, as removed, to a token holder.
  const Item inside = AddItem("alice", "/old/notes/a.txt", "a");
  const Item beside = AddItem("alice", "/older/b.txt", "b");
  const Item folder = Find("alice", "/old");
  const std::string token = TokenFor(Share(inside));
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, true), 0);
  auto bit = [this](const Item& item) { return Reload(item).removed ? '1' : '0'; };
  EXPECT_EQ((std::string{bit(folder), bit(inside), bit(beside)}), "110");
  EXPECT_TRUE(FileGet("link:" + inside.permanent_link, "anonymous", token)["data"]["removed"].asBool());
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, false), 0);
  EXPECT_FALSE(FileGet("link:" + inside.permanent_link, "anonymous", token)["data"]["removed"].asBool());
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
  EXPECT_EQ(Pick(data["owner"], {"name", "uid"}), R"({"name":"alice","uid":1026})");
  EXPECT_EQ(Pick(FileGet("link:" + Find("alice", "/private").permanent_link, "alice")["data"],
                 {"type", "content_type", "revisions"}), "{\"content_type\":\"\",\"revisions\":0,\"type\":\"dir\"}");
}

}  // namespace
}  // namespace services_test
