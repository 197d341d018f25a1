// File contents, stored once under their SHA-256 in the content directory.
#pragma once

#include <cstdint>
#include <string>

namespace plyth_services {

// Copies a local file into the content directory (under its SHA-256).
// kErrNoSuchItem when the file cannot be read, kErrStore when it cannot be stored.
int StoreContent(const std::string& localFile, std::string* hash, uint64_t* size);
// Stores the empty content (what an item added without content holds).
int StoreEmptyContent(std::string* hash);

}  // namespace plyth_services
