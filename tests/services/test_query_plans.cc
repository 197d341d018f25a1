// A landing's queries stay flat in the size of the store: none of the
// statements that a record fetch or an unlock runs scans a whole table.
#include <regex>
#include <set>

#include "services_fixture.h"

namespace services_test {
namespace {

TEST_F(ServicesTest, HotPathQueriesUseAnIndex) {
  const Item folder = AddItem("alice", "/docs", "", true);
  const Item item = AddItem("alice", "/docs/plan.txt", "p");
  const std::string open = Share(item), locked = Share(item, "s3cret");

  std::string error;
  sqlite3* shared = plyth_services::Store::Shared(&error)->Db();
  ASSERT_NE(shared, nullptr) << error;
  std::set<std::string> traced;
  const auto onStatement = [](unsigned, void* into, void* stmt, void*) {
    static_cast<std::set<std::string>*>(into)->insert(sqlite3_sql(static_cast<sqlite3_stmt*>(stmt)));
    return 0;
  };
  sqlite3_trace_v2(shared, SQLITE_TRACE_STMT, onStatement, &traced);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item.permanent_link, "anonymous", TokenFor(open))), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item.permanent_link, "alice")), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + folder.permanent_link, "alice")), 0);
  EXPECT_EQ(ErrorCode(Auth(locked, "wrong")), 1037);
  sqlite3_trace_v2(shared, 0, nullptr, nullptr);

  ASSERT_GE(traced.size(), 5u);
  // A plan step that reads every row: "SCAN items" (with or without a covering
  // index), and a bare "SEARCH items", which is how SQLite shows MAX() over an
  // unindexed column.
  const std::regex guarded("(SCAN|SEARCH) (items|sharing_links|auth_failures|permissions)( .*)?");
  for (const std::string& sql : traced) {
    if (!std::regex_search(sql, std::regex("^(SELECT|UPDATE|DELETE) "))) continue;
    plyth_services::Statement plan(shared, ("EXPLAIN QUERY PLAN " + sql).c_str());
    while (plan.Row()) {
      const std::string detail = plan.Text(3);
      const bool indexed = detail.rfind("SEARCH ", 0) == 0 && detail.find(" USING ") != std::string::npos;
      EXPECT_FALSE(std::regex_match(detail, guarded) && !indexed) << sql << "\n" << detail;
    }
  }
}

}  // namespace
}  // namespace services_test
