// The built module as the framework loads it: both exported tables, walked
// through the accessor functions that dlsym finds.
#include <dlfcn.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zant/webapi.h"

namespace {

class LoadedModule : public ::testing::Test {
 protected:
  void SetUp() override {
    handle_ = dlopen(PLYTH_SHARD_SO, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle_, nullptr) << dlerror();
    auto getTable = reinterpret_cast<ZANTGetAPITableFn>(dlsym(handle_, "GetAPITable"));
    auto getCheck = reinterpret_cast<ZANTGetAPICheckTableFn>(dlsym(handle_, "GetAPICheckTable"));
    ASSERT_NE(getTable, nullptr);
    ASSERT_NE(getCheck, nullptr);
    table_ = getTable();
    checks_ = getCheck();
  }
  void TearDown() override {
    if (handle_ != nullptr) dlclose(handle_);
  }

  std::vector<const ZANTAPITableEntry*> Methods() const {
    std::vector<const ZANTAPITableEntry*> rows;
    for (const ZANTAPITableEntry* row = table_; row->api != nullptr; ++row) rows.push_back(row);
    return rows;
  }
  std::vector<const ZANTAPICheckEntry*> Checks() const {
    std::vector<const ZANTAPICheckEntry*> rows;
    for (const ZANTAPICheckEntry* row = checks_; row->api != nullptr; ++row) rows.push_back(row);
    return rows;
  }

  void* handle_ = nullptr;
  ZANTAPITableEntry* table_ = nullptr;
  ZANTAPICheckEntry* checks_ = nullptr;
};

TEST_F(LoadedModule, AccessorsReturnTheExportedTables) {
  EXPECT_EQ(dlsym(handle_, "gTable"), static_cast<void*>(table_));
  EXPECT_EQ(dlsym(handle_, "gCheckTable"), static_cast<void*>(checks_));
}

TEST_F(LoadedModule, MethodTableHoldsGetGetjsInitAndAZeroRow) {
  std::vector<const ZANTAPITableEntry*> rows = Methods();
  ASSERT_EQ(rows.size(), 3u);
  const char* expected[] = {"get", "getjs", "init"};
  for (size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(expected[i]);
    EXPECT_STREQ(rows[i]->api, "ZANT.BrindlexPlyth.Shard");
    EXPECT_EQ(rows[i]->api, rows[0]->api) << "one shared API-name text";
    EXPECT_EQ(rows[i]->version, 1);
    EXPECT_STREQ(rows[i]->method, expected[i]);
    EXPECT_NE(rows[i]->handler, nullptr);
  }
  EXPECT_NE(rows[0]->handler, rows[1]->handler);
  EXPECT_NE(rows[1]->handler, rows[2]->handler);
  const ZANTAPITableEntry& end = table_[3];
  EXPECT_EQ(end.version, 0);
  EXPECT_EQ(end.method, nullptr);
  EXPECT_EQ(end.handler, nullptr);
}

TEST_F(LoadedModule, CheckTableIsReversedSharesTextsAndAllowsEveryRequest) {
  std::vector<const ZANTAPICheckEntry*> rows = Checks();
  ASSERT_EQ(rows.size(), 3u);
  std::vector<const ZANTAPITableEntry*> methods = Methods();
  ASSERT_EQ(methods.size(), 3u);
  ZANT::APIRequest request;
  request.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "get");
  for (size_t i = 0; i < rows.size(); ++i) {
    const ZANTAPITableEntry* method = methods[2 - i];
    SCOPED_TRACE(method->method);
    EXPECT_EQ(rows[i]->api, methods[0]->api) << "the method table's API text";
    EXPECT_EQ(rows[i]->version, 1);
    EXPECT_EQ(rows[i]->method, method->method) << "the method table's method text";
    EXPECT_EQ(rows[i]->reserved1, 0u);
    EXPECT_EQ(rows[i]->reserved2, 0u);
    ASSERT_NE(rows[i]->check, nullptr);
    EXPECT_EQ(rows[i]->check(&request), 1);
    EXPECT_EQ(rows[i]->check(nullptr), 1);
  }
  EXPECT_NE(rows[0]->check, rows[1]->check) << "three separate functions";
  EXPECT_NE(rows[1]->check, rows[2]->check);
  const ZANTAPICheckEntry& end = checks_[3];
  EXPECT_EQ(end.version, 0);
  EXPECT_EQ(end.method, nullptr);
  EXPECT_EQ(end.check, nullptr);
  EXPECT_EQ(end.reserved1, 0u);
  EXPECT_EQ(end.reserved2, 0u);
}

}  // namespace
