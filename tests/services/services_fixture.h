// What the link-service tests share: a throw-away appliance root with the
// services' methods registered in the in-process runner, a clock the test
// sets, and short ways to make users, items, links and calls.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <json/json.h>

#include "clock.h"
#include "crypto.h"
#include "harness.h"
#include "items.h"
#include "service_errors.h"
#include "sharing.h"
#include "store.h"
#include "zant/userdb.h"
#include "zant/webapi.h"

extern "C" ZANTAPITableEntry* GetAPITable();
extern "C" ZANTAPICheckEntry* GetAPICheckTable();

namespace services_test {

inline int64_t& FakeNow() {
  static int64_t now = 1700000000;
  return now;
}
inline int64_t ReadFakeNow() { return FakeNow(); }

// Registers every row of the library's tables, the way the framework does.
inline void RegisterServices() {
  for (ZANTAPITableEntry* row = GetAPITable(); row->api != nullptr; ++row) {
    ZANT::APICheck check = nullptr;
    for (ZANTAPICheckEntry* c = GetAPICheckTable(); c->api != nullptr; ++c) {
      if (std::string(c->api) == row->api && c->version == row->version &&
          std::string(c->method) == row->method) {
        check = c->check;
      }
    }
    ZANT::APIRunner::Register(row->api, row->version, row->method, row->handler, check);
  }
}

inline int ErrorCode(const Json::Value& result) {
  if (result["success"].asBool()) return 0;
  return result["error"]["code"].asInt();
}

inline Json::Value Call(const char* api, const char* method, const Json::Value& params,
                        const std::string& user) {
  Json::Value result;
  ZANT::APIRunner::Exec(result, api, 1, method, params, user.c_str());
  return result;
}

inline Json::Value FileGet(const std::string& path, const std::string& user,
                           const std::string& token = "") {
  Json::Value params(Json::objectValue);
  params["path"] = path;
  if (!token.empty()) params["sharing_token"] = token;
  return Call("ZANT.BrindlexPlyth.Files", "get", params, user);
}

inline Json::Value Auth(const std::string& link, const std::string& password) {
  Json::Value params(Json::objectValue);
  params["sharing_link"] = link;
  params["password"] = password;
  return Call("ZANT.BrindlexPlyth.AdvanceSharing.Public", "auth", params, "anonymous");
}

// The token of a link that needs no password (or of `password`).
inline std::string TokenFor(const std::string& link, const std::string& password = "") {
  Json::Value result = Auth(link, password);
  EXPECT_EQ(ErrorCode(result), 0) << result.toStyledString();
  return result["data"]["sharing_token"].asString();
}


class ServicesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FakeNow() = 1700000000;
    plyth_services::SetClock(&ReadFakeNow);
    RegisterServices();
    std::string error;
    store_ = plyth_services::Store::Open(&error);
    ASSERT_TRUE(store_) << error;
  }
  void TearDown() override {
    store_.reset();
    plyth_services::SetClock(nullptr);
    ZANT::APIRunner::Clear();
  }

  plyth_services::Store& Db() { return *store_; }

  uid_t AddUser(const std::string& name) {
    ZANT::UserDB::User user;
    user.name = name;
    user.gid = ZANT::UserDB::kUsersGid;
    EXPECT_EQ(ZANT::UserDB::AddUser(&user, ""), ZANT::UserDB::Status::kOk) << name;
    return user.uid;
  }

  plyth_services::Item AddItem(const std::string& owner, const std::string& path,
                               const std::string& content = "", bool dir = false) {
    plyth_services::NewItem wanted;
    wanted.owner = owner;
    ZANT::UserDB::User user;
    if (ZANT::UserDB::FindUser(owner, &user) != ZANT::UserDB::Status::kOk) user.uid = AddUser(owner);
    wanted.ownerUid = user.uid;
    wanted.path = path;
    wanted.kind = dir ? 1 : 0;
    if (!dir) {
      root_.WriteFile("/tmp/upload", content);
      EXPECT_EQ(plyth_services::StoreContent(root_.Host("/tmp/upload"), &wanted.hash, &wanted.size), 0);
    }
    plyth_services::Item item;
    EXPECT_EQ(plyth_services::AddItem(*store_, wanted, &item), 0) << path;
    return item;
  }

  // The item as it is in the store now.
  plyth_services::Item Reload(const plyth_services::Item& item) {
    plyth_services::Item fresh;
    EXPECT_EQ(plyth_services::FindItemById(*store_, item.file_id, &fresh), 0);
    return fresh;
  }

  std::string Share(const plyth_services::Item& item, const std::string& password = "",
                    int64_t expires = 0, plyth_services::Role role = plyth_services::Role::kViewer) {
    plyth_services::SharingLink link;
    EXPECT_EQ(plyth_services::CreateSharingLink(*store_, item, password, expires, role, &link), 0);
    return link.id;
  }

  plyth_test::ApplianceRoot root_;
  std::unique_ptr<plyth_services::Store> store_;
};

}  // namespace services_test
