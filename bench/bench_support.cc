#include "bench_support.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

namespace plyth_bench {

const char kPermanentLink[] = "Qm7xLp2Vd9KfT4nA";
const char kSharingLink[] = "Hs4Wq8ZcR1yUe6Jb";
const char kSharingToken[] = "t8PZk2mWq5RbN0xYc3LfV7hJd1sGa9EuQo4TnKi6Bw2";
const char kDesktopAgent[] =
    "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) "
    "Chrome/120.0.0.0 Safari/537.36";
const char kPhoneAgent[] =
    "Mozilla/5.0 (iPhone; CPU iPhone OS 16_6 like Mac OS X) AppleWebKit/605.1.15 "
    "(KHTML, like Gecko) Version/16.6 Mobile/15E148 Safari/604.1";

namespace {

std::unique_ptr<plyth_test::ApplianceRoot>& RootSlot() {
  static std::unique_ptr<plyth_test::ApplianceRoot> root;
  return root;
}

// The configuration a new appliance root gets (as scripts/mkroot writes it).
void WriteDefaults(const plyth_test::ApplianceRoot& root) {
  root.WriteFile("/etc/zantinfo.conf", "nxo_http_port=\"5000\"\nnxo_https_port=\"5001\"\n");
  root.WriteFile("/etc.defaults/zantinfo.conf", "supportddns=\"no\"\n");
  root.WriteFile("/usr/zant/etc/security.conf", "# defaults\n");
  root.WriteFile("/usr/zant/etc/date_time_format",
                 "{\"date_format\": \"Y-m-d\", \"time_format\": \"H:i\"}\n");
  root.WriteFile("/var/packages/BrindlexPlyth/target/etc/syncfolder.debug",
                 "default_component=error\n");
  root.WriteFile("/usr/zant/etc/users", "alice:1026:100:Alice:/home/alice::\n");
  root.MakeDir("/var/log");
  root.MakeDir("/var/packages/BrindlexPlyth/target/var/log");
}

}  // namespace

void SetupRoot() {
  // The module takes its web root from these once per process; without
  // them it is the appliance's own, under the benchmark's root.
  unsetenv("DOCUMENT_ROOT");
  unsetenv("SCRIPT_FILENAME");
  unsetenv("USERNAME");
  RootSlot() = std::make_unique<plyth_test::ApplianceRoot>();
  std::filesystem::copy(PLYTH_BENCH_WEB_ROOT, RootSlot()->Host(""),
                        std::filesystem::copy_options::recursive |
                            std::filesystem::copy_options::overwrite_existing);
  WriteDefaults(*RootSlot());
}

void TeardownRoot() { RootSlot().reset(); }

const plyth_test::ApplianceRoot& Root() { return *RootSlot(); }

StdoutToDevNull::StdoutToDevNull() {
  fflush(stdout);
  saved_ = dup(STDOUT_FILENO);
  int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null >= 0) {
    dup2(null, STDOUT_FILENO);
    close(null);
  }
}

StdoutToDevNull::~StdoutToDevNull() {
  fflush(stdout);
  if (saved_ >= 0) {
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }
}

ZANT::APIRequest LinkRequest(const std::string& method, const std::string& uri,
                             const char* userAgent) {
  const std::string webRoot = Root().Host("/usr/zant/zantman");
  ZANT::APIRequest request;
  request.SetAPI("ZANT.BrindlexPlyth.Shard", 1, method);
  request.SetServerVar("HTTP_HOST", "127.0.0.1:8080");
  request.SetServerVar("HOST", "127.0.0.1");
  request.SetServerVar("HTTP_USER_AGENT", userAgent);
  request.SetServerVar("HTTP_ACCEPT", "text/html,application/xhtml+xml,*/*;q=0.8");
  request.SetServerVar("HTTP_ACCEPT_LANGUAGE", "en-US,en;q=0.9");
  request.SetServerVar("REQUEST_METHOD", "GET");
  request.SetServerVar("REQUEST_SCHEME", "http");
  request.SetServerVar("REQUEST_URI", uri);
  request.SetServerVar("SERVER_ADDR", "127.0.0.1");
  request.SetServerVar("SERVER_PORT", "8080");
  request.SetServerVar("SERVER_NAME", "127.0.0.1");
  request.SetServerVar("REMOTE_ADDR", "127.0.0.1");
  request.SetServerVar("REMOTE_PORT", "51234");
  request.SetServerVar("DOCUMENT_ROOT", webRoot);
  request.SetServerVar("SCRIPT_FILENAME", webRoot + "/webapi/entry.cgi");
  return request;
}

Json::Value FileRecord(const std::string& displayPath) {
  Json::Value file(Json::objectValue);
  file["file_id"] = "aZ3kP9sT1vX7bN2q";
  file["path"] = "/Annual report.pdf";
  file["nxo_path"] = "";
  file["display_path"] = displayPath;
  file["original_path"] = "";
  file["name"] = "Annual report.pdf";
  file["type"] = "file";
  file["parent_id"] = "";
  file["created_time"] = 1700000000;
  file["access_time"] = 1700000000;
  file["modified_time"] = 1700003600;
  file["change_time"] = 1700003600;
  file["size"] = 482133;
  Json::Value& caps = file["capabilities"];
  caps["can_preview"] = true;
  caps["can_read"] = true;
  for (const char* key : {"can_write", "can_delete", "can_rename", "can_comment", "can_share",
                          "can_encrypt", "can_organize"}) {
    caps[key] = false;
  }
  file["version_id"] = "4711";
  file["sync_id"] = 4711;
  file["max_id"] = 4711;
  for (const char* key : {"removed", "encrypted", "starred", "shared", "sync_to_device"}) {
    file[key] = false;
  }
  file["adv_shared"] = true;
  file["shared_with"] = Json::Value(Json::arrayValue);
  file["properties"] = Json::Value(Json::objectValue);
  file["app_properties"] = Json::Value(Json::objectValue);
  file["owner"]["display_name"] = "Alice";
  file["owner"]["name"] = "alice";
  file["owner"]["uid"] = 1026;
  file["permanent_link"] = kPermanentLink;
  file["labels"] = Json::Value(Json::arrayValue);
  file["hash"] = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";
  file["content_snippet"] = "";
  file["revisions"] = 1;
  file["content_type"] = "application/pdf";
  file["image_metadata"]["time"] = 0;
  return file;
}

Tarnova::FileInfo FullFileInfo() {
  Tarnova::FileInfo info;
  info.file_id = "aZ3kP9sT1vX7bN2q";
  info.path = "/projects/2024/Annual report.pdf";
  info.nxo_path = "/volume1/homes/alice/Plyth/projects/2024/Annual report.pdf";
  info.display_path = "/mydrive/projects/2024/Annual report.pdf";
  info.original_path = "/old/Annual report.pdf";
  info.name = "Annual report.pdf";
  info.kind = Tarnova::FileInfo::kFile;
  info.parent_id = "bY4mQ8rU2wZ6cM1p";
  info.created_time = 1700000000;
  info.access_time = 1700000100;
  info.modified_time = 1700003600;
  info.change_time = 1700003601;
  info.size = 482133;
  info.capabilities.can_preview = true;
  info.capabilities.can_read = true;
  info.capabilities.can_comment = true;
  info.sync_id = 4711;
  info.max_id = 4720;
  info.shared = true;
  info.adv_shared = true;
  info.shared_with = {{"p1", "user", "bob", "viewer", true},
                      {"p2", "group", "staff", "editor", false}};
  info.properties = "{\"color\":\"blue\",\"pinned\":true,\"tags\":[\"finance\",\"2024\"]}";
  info.app_properties = "{\"office\":{\"last_editor\":\"bob\"}}";
  info.owner = {"Alice", "alice", 1026};
  info.permanent_link = kPermanentLink;
  info.labels = {{"L1", "urgent", "red", 3}, {"L2", "finance", "green", 7}};
  info.hash = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";
  info.content_snippet = "Annual report of the year";
  info.revisions = 12;
  info.content_type = "application/pdf";
  info.image_time = 0;
  return info;
}

bool CheckAnswer(benchmark::State& state, ZANT::APIHandler handler,
                 const ZANT::APIRequest& request, const std::string& expected,
                 const std::string& unwanted) {
  ZANT::APIRequest copy = request;
  plyth_test::HandlerRun run = plyth_test::RunHandler(handler, copy);
  std::string problem;
  if (run.answer.find(expected) == std::string::npos) {
    problem = "answer lacks \"" + expected + "\"";
  } else if (!unwanted.empty() && run.answer.find(unwanted) != std::string::npos) {
    problem = "answer holds \"" + unwanted + "\"";
  } else {
    return true;
  }
  state.SkipWithError(problem.c_str());
  return false;
}

void LoopHandler(benchmark::State& state, ZANT::APIHandler handler,
                 const ZANT::APIRequest& request) {
  StdoutToDevNull quiet;
  for (auto _ : state) {
    ZANT::APIRequest copy = request;
    ZANT::APIResponse response;
    {
      ZANT::CurrentRequestScope current(&copy);
      handler(&copy, &response);
    }
    if (response.IsEnableOutput()) {
      const std::string answer = ZANT::FormatFrameworkAnswer(response);
      fwrite(answer.data(), 1, answer.size(), stdout);
      fflush(stdout);
    }
    benchmark::DoNotOptimize(response);
  }
}

}  // namespace plyth_bench
