// Previews, folder listings and folder archives: who gets what, the exact
// answers, renditions that never exceed their box, the cache and its cap,
// paging, and archives read back entry by entry.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <vips/vips.h>

#include <clocale>
#include <filesystem>
#include <map>

#include "api_support.h"
#include "folder_zip.h"
#include "preview.h"
#include "services_api.h"
#include "services_fixture.h"

namespace services_test {
namespace {

using plyth_services::PreviewKind;

// An image of w x h pixels in the format of `suffix` (".png", ".jpg"...).
std::string Picture(int w, int h, int bands, const char* suffix) {
  VIPS_INIT("test");
  VipsImage* black = nullptr;
  EXPECT_EQ(vips_black(&black, w, h, "bands", bands, nullptr), 0);
  void* buffer = nullptr;
  size_t length = 0;
  EXPECT_EQ(vips_image_write_to_buffer(black, suffix, &buffer, &length, nullptr), 0);
  std::string bytes(static_cast<char*>(buffer), length);
  g_free(buffer);
  g_object_unref(black);
  return bytes;
}

// A PDF of empty 200 x 100 point pages, without a cross-reference table:
// the reader rebuilds it, which keeps the sample small.
std::string Pdf(int pages) {
  std::string kids, objects;
  for (int i = 0; i < pages; ++i) {
    kids += std::to_string(3 + i) + " 0 R ";
    objects += std::to_string(3 + i) + " 0 obj <</Type/Page/Parent 2 0 R/MediaBox[0 0 200 100]>> endobj\n";
  }
  return "%PDF-1.4\n1 0 obj <</Type/Catalog/Pages 2 0 R>> endobj\n2 0 obj <</Type/Pages/Kids[" + kids +
         "]/Count " + std::to_string(pages) + ">> endobj\n" + objects + "trailer <</Root 1 0 R>>\n%%EOF\n";
}

// Width and height of an encoded image; 0 x 0 when it does not decode.
std::pair<int, int> ImageSize(const std::string& bytes) {
  VipsImage* image = vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr);
  if (image == nullptr) return {0, 0};
  const std::pair<int, int> size{image->Xsize, image->Ysize};
  g_object_unref(image);
  return size;
}

// Entry names and contents of a ZIP.
std::map<std::string, std::string> Unzip(const std::string& zip) {
  std::map<std::string, std::string> entries;
  // The reader hands out names in the locale's character set.
  setlocale(LC_CTYPE, "C.UTF-8");
  struct archive* reader = archive_read_new();
  archive_read_support_format_zip(reader);
  EXPECT_EQ(archive_read_open_memory(reader, zip.data(), zip.size()), ARCHIVE_OK);
  archive_entry* entry;
  while (archive_read_next_header(reader, &entry) == ARCHIVE_OK) {
    std::string content;
    char buffer[4096];
    la_ssize_t got;
    while ((got = archive_read_data(reader, buffer, sizeof(buffer))) > 0) content.append(buffer, got);
    const char* name = archive_entry_pathname_utf8(entry);
    entries[name ? name : archive_entry_pathname(entry)] = content;
  }
  archive_read_free(reader);
  return entries;
}

class Previews : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    folder_ = AddItem("alice", "/Trip", "", true);
  }

  // A raw-answer method ("preview", "archive", "download") as a visitor, the
  // shared item named by its permanent link, the rest of `params` as given.
  plyth_test::HandlerRun Raw(ZANT::APIHandler handler, const char* method, const Item& shared, Json::Value params) {
    params["path"] = "link:" + shared.permanent_link;
    return RunFiles(handler, method, params);
  }
  static std::string Body(const plyth_test::HandlerRun& run) { return plyth_test::BodyOf(run.stdoutBytes); }
  // 0 when the method wrote its own answer.
  static int RawError(const plyth_test::HandlerRun& run) {
    return run.response.IsEnableOutput() ? run.response.GetErrorCode() : 0;
  }
  plyth_test::HandlerRun Preview(const Item& shared, const Json::Value& params) {
    return Raw(plyth_services::FilesPreviewFunc, "preview", shared, params);
  }
  Json::Value List(const Item& shared, Json::Value params) {
    params["path"] = "link:" + shared.permanent_link;
    return Call("ZANT.BrindlexPlyth.Files", "list", params, "anonymous");
  }
  void SetSize(const Item& item, int64_t size) {
    plyth_services::Statement grow(Db().Db(), "UPDATE items SET size = ?1 WHERE file_id = ?2");
    grow.Bind(1, size).Bind(2, item.file_id);
    ASSERT_TRUE(grow.Run());
  }
  void Open(const Item& item, Role role) {
    ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item, Visibility::kAnyone, role), 0);
  }
  Item folder_;
};

TEST(PreviewKinds, FollowTheNameAndTheRight) {
  struct Row { const char* name; bool canRead; PreviewKind kind; bool dir = false; } rows[] = {
      {.name = "a.JPG", .canRead = false, .kind = PreviewKind::kImage},
      {.name = "notes.md", .canRead = false, .kind = PreviewKind::kText},
      {.name = "song.mp3", .canRead = true, .kind = PreviewKind::kAudio},
      {.name = "README", .canRead = true, .kind = PreviewKind::kNone},
      {.name = "two.md markdown", .canRead = true, .kind = PreviewKind::kNone},
      {.name = "photos.jpg", .canRead = true, .kind = PreviewKind::kNone, .dir = true}};
  for (const Row& row : rows) {
    Item item;
    item.name = row.name;
    item.kind = row.dir ? 1 : 0;
    EXPECT_EQ(plyth_services::PreviewKindOf(item, row.canRead), row.kind) << row.name << " " << row.canRead;
  }
}

TEST(TextExcerpts, AreValidUtf8WithinTheLimit) {
  const std::string limit(plyth_services::kTextPreviewBytes - 1, 'a');
  struct Row { const char* what; std::string in; std::string out; } rows[] = {
      {.what = "plain", .in = "h\xC3\xA9llo\n", .out = "h\xC3\xA9llo\n"},
      {.what = "stray byte", .in = "a\xFF" "b", .out = "a\xEF\xBF\xBD" "b"},
      {.what = "overlong slash", .in = "\xC0\xAF", .out = "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {.what = "surrogate", .in = "\xED\xA0\x80", .out = "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {.what = "cut at the file's end", .in = "x\xE2\x82", .out = "x\xEF\xBF\xBD\xEF\xBF\xBD"},
      {.what = "character across the limit", .in = limit + "\xE2\x82\xAC" + "tail", .out = limit},
      {.what = "exactly the limit", .in = limit + "b" + "more", .out = limit + "b"}};
  for (const Row& row : rows) EXPECT_EQ(plyth_services::TextExcerpt(row.in), row.out) << row.what;
}

TEST_F(Previews, AnswerEachKindWithinItsBoxOrSayWhyNotForItemsBelowTheSharedFolderOnly) {
  const std::string original = Picture(1200, 400, 3, ".jpg");
  const Item photo = AddItem("alice", "/Trip/photo.jpg", original);
  const Item heic = AddItem("alice", "/Trip/phone.heic", Picture(640, 480, 3, ".heic"));
  const Item webp = AddItem("alice", "/Trip/web.webp", Picture(300, 600, 4, ".webp"));
  const Item doc = AddItem("alice", "/Trip/doc.pdf", Pdf(3));
  const Item notes = AddItem("alice", "/Trip/notes.txt", "day one\n");
  const Item song = AddItem("alice", "/Trip/song.mp3", "ID3 not really");
  const Item broken = AddItem("alice", "/Trip/broken.jpg", "\xFF\xD8\xFF garbage");
  // A PDF named .jpg: the loader must match the name's kind.
  const Item misnamed = AddItem("alice", "/Trip/misnamed.jpg", Pdf(1));
  // The store says 2 GiB; the content is never opened to find out.
  const Item huge = AddItem("alice", "/Trip/huge.jpg", Picture(64, 64, 3, ".jpg"));
  SetSize(huge, int64_t{2} << 30);
  Open(folder_, Role::kPreviewer);
  // `page` null: none given; `type` a success's Content-Type; `fits` a rendition's width and height.
  struct Row { const char* what; const Item* item; Json::Value size, page = Json::nullValue; int error = 0;
               const char* type = "image/jpeg"; std::pair<int, int> fits = {0, 0}; } rows[] = {
      {.what = "image", .item = &photo, .size = 128, .fits = {128, 43}},
      {.what = "never enlarged", .item = &photo, .size = 2048, .fits = {1200, 400}},
      {.what = "heic", .item = &heic, .size = 128, .fits = {128, 96}},
      {.what = "portrait webp", .item = &webp, .size = 256, .fits = {128, 256}},
      {.what = "pdf page 3", .item = &doc, .size = 256, .page = 3, .fits = {256, 128}},
      {.what = "text", .item = &notes, .size = Json::nullValue, .type = "text/plain; charset=utf-8"},
      {.what = "audio to a previewer", .item = &song, .size = 256, .error = 1060},
      {.what = "corrupt image", .item = &broken, .size = 256, .error = 1060},
      {.what = "pdf named .jpg", .item = &misnamed, .size = 256, .error = 1060},
      {.what = "past the size cap", .item = &huge, .size = 256, .error = 1060},
      {.what = "unknown size", .item = &photo, .size = 300, .error = 101},
      {.what = "page past the end", .item = &doc, .size = 256, .page = 4, .error = 1060},
      {.what = "page of an image", .item = &photo, .size = 256, .page = 2, .error = 101}};
  for (const Row& row : rows) {
    const plyth_test::HandlerRun run =
        Preview(folder_, Params({{"item", row.item->file_id}, {"size", row.size}, {"page", row.page}}));
    EXPECT_EQ(RawError(run), row.error) << row.what;
    if (row.error != 0) continue;
    const std::string body = Body(run);
    EXPECT_EQ(run.stdoutBytes, std::string("Status: 200 OK\r\nContent-Type: ") + row.type + "\r\nContent-Length: " +
                                   std::to_string(body.size()) + "\r\nCache-Control: private, max-age=3600\r\n"
                                   "X-Content-Type-Options: nosniff\r\n\r\n" + body) << row.what;
    EXPECT_NE(body, original) << row.what;
    if (row.item == &notes) { EXPECT_EQ(body, "day one\n"); }
    if (row.fits.first != 0) { EXPECT_EQ(ImageSize(body), row.fits) << row.what; }
  }

  // Items of a shared folder are those below it, in its owner's store.
  const Item inside = AddItem("alice", "/Trip/day/notes.txt", "inside");
  const Item others = AddItem("bob", "/Trip/notes.txt", "bob's");
  const Item binned = AddItem("alice", "/Trip/old.txt", "old");
  ASSERT_EQ(plyth_services::SetRemoved(Db(), binned, true), 0);
  const std::string token = TokenFor(Share(folder_, "", 0, Role::kViewer));
  struct Reach { const char* what; std::string item; int error; } reaches[] = {
      {.what = "below", .item = inside.file_id, .error = 0},
      {.what = "another owner's same path", .item = others.file_id, .error = 408},
      {.what = "in the recycle bin", .item = binned.file_id, .error = 408},
      {.what = "unknown", .item = "AAAAAAAAAAAAAAAA", .error = 408}};
  for (const Reach& row : reaches) {
    const plyth_test::HandlerRun run = Preview(folder_, Params({{"item", row.item}, {"sharing_token", token}}));
    EXPECT_EQ(RawError(run), row.error) << row.what;
    if (row.error == 0) { EXPECT_EQ(Body(run), "inside"); }
  }
}

TEST_F(Previews, AreCachedWithinTheCapAndInfoTellsTheViewerAndThePages) {
  const Item photo = AddItem("alice", "/photo.png", Picture(600, 600, 3, ".png"));
  Open(photo, Role::kPreviewer);
  const std::string first = Body(Preview(photo, Params({{"size", 256}})));
  const std::string file = std::string(plyth_services::kPreviewCacheDir) + "/" + photo.hash.substr(0, 2) + "/" +
                           photo.hash + "-256-1.jpg";
  EXPECT_EQ(root_.ReadFile(file), first);
  // A second answer comes from the file, as it stands.
  root_.WriteFile(file, "cached bytes");
  EXPECT_EQ(Body(Preview(photo, Params({{"size", 256}}))), "cached bytes");

  // Over the cap, the least recently used go first.
  const std::string dir = std::string(plyth_services::kPreviewCacheDir) + "/ab/";
  for (int i = 0; i < 4; ++i) {
    root_.WriteFile(dir + std::to_string(i), std::string(1000, 'x'));
    const timespec times[2] = {{1000 + i, 0}, {1000 + i, 0}};
    utimensat(AT_FDCWD, root_.Host(dir + std::to_string(i)).c_str(), times, 0);
  }
  plyth_services::PruneRenditionCache(3000);
  std::vector<bool> left;
  for (int i = 0; i < 4; ++i) left.push_back(access(root_.Host(dir + std::to_string(i)).c_str(), F_OK) == 0);
  EXPECT_EQ(left, (std::vector<bool>{false, false, true, true}));
  EXPECT_EQ(access(root_.Host(file).c_str(), F_OK), 0);

  // What the viewer needs to know first: the kind, and a PDF's pages.
  const Item doc = AddItem("alice", "/doc.pdf", Pdf(3));
  const Item bad = AddItem("alice", "/bad.pdf", "%PDF-1.4 nothing else");
  const Item clip = AddItem("alice", "/clip.webm", "webm");
  struct Row { const Item* item; Role role; const char* answer; } rows[] = {
      {.item = &doc, .role = Role::kPreviewer, .answer = R"({"kind":"pdf","pages":3,"text_limit":65536})"},
      {.item = &bad, .role = Role::kPreviewer, .answer = R"({"kind":"none","text_limit":65536})"},
      {.item = &clip, .role = Role::kViewer, .answer = R"({"kind":"video","text_limit":65536})"}};
  for (const Row& row : rows) {
    Open(*row.item, row.role);
    const Json::Value result =
        Call("ZANT.BrindlexPlyth.Files", "preview_info", Params({{"path", "link:" + row.item->permanent_link}}), "anonymous");
    EXPECT_EQ(ZANT::JsonToString(result["data"]), row.answer) << row.item->name;
  }
}

using Listings = Previews;

TEST_F(Listings, PutFoldersFirstThenNamesTellEachKindPageByTwoHundredAndGiveTheWayDown) {
  for (const char* path : {"/Trip/b.txt", "/Trip/A.jpg", "/Trip/zeta/x.txt", "/Trip/Beta/y.txt", "/Trip/clip.webm",
                           "/Trip/a.pdf", "/Trip/Caf\xC3\xA9 & \"<x>\".txt"})
    AddItem("alice", path, "x");
  for (int i = 1000; i <= 1200; ++i) AddItem("alice", "/Trip/in/deep/f" + std::to_string(i) + ".txt");
  ASSERT_EQ(plyth_services::SetRemoved(Db(), AddItem("alice", "/Trip/gone.txt", "x"), true), 0);
  Open(folder_, Role::kPreviewer);
  const Json::Value data = List(folder_, Json::objectValue)["data"];
  std::string names;
  for (const Json::Value& entry : data["items"]) names += entry["name"].asString() + (entry["type"] == "dir" ? "/ " : " ");
  EXPECT_EQ(names, "Beta/ in/ zeta/ A.jpg a.pdf b.txt Caf\xC3\xA9 & \"<x>\".txt clip.webm ");
  EXPECT_EQ(Pick(data, {"can_read", "offset", "page_size", "total"}),
            R"({"can_read":false,"offset":0,"page_size":200,"total":8})");
  EXPECT_EQ(Pick(data["items"][4], {"name", "type", "size", "preview"}),
            R"({"name":"a.pdf","preview":"pdf","size":1,"type":"file"})");
  EXPECT_EQ(data["items"][7]["preview"], "none") << "a previewer gets no player";

  const Item deep = Find("alice", "/Trip/in/deep");
  struct Row { int64_t offset; size_t count; const char* first; } rows[] = {
      {.offset = 0, .count = 200, .first = "f1000.txt"},
      {.offset = 200, .count = 1, .first = "f1200.txt"},
      {.offset = 201, .count = 0, .first = ""}};
  for (const Row& row : rows) {
    const Json::Value data = List(folder_, Params({{"item", deep.file_id}, {"offset", Json::Int64(row.offset)}}))["data"];
    EXPECT_EQ(data["items"].size(), row.count) << row.offset;
    EXPECT_EQ(data["items"][0]["name"].asString(), row.first) << row.offset;
    EXPECT_EQ(data["total"].asInt(), 201);
    std::string trail;
    for (const Json::Value& crumb : data["breadcrumbs"]) trail += crumb["name"].asString() + "/";
    EXPECT_EQ(trail, "Trip/in/deep/");
  }
  // Who may list is the shared item's access, as for every method.
  struct Refusal { const char* what; Json::Value offset; Json::Value item = Json::nullValue; int error; } refusals[] = {
      {.what = "negative offset", .offset = -1, .error = 101},
      {.what = "offset of another type", .offset = Json::arrayValue, .error = 101},
      {.what = "a file", .offset = 0, .item = Find("alice", "/Trip/in/deep/f1001.txt").file_id, .error = 1005}};
  for (const Refusal& row : refusals)
    EXPECT_EQ(ErrorCode(List(folder_, Params({{"offset", row.offset}, {"item", row.item}}))), row.error) << row.what;
}

using Archives = Previews;

TEST_F(Archives, HoldTheFolderOrTheSelectionWithUtf8NamesAndRefuseWhatTheyCannotCarry) {
  const Item notes = AddItem("alice", "/Trip/notes.txt", std::string(5000, 'n'));
  AddItem("alice", "/Trip/Caf\xC3\xA9/menu \"1\".txt", "soup");
  const Item photo = AddItem("alice", "/Trip/pics/a.jpg", "jpeg bytes");
  AddItem("alice", "/Trip/empty", "", true);
  ASSERT_EQ(plyth_services::SetRemoved(Db(), AddItem("alice", "/Trip/gone.txt", "x"), true), 0);
  const Item beside = AddItem("alice", "/Tripping/beside.txt", "no");
  const std::string token = TokenFor(Share(folder_));

  const Json::Value whole = Params({{"sharing_token", token}});
  const plyth_test::HandlerRun run = Raw(plyth_services::FilesArchiveFunc, "archive", folder_, whole);
  const std::string body = Body(run);
  EXPECT_EQ(run.stdoutBytes.substr(0, run.stdoutBytes.size() - body.size()),
            "Status: 200 OK\r\nContent-Type: application/zip\r\n"
            "Content-Disposition: attachment; filename=\"Trip.zip\"; filename*=UTF-8''Trip.zip\r\n"
            "X-Content-Type-Options: nosniff\r\n\r\n");
  EXPECT_EQ(Unzip(body), (std::map<std::string, std::string>{
                             {"Caf\xC3\xA9/", ""}, {"Caf\xC3\xA9/menu \"1\".txt", "soup"}, {"empty/", ""},
                             {"notes.txt", std::string(5000, 'n')}, {"pics/", ""}, {"pics/a.jpg", "jpeg bytes"}}));

  Json::Value chosen = whole;
  chosen["items"].append(notes.file_id);
  chosen["items"].append(Find("alice", "/Trip/pics").file_id);
  chosen["items"].append(photo.file_id);  // already inside pics: once
  EXPECT_EQ(Unzip(Body(Raw(plyth_services::FilesArchiveFunc, "archive", folder_, chosen))),
            (std::map<std::string, std::string>{
                {"notes.txt", std::string(5000, 'n')}, {"pics/", ""}, {"pics/a.jpg", "jpeg bytes"}}));

  const Item big = AddItem("alice", "/Trip/big.bin", "x");
  struct Row { const char* what; Json::Value items; Role role; int error; } rows[] = {
      {.what = "empty selection", .items = Json::arrayValue, .role = Role::kViewer, .error = 101},
      {.what = "selection of another type", .items = "x", .role = Role::kViewer, .error = 101},
      {.what = "an item not below", .items = Json::arrayValue, .role = Role::kViewer, .error = 408},
      {.what = "a previewer", .items = Json::nullValue, .role = Role::kPreviewer, .error = 1002}};
  rows[2].items.append(beside.file_id);
  for (const Row& row : rows) {
    const std::string given = row.role == Role::kViewer ? token : TokenFor(Share(folder_, "", 0, row.role));
    const Json::Value params = Params({{"sharing_token", given}, {"items", row.items}});
    EXPECT_EQ(RawError(Raw(plyth_services::FilesArchiveFunc, "archive", folder_, params)), row.error) << row.what;
  }
  // Past either cap nothing is written: the byte cap first, then the entry
  // cap (its rows made in one statement).
  auto expectNothingWritten = [&](const char* what) {
    const plyth_test::HandlerRun run = Raw(plyth_services::FilesArchiveFunc, "archive", folder_, whole);
    EXPECT_EQ(RawError(run), 1061) << what;
    EXPECT_EQ(run.stdoutBytes, "") << what;
  };
  SetSize(big, static_cast<int64_t>(plyth_services::kArchiveMaxBytes + 1));
  expectNothingWritten("bytes");
  SetSize(big, 1);
  ASSERT_TRUE(Db().Exec(
      ("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i <= " +
       std::to_string(plyth_services::kArchiveMaxEntries) +
       ") INSERT INTO items (file_id, parent_id, owner_uid, owner_name, path, display_path, name, kind,"
       " created_time, modified_time, access_time, change_time, permanent_link)"
       " SELECT printf('M%015d', i), '" + folder_.file_id + "', 1026, 'alice', printf('/Trip/many/%05d', i),"
       " printf('/Trip/many/%05d', i), printf('%05d', i), 0, 0, 0, 0, 0, printf('L%015d', i) FROM n")
          .c_str()));
  expectNothingWritten("entries");
}

// The link service loads the ZIP writer (and the rendering library) from
// beside its own library; here that is beside the test program, where none is.
TEST(LibraryBeside, AMissingOneIsNullAndLoggedWithTheLoadersReason) {
  plyth_test::SyslogCapture syslog;
  EXPECT_EQ(plyth_services::LoadedTable<plyth_services::ZipFunctions>(nullptr, "../plyth/zip.so",
                                                                      "PlythZipFunctions", "archives"),
            nullptr);
  const std::string dir = std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
  EXPECT_EQ(syslog.Lines(), (std::vector<plyth_test::SyslogLine>{
                                {LOG_ERR, "plyth-services: no archives: " + dir +
                                              "/../plyth/zip.so: cannot open shared object file: No such file or directory"}}));
}

}  // namespace
}  // namespace services_test
