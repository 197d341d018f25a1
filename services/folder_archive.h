// Whole folders, or a selection from one, as one ZIP archive written while
// it is made: entries are read from the stored content one after another,
// nothing is copied or kept on disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "items.h"

namespace plyth_services {

// One archive holds at most this many entries (files and folders) and this
// many bytes of content; a bigger request is refused before any byte is
// written (kErrArchiveTooLarge).
constexpr size_t kArchiveMaxEntries = 20000;
constexpr uint64_t kArchiveMaxBytes = 16ull << 30;

struct ArchiveEntry {
  std::string name;  // path inside the archive, UTF-8, "/"-separated
  Item item;
};

// The entries for `chosen` items of `folder` (each with everything below
// it; `folder` itself stands for all it holds), named relative to the
// folder, in path order, each item once.
// kErrArchiveTooLarge past the caps.
int ArchiveEntries(Store& store, const Item& folder, const std::vector<Item>& chosen,
                   std::vector<ArchiveEntry>* entries);

}  // namespace plyth_services
