// A landing's queries stay flat in the size of the store: none of the
// statements that a record fetch or an unlock runs scans a whole table.
#include <regex>
#include <set>

#include "services_fixture.h"

namespace services_test {
namespace {

// Reads every row: "SCAN items" (with or without a covering index), and a
// bare "SEARCH items", which is how SQLite shows MAX() over an unindexed column.
std::vector<std::string> FullScans(sqlite3* db, const std::string& sql) {
  static const std::regex kGuarded("(SCAN|SEARCH) (items|sharing_links|auth_failures|permissions)( .*)?");
  std::vector<std::string> scans;
  plyth_services::Statement plan(db, ("EXPLAIN QUERY PLAN " + sql).c_str());
  while (plan.Row()) {
    const std::string detail = plan.Text(3);
    const bool indexed = detail.rfind("SEARCH ", 0) == 0 && detail.find(" USING ") != std::string::npos;
    if (std::regex_match(detail, kGuarded) && !indexed) scans.push_back(detail);
  }
  return scans;
}

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
  const std::string token = TokenFor(open);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item.permanent_link, "anonymous", token)), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item.permanent_link, "alice")), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + folder.permanent_link, "alice")), 0);
  EXPECT_EQ(ErrorCode(Auth(locked, "wrong")), 1037);
  sqlite3_trace_v2(shared, 0, nullptr, nullptr);

  ASSERT_GE(traced.size(), 5u);
  for (const std::string& sql : traced) {
    if (!std::regex_search(sql, std::regex("^(SELECT|UPDATE|DELETE) "))) continue;
    EXPECT_EQ(FullScans(shared, sql), std::vector<std::string>()) << sql;
  }
}

}  // namespace
}  // namespace services_test
