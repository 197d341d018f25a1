// Requests for access to an item: a signed-in user who may not open a
// permanent link asks its owner, who grants or denies with plythctl.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "items.h"
#include "store.h"

namespace plyth_services {

struct AccessRequest {
  std::string item_id;
  std::string requester;
  int64_t at = 0;
  std::string message;
};

// The longest message kept with a request, in bytes.
constexpr size_t kMaxRequestMessage = 500;

// Stores the request unless the requester already has one on the item, in
// which case the first one stands.
int AddAccessRequest(Store& store, const Item& item, const std::string& requester,
                     const std::string& message);
int ListAccessRequests(Store& store, std::vector<AccessRequest>* requests);  // oldest first
// Removes the requester's request on the item; kErrNoSuchItem without one.
int RemoveAccessRequest(Store& store, const Item& item, const std::string& requester);
// Makes the requester a member with the role of the item's permanent link
// and removes the request.
int GrantAccessRequest(Store& store, const Item& item, const std::string& requester);

}  // namespace plyth_services
