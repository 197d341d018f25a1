// The ZIP writing behind folder archives. It lives in a library of its own
// (usr/zant/lib/plyth/zip.so), loaded by the link service the first time a
// process writes an archive: the archive library and the ten libraries it
// needs would otherwise be loaded, relocated and initialised by every
// process that loads the link service, a one-shot entry.cgi included,
// although only a folder download ever writes a ZIP.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "folder_archive.h"

namespace plyth_services {

struct ZipFunctions {
  // Writes the ZIP of `entries` to `out`, each file's content read from
  // `contentFile(hash)`. False when writing or reading failed part-way (the
  // visitor gets a cut archive, which unzip tools reject).
  bool (*write)(FILE* out, const std::vector<ArchiveEntry>& entries,
                std::string (*contentFile)(const std::string& hash));
};

}  // namespace plyth_services

// Linked into a program (the tests) or found in zip.so: weak, so that in the
// link service's library it is null.
extern "C" __attribute__((weak)) const plyth_services::ZipFunctions* PlythZipFunctions();
