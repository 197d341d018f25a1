// The file record that "get" answers: what insiders and outsiders see,
// the recycle bin, and the members that make up the record's sharing facts.
#include "services_fixture.h"

namespace services_test {
namespace {

using plyth_services::Item;
using plyth_services::Role;
using plyth_services::Visibility;

TEST_F(ServicesTest, OutsidersSeeTheItemAsTheTopOfItsOwnView) {
  Item item = AddItem("alice", "/private/docs/plan.txt", "plan!");
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, Visibility::kAnyone, Role::kViewer), 0);
  Json::Value data = FileGet("link:" + item.permanent_link, "anonymous")["data"];
  EXPECT_EQ(data["path"].asString(), "/plan.txt");
  for (const char* key : {"display_path", "nxo_path", "original_path", "parent_id"}) {
    EXPECT_EQ(data[key].asString(), "") << key;
  }
  EXPECT_EQ(data["shared_with"], Json::Value(Json::arrayValue));
  EXPECT_EQ(data["file_id"].asString(), item.file_id);
  EXPECT_EQ(data["permanent_link"].asString(), item.permanent_link);
  EXPECT_EQ(data["name"].asString(), "plan.txt");
  EXPECT_EQ(data["type"].asString(), "file");
  EXPECT_EQ(data["size"].asUInt64(), 5u);
  EXPECT_EQ(data["content_type"].asString(), "text/plain");
  EXPECT_EQ(data["owner"]["name"].asString(), "alice");
  EXPECT_EQ(data["owner"]["uid"].asUInt(), item.owner_uid);
  EXPECT_EQ(data["revisions"].asUInt(), 1u);
  EXPECT_EQ(data["created_time"].asUInt(), 1700000000u);
  EXPECT_TRUE(data["shared"].asBool());
  EXPECT_FALSE(data["adv_shared"].asBool());
  EXPECT_FALSE(data["removed"].asBool());
}

TEST_F(ServicesTest, TheOwnerSeesThePathsOfTheOwnView) {
  Item item = AddItem("alice", "/private/docs/plan.txt", "plan!");
  Json::Value data = FileGet("link:" + item.permanent_link, "alice")["data"];
  EXPECT_EQ(data["path"].asString(), "/private/docs/plan.txt");
  EXPECT_EQ(data["display_path"].asString(), "/private/docs/plan.txt");
  EXPECT_EQ(data["parent_id"].asString(), item.parent_id);
  EXPECT_FALSE(data["shared"].asBool());
}

TEST_F(ServicesTest, FoldersAreRecordsOfTypeDir) {
  AddItem("alice", "/photos", "", true);
  Item folder;
  ASSERT_EQ(plyth_services::FindItemByPath(Db(), "alice", "/photos", &folder), 0);
  Json::Value data = FileGet("link:" + folder.permanent_link, "alice")["data"];
  EXPECT_EQ(data["type"].asString(), "dir");
  EXPECT_EQ(data["content_type"].asString(), "");
  EXPECT_EQ(data["revisions"].asUInt(), 0u);
}

TEST_F(ServicesTest, SharingLinksMakeTheItemAdvancedShared) {
  Item item = AddItem("alice", "/plan.txt", "p");
  Share(item);
  EXPECT_TRUE(FileGet("link:" + item.permanent_link, "alice")["data"]["adv_shared"].asBool());
}

TEST_F(ServicesTest, TrashMarksTheItemAndEverythingBelowItRemoved) {
  Item inside = AddItem("alice", "/old/notes/a.txt", "a");
  Item beside = AddItem("alice", "/older/b.txt", "b");  // shares a prefix, not a parent
  Item folder;
  ASSERT_EQ(plyth_services::FindItemByPath(Db(), "alice", "/old", &folder), 0);
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, true), 0);
  EXPECT_TRUE(Reload(folder).removed);
  EXPECT_TRUE(Reload(inside).removed);
  EXPECT_FALSE(Reload(beside).removed);
  EXPECT_TRUE(FileGet("link:" + inside.permanent_link, "alice")["data"]["removed"].asBool());
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, false), 0);
  EXPECT_FALSE(Reload(inside).removed);
}

TEST_F(ServicesTest, AddingAnExistingPathOrBelowAFileIsRefused) {
  Item item = AddItem("alice", "/a.txt", "a");
  plyth_services::NewItem wanted;
  wanted.owner = "alice";
  wanted.ownerUid = item.owner_uid;
  wanted.path = "/a.txt";
  Item added;
  EXPECT_EQ(plyth_services::AddItem(Db(), wanted, &added), plyth_services::kErrExists);
  wanted.path = "/a.txt/b.txt";
  EXPECT_EQ(plyth_services::AddItem(Db(), wanted, &added), plyth_services::kErrBadParameter);
  // Another owner may have the same path.
  wanted.owner = "bob";
  wanted.path = "/a.txt";
  EXPECT_EQ(plyth_services::AddItem(Db(), wanted, &added), 0);
}

}  // namespace
}  // namespace services_test
