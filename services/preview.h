// Renditions of shared items for viewers that may preview them: images and
// PDF pages scaled into a box and re-encoded, the opening text of text
// files, and which viewer an item gets.
#pragma once

#include <cstdint>
#include <string>

#include "items.h"

namespace plyth_services {

// What a viewer can show of an item. Audio and video are played from the
// content itself, so only callers who may read get them.
enum class PreviewKind { kNone, kImage, kPdf, kText, kAudio, kVideo };

PreviewKind PreviewKindOf(const Item& item, bool canRead);
// "none", "image", "pdf", "text", "audio", "video".
const char* PreviewKindName(PreviewKind kind);

// The boxes a rendition may be asked for (width and height at most this).
constexpr int kPreviewSizes[] = {128, 256, 512, 1024, 2048};
bool IsPreviewSize(int64_t size);
// Images and PDFs larger than this, or with more pixels than
// kMaxPreviewPixels, get no rendition (the viewer shows the type icon).
constexpr uint64_t kMaxPreviewSource = 256ull << 20;
constexpr double kMaxPreviewPixels = 100e6;
// Text previews carry at most this much of the start of the file.
constexpr size_t kTextPreviewBytes = 64 * 1024;
// Appliance path of the rendition cache and the most it may hold; past
// the cap the least recently used renditions go first.
extern const char kPreviewCacheDir[];  // "/var/packages/BrindlexPlyth/target/var/cache/previews"
constexpr uint64_t kPreviewCacheCap = 256ull << 20;

// The first kTextPreviewBytes of `bytes` as valid UTF-8: cut before a
// character the limit would split, bytes that are not UTF-8 become U+FFFD.
std::string TextExcerpt(const std::string& bytes);

// The JPEG rendition of page `page` (1 for images) of a stored item of
// kind image or pdf, fitted into size x size, from the cache or made and
// cached. kOk, kErrNoPreview (damaged, empty, too large, of another format
// than its name says, or no such page) or kErrStore.
int Rendition(const Item& item, PreviewKind kind, int size, int page, std::string* jpeg);

// Pages of a stored PDF: kOk or kErrNoPreview.
int PdfPageCount(const Item& item, int* pages);

// Makes room in the cache: removes the least recently used renditions
// until it holds at most `cap` bytes (kept at cap / 10 * 9 when it prunes).
void PruneRenditionCache(uint64_t cap);

}  // namespace plyth_services
