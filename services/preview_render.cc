#include "preview_render.h"

#include <vips/vips.h>

#include <algorithm>
#include <memory>

#include "preview.h"
#include "service_errors.h"

namespace plyth_services {

namespace {

// Which loader may open a rendition's source: a name says what it is, and
// the content must agree, so that no other decoder is reached through a
// misnamed file.
const char* const kImageLoaders[] = {"jpegload", "pngload", "gifload", "webpload", "heifload", "tiffload"};

// libvips once per process, kept small: one worker thread (the FastCGI
// workers are the parallelism) and no operation cache (the files are
// cached instead).
bool VipsReady() {
  static const bool ready = [] {
    if (VIPS_INIT("plyth-services") != 0) return false;
    // A damaged file is answered with an error code; its decoder's
    // warnings would only fill the server's log, once per thumbnail.
    g_log_set_handler("VIPS", G_LOG_LEVEL_WARNING, [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {},
                      nullptr);
    vips_concurrency_set(1);
    vips_cache_set_max(0);
    return true;
  }();
  return ready;
}

bool LoaderFits(const std::string& file, PreviewKind kind) {
  const char* loader = vips_foreign_find_load(file.c_str());
  if (loader == nullptr) {
    vips_error_clear();
    return false;
  }
  // The loader comes as its class name ("VipsForeignLoadJpegFile"); the
  // table holds nicknames ("jpegload").
  const char* nick = vips_nickname_find(g_type_from_name(loader));
  const std::string nickname = nick != nullptr ? nick : "";
  if (kind == PreviewKind::kPdf) return nickname == "pdfload";
  return std::any_of(std::begin(kImageLoaders), std::end(kImageLoaders),
                     [&](const char* allowed) { return nickname == allowed; });
}

struct Unref {
  void operator()(void* object) const {
    if (object) g_object_unref(object);
  }
};
using ImagePtr = std::unique_ptr<VipsImage, Unref>;

// Header only: the size to check before any pixel is decoded.
bool HeaderFits(const std::string& file, PreviewKind kind, int page, int* pages) {
  VipsImage* raw = kind == PreviewKind::kPdf
                       ? vips_image_new_from_file(file.c_str(), "page", page - 1, nullptr)
                       : vips_image_new_from_file(file.c_str(), "access", VIPS_ACCESS_SEQUENTIAL, nullptr);
  ImagePtr head(raw);
  if (!head) return false;
  if (pages != nullptr && (vips_image_get_typeof(head.get(), "n-pages") == 0 ||
                           vips_image_get_int(head.get(), "n-pages", pages) != 0)) {
    *pages = 1;
  }
  return static_cast<double>(head->Xsize) * head->Ysize <= kMaxPreviewPixels;
}

int Render(const std::string& file, PreviewKind kind, int size, int page, std::string* jpeg) {
  if (!HeaderFits(file, kind, page, nullptr)) return kErrNoPreview;
  // Load options ride on the file name, as libvips reads them.
  const std::string source = kind == PreviewKind::kPdf ? file + "[page=" + std::to_string(page - 1) + "]" : file;
  // Vector pages are drawn at the box's scale; pictures only ever shrink,
  // so that a rendition never holds more detail than was asked for.
  const VipsSize fit = kind == PreviewKind::kPdf ? VIPS_SIZE_BOTH : VIPS_SIZE_DOWN;
  VipsImage* raw = nullptr;
  if (vips_thumbnail(source.c_str(), &raw, size, "height", size, "size", fit, "fail-on", VIPS_FAIL_ON_ERROR,
                     nullptr) != 0) {
    return kErrNoPreview;
  }
  ImagePtr image(raw);
  if (vips_image_hasalpha(image.get())) {
    VipsArrayDouble* white = vips_array_double_newv(1, 255.0);
    VipsImage* flat = nullptr;
    const int rc = vips_flatten(image.get(), &flat, "background", white, nullptr);
    vips_area_unref(VIPS_AREA(white));
    if (rc != 0) return kErrNoPreview;
    image.reset(flat);
  }
  void* buffer = nullptr;
  size_t length = 0;
  if (vips_jpegsave_buffer(image.get(), &buffer, &length, "Q", 80, "strip", TRUE, nullptr) != 0) {
    return kErrNoPreview;
  }
  jpeg->assign(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return kOk;
}

// kOk, kErrNoPreview, or kErrStore when the library cannot start.
int SourceFits(const std::string& file, PreviewKind kind) {
  if (!VipsReady()) return kErrStore;
  return LoaderFits(file, kind) ? kOk : kErrNoPreview;
}

bool PdfPages(const std::string& file, int* pages) {
  const bool fits = HeaderFits(file, PreviewKind::kPdf, 1, pages);
  vips_error_clear();
  return fits;
}

int RenderClearing(const std::string& file, PreviewKind kind, int size, int page, std::string* jpeg) {
  const int rc = Render(file, kind, size, page, jpeg);
  vips_error_clear();
  return rc;
}

const RenderFunctions kFunctions = {SourceFits, RenderClearing, PdfPages};

}  // namespace

}  // namespace plyth_services

extern "C" __attribute__((visibility("default"))) const plyth_services::RenderFunctions* PlythRenderFunctions() {
  return &plyth_services::kFunctions;
}
