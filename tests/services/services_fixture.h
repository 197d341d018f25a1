// What the link-service tests share: a throw-away appliance root with the
// services' methods registered in the in-process runner, a clock the test
// sets, and short ways to make users, items, links and calls.
#pragma once

#include <memory>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <json/json.h>

#include "clock.h"
#include "harness.h"
#include "content_store.h"
#include "items.h"
#include "plythctl.h"
#include "sharing.h"
#include "store.h"
#include "zant/json_util.h"
#include "zant/userdb.h"
#include "zant/webapi.h"

extern "C" ZANTAPITableEntry* GetAPITable();
extern "C" ZANTAPICheckEntry* GetAPICheckTable();

namespace services_test {

using plyth_services::Item;
using plyth_services::Role;
using plyth_services::Visibility;

inline int64_t gNow = 0;  // the services' clock
inline int64_t ReadNow() { return gNow; }

inline int ErrorCode(const Json::Value& result) {
  return result["success"].asBool() ? 0 : result["error"]["code"].asInt();
}

inline Json::Value Call(const char* api, const char* method, const Json::Value& params, const std::string& user) {
  Json::Value result;
  ZANT::APIRunner::Exec(result, api, 1, method, params, user.c_str());
  return result;
}

// Call parameters: the members given, less those that are null.
inline Json::Value Params(std::initializer_list<std::pair<const char*, Json::Value>> members) {
  Json::Value params(Json::objectValue);
  for (const auto& [name, value] : members) if (!value.isNull()) params[name] = value;
  return params;
}

inline Json::Value FileGet(const std::string& path, const std::string& user, const std::string& token = "") {
  const Json::Value given = token.empty() ? Json::Value() : Json::Value(token);
  return Call("ZANT.BrindlexPlyth.Files", "get", Params({{"path", path}, {"sharing_token", given}}), user);
}

// The unlock of `link` by a visitor, from the client `address` when one is given.
inline Json::Value Auth(const std::string& link, const Json::Value& password, const std::string& address = "") {
  ZANT::APIRequest request;
  request.SetAPI("ZANT.BrindlexPlyth.AdvanceSharing.Public", 1, "auth");
  request.SetParams(Params({{"sharing_link", link}, {"password", password}}));
  if (!address.empty()) request.SetServerVar("REMOTE_ADDR", address);
  ZANT::APIResponse response;
  ZANT::APIRunner::Dispatch(&request, &response);
  return response.ToResult();
}

// The token of a link that needs no password (or of `password`).
inline std::string TokenFor(const std::string& link, const std::string& password = "") {
  Json::Value result = Auth(link, password);
  EXPECT_EQ(ErrorCode(result), 0) << result.toStyledString();
  return result["data"]["sharing_token"].asString();
}

// A method of the files API that writes its own answer ("download",
// "preview", "archive") as `user` ("anonymous": a visitor), with the server
// variables that have a value.
inline plyth_test::HandlerRun RunFiles(ZANT::APIHandler handler, const char* method, const Json::Value& params,
                                       const std::string& user = "anonymous",
                                       const std::vector<std::pair<std::string, std::string>>& serverVars = {}) {
  ZANT::APIRequest request;
  request.SetAPI("ZANT.BrindlexPlyth.Files", 1, method);
  request.SetParams(params);
  for (const auto& [name, value] : serverVars) if (!value.empty()) request.SetServerVar(name, value);
  const bool anonymous = user == "anonymous";
  request.SetLogin(user, anonymous ? -1 : 1026, anonymous ? ZANT::kAuthNone : ZANT::kAuthUser);
  return plyth_test::RunHandler(handler, request);
}

struct CtlRun { int code; std::string out, err; };

// plythctl run in-process, `input` its standard input.
inline CtlRun Ctl(const std::vector<std::string>& args, const std::string& input = "") {
  std::istringstream in(input);
  std::ostringstream out, err;
  const int code = plyth_services::RunPlythctl(args, in, out, err);
  return {code, out.str(), err.str()};
}

// The compact JSON of `keys` of `data`.
inline std::string Pick(const Json::Value& data, std::initializer_list<const char*> keys) {
  Json::Value picked(Json::objectValue);
  for (const char* key : keys) picked[key] = data[key];
  return ZANT::JsonToString(picked);
}

class ServicesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gNow = 1700000000;
    setenv("TZ", "UTC", 1);  // plythctl prints and parses local times
    tzset();
    plyth_services::SetClock(&ReadNow);
    // Every row of the library's tables, registered the way the framework does.
    for (ZANTAPITableEntry* row = GetAPITable(); row->api != nullptr; ++row) {
      ZANT::APICheck check = nullptr;
      for (ZANTAPICheckEntry* c = GetAPICheckTable(); c->api != nullptr; ++c) {
        const bool same = std::string(c->api) == row->api && c->version == row->version;
        if (same && std::string(c->method) == row->method) check = c->check;
      }
      ZANT::APIRunner::Register(row->api, row->version, row->method, row->handler, check);
    }
    Reopen();
  }
  void TearDown() override {
    store_.reset();
    plyth_services::SetClock(nullptr);
    ZANT::APIRunner::Clear();
  }
  void Reopen() {
    std::string error;
    store_ = plyth_services::Store::Open(&error);
    ASSERT_TRUE(store_) << error;
  }
  plyth_services::Store& Db() { return *store_; }

  uid_t AddUser(const std::string& name, bool admin = false) {
    ZANT::UserDB::User user;
    user.name = name;
    user.gid = ZANT::UserDB::kUsersGid;
    user.admin = admin;
    EXPECT_EQ(ZANT::UserDB::AddUser(&user, ""), ZANT::UserDB::Status::kOk) << name;
    return user.uid;
  }

  Item AddItem(const std::string& owner, const std::string& path, const std::string& content = "", bool dir = false) {
    plyth_services::NewItem wanted;
    ZANT::UserDB::User user;
    wanted.owner_name = owner;
    wanted.owner_uid = ZANT::UserDB::FindUser(owner, &user) == ZANT::UserDB::Status::kOk ? user.uid : AddUser(owner);
    wanted.path = path;
    wanted.kind = dir ? 1 : 0;
    if (!dir) {
      root_.WriteFile("/tmp/upload", content);
      EXPECT_EQ(plyth_services::StoreContent(root_.Host("/tmp/upload"), &wanted.hash, &wanted.size), 0);
    }
    Item item;
    EXPECT_EQ(plyth_services::AddItem(*store_, wanted, &item), 0) << path;
    return item;
  }
  Item Find(const std::string& owner, const std::string& path) {
    Item item;
    EXPECT_EQ(plyth_services::FindItemByPath(*store_, owner, path, &item), 0) << path;
    return item;
  }
  Item Reload(const Item& item) {
    Item fresh;
    EXPECT_EQ(plyth_services::FindItemById(*store_, item.file_id, &fresh), 0);
    return fresh;
  }
  std::string Share(const Item& item, const std::string& password = "", int64_t expires = 0,
                    Role role = Role::kViewer) {
    plyth_services::SharingLink link;
    EXPECT_EQ(plyth_services::CreateSharingLink(*store_, item, password, expires, role, &link), 0);
    return link.id;
  }

  plyth_test::ApplianceRoot root_;
  std::unique_ptr<plyth_services::Store> store_;
};

}  // namespace services_test
