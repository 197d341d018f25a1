#include "access_requests.h"

#include "clock.h"
#include "service_errors.h"

namespace plyth_services {

int AddAccessRequest(Store& store, const Item& item, const std::string& requester,
                     const std::string& message) {
  return store.Write(
      [&]() -> int {
        Statement insert(store.Db(),
                         "INSERT INTO access_requests (item_id, requester, at, message)"
                         " VALUES (?1, ?2, ?3, ?4) ON CONFLICT (item_id, requester) DO NOTHING");
        insert.Bind(1, item.file_id).Bind(2, requester).Bind(3, Now()).Bind(4, message);
        return insert.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

int ListAccessRequests(Store& store, std::vector<AccessRequest>* requests) {
  Statement query(store.Db(),
                  "SELECT item_id, requester, at, message FROM access_requests"
                  " ORDER BY at, item_id, requester");
  if (!query.Ok()) return kErrStore;
  int rc;
  while ((rc = query.Step()) == SQLITE_ROW) {
    requests->push_back({query.Text(0), query.Text(1), query.Int(2), query.Text(3)});
  }
  return rc == SQLITE_DONE ? kOk : kErrStore;
}

namespace {

int DeleteRequest(Store& store, const Item& item, const std::string& requester) {
  Statement remove(store.Db(), "DELETE FROM access_requests WHERE item_id = ?1 AND requester = ?2");
  remove.Bind(1, item.file_id).Bind(2, requester);
  if (!remove.Run()) return kErrStore;
  return sqlite3_changes(store.Db()) == 1 ? kOk : kErrNoSuchItem;
}

}  // namespace

int RemoveAccessRequest(Store& store, const Item& item, const std::string& requester) {
  return store.Write([&]() { return DeleteRequest(store, item, requester); }, kErrStore);
}

int GrantAccessRequest(Store& store, const Item& item, const std::string& requester) {
  return store.Write(
      [&]() -> int {
        int rc = DeleteRequest(store, item, requester);
        if (rc != kOk) return rc;
        Statement upsert(store.Db(),
                         "INSERT INTO permissions (item_id, member, role) VALUES (?1, ?2, ?3)"
                         " ON CONFLICT (item_id, member) DO UPDATE SET role = excluded.role");
        upsert.Bind(1, item.file_id).Bind(2, requester).Bind(3, std::string(RoleName(item.link_role)));
        return upsert.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

}  // namespace plyth_services
