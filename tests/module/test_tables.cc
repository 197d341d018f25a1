// The built module as the framework loads it: both exported tables, walked
// through the accessor functions that dlsym finds.
#include <dlfcn.h>

#include <utility>

#include <gtest/gtest.h>

#include "zant/webapi.h"

namespace {

TEST(LoadedModule, MethodTableAndReversedCheckTableShareTheirTexts) {
  void* handle = dlopen(PLYTH_SHARD_SO, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr) << dlerror();
  auto getTable = reinterpret_cast<ZANTGetAPITableFn>(dlsym(handle, "GetAPITable"));
  auto getChecks = reinterpret_cast<ZANTGetAPICheckTableFn>(dlsym(handle, "GetAPICheckTable"));
  ASSERT_TRUE(getTable != nullptr && getChecks != nullptr);
  const ZANTAPITableEntry* table = getTable();
  const ZANTAPICheckEntry* checks = getChecks();
  EXPECT_EQ(dlsym(handle, "gTable"), static_cast<const void*>(table));

  const char* const methods[] = {"get", "getjs", "init"};
  ZANT::APIRequest request;
  request.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "get");
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(methods[i]);
    const ZANTAPITableEntry& row = table[i];
    const ZANTAPICheckEntry& check = checks[2 - i];  // deliberately the reverse order
    EXPECT_STREQ(row.api, "ZANT.BrindlexPlyth.Shard");
    EXPECT_STREQ(row.method, methods[i]);
    EXPECT_TRUE(row.handler != nullptr && row.handler != table[(i + 1) % 3].handler);
    EXPECT_EQ(row.api, table[0].api) << "one shared API text";
    EXPECT_EQ(check.api, table[0].api);
    EXPECT_EQ(check.method, row.method) << "the method table's own text";
    EXPECT_EQ(std::make_pair(row.version, check.version), std::make_pair(1, 1));
    EXPECT_EQ(check.reserved1 | check.reserved2, 0u);
    ASSERT_NE(check.check, nullptr);
    EXPECT_EQ(std::make_pair(check.check(&request), check.check(nullptr)), std::make_pair(1, 1));
  }
  EXPECT_TRUE(table[3].api == nullptr && table[3].method == nullptr &&
              table[3].handler == nullptr && table[3].version == 0);
  EXPECT_TRUE(checks[3].api == nullptr && checks[3].method == nullptr &&
              checks[3].check == nullptr && checks[3].version == 0);
  EXPECT_EQ(checks[3].reserved1 | checks[3].reserved2, 0u);
  dlclose(handle);
}

}  // namespace
