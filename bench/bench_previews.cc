// The link service's previews and listings, in process: an image rendition
// made from the content (uncached) and read back from the cache, and one
// page of a folder of 1,000 items. Own program (plyth_bench_previews): the
// service objects carry record conversions that the shard benchmarks also
// link.
#include <unistd.h>
#include <vips/vips.h>

#include <cstdio>
#include <memory>

#include <benchmark/benchmark.h>

#include "harness.h"
#include "content_store.h"
#include "items.h"
#include "preview.h"
#include "services_api.h"
#include "store.h"
#include "zant/userdb.h"
#include "zant/webapi.h"

extern "C" ZANTAPITableEntry* GetAPITable();
extern "C" ZANTAPICheckEntry* GetAPICheckTable();

namespace {

using plyth_services::Item;

struct Fixture {
  plyth_test::ApplianceRoot root;
  std::unique_ptr<plyth_services::Store> store;
  Item photo;
  Item folder;
};
Fixture* gFixture = nullptr;

Item Add(const std::string& path, const std::string& content, int kind) {
  plyth_services::NewItem wanted;
  wanted.owner_name = "alice";
  wanted.owner_uid = 1026;
  wanted.path = path;
  wanted.kind = kind;
  if (kind == 0) {
    gFixture->root.WriteFile("/tmp/upload", content);
    plyth_services::StoreContent(gFixture->root.Host("/tmp/upload"), &wanted.hash, &wanted.size);
  }
  Item item;
  plyth_services::AddItem(*gFixture->store, wanted, &item);
  return item;
}

// A 3000 x 2000 photograph-sized JPEG with some texture to decode.
std::string Photo() {
  VIPS_INIT("bench");
  VipsImage* noise = nullptr;
  vips_gaussnoise(&noise, 3000, 2000, nullptr);
  VipsImage* bytes = nullptr;
  vips_cast(noise, &bytes, VIPS_FORMAT_UCHAR, nullptr);
  void* buffer = nullptr;
  size_t length = 0;
  vips_image_write_to_buffer(bytes, ".jpg", &buffer, &length, nullptr);
  std::string out(static_cast<char*>(buffer), length);
  g_free(buffer);
  g_object_unref(bytes);
  g_object_unref(noise);
  return out;
}

void Setup() {
  gFixture = new Fixture;
  std::string error;
  gFixture->store = plyth_services::Store::Open(&error);
  for (ZANTAPITableEntry* row = GetAPITable(); row->api != nullptr; ++row) {
    ZANT::APIRunner::Register(row->api, row->version, row->method, row->handler, nullptr);
  }
  gFixture->photo = Add("/photo.jpg", Photo(), 0);
  gFixture->folder = Add("/Big", "", 1);
  for (int i = 0; i < 1000; ++i) {
    char path[64];
    snprintf(path, sizeof(path), "/Big/%s%04d.%s", i % 10 == 0 ? "dir" : "file", i, i % 3 ? "txt" : "jpg");
    Add(path, "", i % 10 == 0 ? 1 : 0);
  }
}

void ImageRenditionUncached(benchmark::State& state) {
  const std::string cache = gFixture->root.Host(plyth_services::kPreviewCacheDir);
  std::string jpeg;
  for (auto _ : state) {
    state.PauseTiming();
    gFixture->root.Remove(plyth_services::kPreviewCacheDir);
    state.ResumeTiming();
    if (plyth_services::Rendition(gFixture->photo, plyth_services::PreviewKind::kImage, 512, 1, &jpeg) != 0) {
      state.SkipWithError("no rendition");
      break;
    }
  }
  state.counters["bytes"] = static_cast<double>(jpeg.size());
}
BENCHMARK(ImageRenditionUncached)->Name("preview/image_512_uncached")->Unit(benchmark::kMillisecond);

void ImageRenditionCached(benchmark::State& state) {
  std::string jpeg;
  plyth_services::Rendition(gFixture->photo, plyth_services::PreviewKind::kImage, 512, 1, &jpeg);
  for (auto _ : state) {
    if (plyth_services::Rendition(gFixture->photo, plyth_services::PreviewKind::kImage, 512, 1, &jpeg) != 0) {
      state.SkipWithError("no rendition");
      break;
    }
  }
}
BENCHMARK(ImageRenditionCached)->Name("preview/image_512_cached")->Unit(benchmark::kMicrosecond);

void ListThousand(benchmark::State& state) {
  Json::Value params(Json::objectValue);
  params["path"] = "id:" + gFixture->folder.file_id;
  params["offset"] = static_cast<int>(state.range(0));
  Json::Value result;
  for (auto _ : state) {
    ZANT::APIRunner::Exec(result, "ZANT.BrindlexPlyth.Files", 1, "list", params, "alice");
    if (!result["success"].asBool()) {
      state.SkipWithError("list failed");
      break;
    }
  }
}
BENCHMARK(ListThousand)->Name("list/folder_of_1000_page")->Arg(0)->Arg(800)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  plyth_test::FakeIdentity root(0, 0);
  Setup();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  gFixture->store.reset();
  delete gFixture;
  return 0;
}
