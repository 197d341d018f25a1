#include "folder_zip.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace plyth_services {

namespace {

// Content that deflate would only make slower, stored as it is.
const char kStoredExtensions[] = " jpg jpeg png gif webp heic mp3 mp4 m4a m4v mov webm ogg zip gz 7z docx xlsx pptx ";

bool IsCompressed(const std::string& name) {
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || name.find(' ', dot) != std::string::npos) return false;
  std::string extension = name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return std::string(kStoredExtensions).find(" " + extension + " ") != std::string::npos;
}

la_ssize_t WriteOut(struct archive*, void* client, const void* buffer, size_t length) {
  FILE* out = static_cast<FILE*>(client);
  return fwrite(buffer, 1, length, out) == length ? static_cast<la_ssize_t>(length) : -1;
}

struct ArchiveFree {
  void operator()(struct archive* a) const { archive_write_free(a); }
};
struct EntryFree {
  void operator()(archive_entry* e) const { archive_entry_free(e); }
};

bool WriteContent(struct archive* zip, const std::string& file, uint64_t size) {
  FILE* in = fopen(file.c_str(), "rb");
  if (in == nullptr) return false;
  char buffer[65536];
  size_t got;
  uint64_t left = size;
  bool ok = true;
  while (ok && left > 0 && (got = fread(buffer, 1, std::min<uint64_t>(sizeof(buffer), left), in)) > 0) {
    ok = archive_write_data(zip, buffer, got) == static_cast<la_ssize_t>(got);
    left -= got;
  }
  fclose(in);
  return ok && left == 0;
}

bool WriteZip(FILE* out, const std::vector<ArchiveEntry>& entries,
              std::string (*contentFile)(const std::string& hash)) {
  std::unique_ptr<struct archive, ArchiveFree> zip(archive_write_new());
  // Names are UTF-8 in the store and marked as UTF-8 in the archive.
  if (archive_write_set_format_zip(zip.get()) != ARCHIVE_OK ||
      archive_write_set_options(zip.get(), "zip:hdrcharset=UTF-8") != ARCHIVE_OK ||
      archive_write_set_bytes_in_last_block(zip.get(), 1) != ARCHIVE_OK ||
      archive_write_open(zip.get(), out, nullptr, WriteOut, nullptr) != ARCHIVE_OK) {
    return false;
  }
  std::unique_ptr<archive_entry, EntryFree> header(archive_entry_new());
  for (const ArchiveEntry& entry : entries) {
    const bool dir = entry.item.kind == 1;
    archive_entry_clear(header.get());
    archive_entry_set_pathname_utf8(header.get(), dir ? (entry.name + "/").c_str() : entry.name.c_str());
    archive_entry_set_filetype(header.get(), dir ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(header.get(), dir ? 0755 : 0644);
    archive_entry_set_mtime(header.get(), entry.item.modified_time, 0);
    archive_entry_set_size(header.get(), dir ? 0 : static_cast<la_int64_t>(entry.item.size));
    if (IsCompressed(entry.name)) {
      archive_write_zip_set_compression_store(zip.get());
    } else {
      archive_write_zip_set_compression_deflate(zip.get());
    }
    if (archive_write_header(zip.get(), header.get()) != ARCHIVE_OK) return false;
    if (!dir && !WriteContent(zip.get(), contentFile(entry.item.hash), entry.item.size)) return false;
  }
  const bool closed = archive_write_close(zip.get()) == ARCHIVE_OK;
  fflush(out);
  return closed;
}

const ZipFunctions kFunctions = {WriteZip};

}  // namespace

}  // namespace plyth_services

extern "C" __attribute__((visibility("default"))) const plyth_services::ZipFunctions* PlythZipFunctions() {
  return &plyth_services::kFunctions;
}
