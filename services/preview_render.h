// The image decoding and encoding behind the renditions of previews. It
// lives in a library of its own (usr/zant/lib/plyth/render.so), loaded by
// the link service the first time a rendition is made: the image library
// and the hundred libraries it needs would otherwise be loaded, relocated
// and initialised by every process that loads the link service, a one-shot
// entry.cgi included, and held in every worker's memory.
#pragma once

#include <string>

namespace plyth_services {

enum class PreviewKind;

struct RenderFunctions {
  // kOk; kErrNoPreview when no loader may open `file` as `kind`; kErrStore
  // when the library cannot start.
  int (*sourceFits)(const std::string& file, PreviewKind kind);
  // kOk, kErrNoPreview.
  int (*render)(const std::string& file, PreviewKind kind, int size, int page, std::string* jpeg);
  // The page count of a PDF whose first page fits; false otherwise.
  bool (*pdfPages)(const std::string& file, int* pages);
};

}  // namespace plyth_services

// Linked into a program (the tests, the benchmarks) or found in render.so:
// weak, so that in the link service's library it is null.
extern "C" __attribute__((weak)) const plyth_services::RenderFunctions* PlythRenderFunctions();
