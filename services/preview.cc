#include "preview.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "api_support.h"
#include "download.h"
#include "preview_render.h"
#include "service_errors.h"
#include "store.h"
#include "zant/appliance.h"

namespace plyth_services {

const char kPreviewCacheDir[] = "/var/packages/BrindlexPlyth/target/var/cache/previews";

namespace {

// Relative to the directory of the link service's library.
const char kRenderLibrary[] = "../plyth/render.so";

struct KindRow {
  PreviewKind kind;
  const char* name;
  const char* extensions;  // blank-separated, with blanks at both ends
};
const KindRow kKinds[] = {
    {PreviewKind::kImage, "image", " jpg jpeg jpe png gif webp heic heif avif tif tiff "},
    {PreviewKind::kPdf, "pdf", " pdf "},
    {PreviewKind::kText, "text",
     " txt md markdown csv tsv log json xml yaml yml ini conf cfg css js ts html htm c cc cpp h hpp py sh rb go rs java sql "},
    {PreviewKind::kAudio, "audio", " mp3 wav ogg oga m4a aac flac opus "},
    {PreviewKind::kVideo, "video", " mp4 m4v webm ogv mov "},
};

// The lower-cased text after the last dot; none when it holds a blank,
// which the blank-separated tables would otherwise match across entries.
std::string Extension(const std::string& name) {
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot + 1 == name.size() || name.find(' ', dot) != std::string::npos) return "";
  std::string extension = name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return extension;
}

// The rendering library: linked into the program, or loaded from beside
// the library this code is in, once.
const RenderFunctions* Renderer() {
  static const RenderFunctions* const functions =
      LoadedTable(PlythRenderFunctions, kRenderLibrary, "PlythRenderFunctions", "renditions");
  return functions;
}

// Opens the source of a rendition after the checks every one of them
// passes: stored, not empty, not too large, and of the format its name says.
int CheckSource(const Item& item, PreviewKind kind, std::string* file) {
  if (kind != PreviewKind::kImage && kind != PreviewKind::kPdf) return kErrNoPreview;
  if (item.size == 0 || item.size > kMaxPreviewSource) return kErrNoPreview;
  if (Renderer() == nullptr) return kErrStore;
  *file = Store::ContentFile(item.hash);
  if (access(file->c_str(), R_OK) != 0) return kErrStore;
  return Renderer()->sourceFits(*file, kind);
}

std::string CacheFile(const Item& item, int size, int page) {
  return ZANT::RootPath(kPreviewCacheDir) + "/" + item.hash.substr(0, 2) + "/" + item.hash + "-" +
         std::to_string(size) + "-" + std::to_string(page) + ".jpg";
}

bool ReadWhole(const std::string& file, std::string* bytes) {
  FILE* in = fopen(file.c_str(), "rb");
  if (in == nullptr) return false;
  bytes->clear();
  char buffer[65536];
  size_t got;
  while ((got = fread(buffer, 1, sizeof(buffer), in)) > 0) bytes->append(buffer, got);
  const bool ok = ferror(in) == 0;
  fclose(in);
  return ok;
}

// Best effort: a cache that cannot be written (a full disk, say) only
// costs the next visitor the rendering again.
void Keep(const std::string& file, const std::string& bytes) {
  const std::string dir = file.substr(0, file.rfind('/'));
  MakeDirs(dir);
  std::string temp = dir + "/.tmp-XXXXXX";
  int fd = mkstemp(&temp[0]);
  if (fd < 0) return;
  bool ok = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  ok = close(fd) == 0 && ok;
  if (!ok || rename(temp.c_str(), file.c_str()) != 0) {
    unlink(temp.c_str());
    return;
  }
  PruneRenditionCache(kPreviewCacheCap);
}

struct Cached {
  std::string file;
  int64_t used;
  uint64_t size;
};

void CollectCache(const std::string& dir, int depth, std::vector<Cached>* files) {
  DIR* listing = opendir(dir.c_str());
  if (listing == nullptr) return;
  while (dirent* entry = readdir(listing)) {
    if (entry->d_name[0] == '.') continue;
    const std::string path = dir + "/" + entry->d_name;
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) continue;
    if (S_ISDIR(info.st_mode) && depth == 0) {
      CollectCache(path, 1, files);
    } else if (S_ISREG(info.st_mode)) {
      files->push_back({path, static_cast<int64_t>(info.st_mtime), static_cast<uint64_t>(info.st_size)});
    }
  }
  closedir(listing);
}

}  // namespace

PreviewKind PreviewKindOf(const Item& item, bool canRead) {
  if (item.kind != 0) return PreviewKind::kNone;
  const std::string extension = Extension(item.name);
  if (extension.empty()) return PreviewKind::kNone;
  for (const KindRow& row : kKinds) {
    if (strstr(row.extensions, (" " + extension + " ").c_str()) == nullptr) continue;
    const bool played = row.kind == PreviewKind::kAudio || row.kind == PreviewKind::kVideo;
    return played && !canRead ? PreviewKind::kNone : row.kind;
  }
  return PreviewKind::kNone;
}

const char* PreviewKindName(PreviewKind kind) {
  for (const KindRow& row : kKinds) {
    if (row.kind == kind) return row.name;
  }
  return "none";
}

bool IsPreviewSize(int64_t size) {
  return std::find(std::begin(kPreviewSizes), std::end(kPreviewSizes), size) != std::end(kPreviewSizes);
}

std::string TextExcerpt(const std::string& bytes) {
  static const char kReplacement[] = "\xEF\xBF\xBD";
  const size_t limit = std::min(bytes.size(), kTextPreviewBytes);
  std::string out;
  out.reserve(limit);
  size_t i = 0;
  while (i < limit) {
    const unsigned char lead = static_cast<unsigned char>(bytes[i]);
    size_t length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
    bool valid = length > 0 && !(lead == 0xC0 || lead == 0xC1 || lead > 0xF4);
    if (valid && i + length > limit) {
      // A character the limit would cut, or the end of a shorter file.
      if (limit < bytes.size()) break;
      valid = false;
    }
    for (size_t k = 1; valid && k < length; ++k) {
      valid = (static_cast<unsigned char>(bytes[i + k]) & 0xC0) == 0x80;
    }
    if (valid && length >= 3) {
      const unsigned char second = static_cast<unsigned char>(bytes[i + 1]);
      // Overlong forms, UTF-16 surrogates and code points past U+10FFFF.
      if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
          (lead == 0xF4 && second > 0x8F)) {
        valid = false;
      }
    }
    if (valid) {
      out.append(bytes, i, length);
      i += length;
    } else {
      out += kReplacement;
      i += 1;
    }
  }
  return out;
}

int Rendition(const Item& item, PreviewKind kind, int size, int page, std::string* jpeg) {
  if (kind != PreviewKind::kImage && kind != PreviewKind::kPdf) return kErrNoPreview;
  // Only renditions that passed every check are kept, under the content's
  // hash: a kept one needs no second look at its source.
  const std::string cached = CacheFile(item, size, page);
  if (ReadWhole(cached, jpeg)) {
    utimensat(AT_FDCWD, cached.c_str(), nullptr, 0);  // most recently used
    return kOk;
  }
  std::string source;
  int rc = CheckSource(item, kind, &source);
  if (rc != kOk) return rc;
  rc = Renderer()->render(source, kind, size, page, jpeg);
  if (rc == kOk) Keep(cached, *jpeg);
  return rc;
}

int PdfPageCount(const Item& item, int* pages) {
  std::string source;
  int rc = CheckSource(item, PreviewKind::kPdf, &source);
  if (rc != kOk) return rc;
  return Renderer()->pdfPages(source, pages) ? kOk : kErrNoPreview;
}

void PruneRenditionCache(uint64_t cap) {
  std::vector<Cached> files;
  CollectCache(ZANT::RootPath(kPreviewCacheDir), 0, &files);
  uint64_t total = 0;
  for (const Cached& file : files) total += file.size;
  if (total <= cap) return;
  std::sort(files.begin(), files.end(), [](const Cached& a, const Cached& b) { return a.used < b.used; });
  const uint64_t keep = cap / 10 * 9;
  for (const Cached& file : files) {
    if (total <= keep) break;
    if (unlink(file.file.c_str()) == 0) total -= file.size;
  }
}

}  // namespace plyth_services
