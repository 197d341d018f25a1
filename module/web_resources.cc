#include "web_resources.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include "zant/appliance.h"
#include "zant/file_cache.h"

namespace {

const char kDefaultWebDir[] = "/usr/zant/zantman/";

// Set once per process: the web server's document root and the running
// script's path, from the CGI environment of the first request.
struct WebDirs {
  std::string documentRoot;
  std::string scriptDir;
  std::mutex scriptDirLock;
};

std::string EnvOrDefault(const char* name) {
  const char* value = std::getenv(name);
  if (value != nullptr) return value;
  return ZANT::RootPath(kDefaultWebDir);
}

WebDirs& Dirs() {
  static WebDirs* dirs = [] {
    auto* d = new WebDirs;
    d->documentRoot = EnvOrDefault("DOCUMENT_ROOT");
    d->scriptDir = EnvOrDefault("SCRIPT_FILENAME");
    return d;
  }();
  return *dirs;
}

// Cuts the script path down to the web-UI root: first to its directory,
// then to what stands before "webapi/". The result is stored back and the
// cut runs again on every call. A directory such as ".../xwebapi/" is cut to
// ".../x" by the second step and to ".../" by the next call's first step.
// QUIRK: that drift is how resources have always resolved.
std::string TrimScriptDir() {
  WebDirs& dirs = Dirs();
  std::lock_guard<std::mutex> lock(dirs.scriptDirLock);
  std::string& dir = dirs.scriptDir;
  if (dir.empty() || dir.back() != '/') {
    size_t slash = dir.rfind('/');
    dir.erase(slash == std::string::npos ? 0 : slash + 1);
  }
  size_t webapi = dir.find("webapi/");
  if (webapi != std::string::npos) dir.erase(webapi);
  return dir;
}

}  // namespace

std::string GetWebFileModifyTime(const char* name) {
  std::string scriptDir = TrimScriptDir();
  std::string file = name != nullptr ? name : "";
  size_t query = file.rfind('?');
  if (query != std::string::npos) file.erase(query);

  std::string path;
  if (file.empty()) {
    path = scriptDir;
  } else if (file[0] == '/') {
    path = Dirs().documentRoot + file;
  } else if (file.find("webman/") != std::string::npos &&
             file.find("webapi/") != std::string::npos) {
    // QUIRK: a name with both words (not either) is taken relative to the working directory.
    path = file;
  } else {
    path = scriptDir + file;
  }

  struct stat st;
  long long seconds = ZANT::FileCache::Stat(path, &st) ? static_cast<long long>(st.st_mtime)
                                                   : static_cast<long long>(time(nullptr));
  return std::to_string(seconds);
}

std::string GetScriptTag(const char* src, bool noCache) {
  std::string url = src != nullptr ? src : "";
  url += url.find('?') != std::string::npos ? "&" : "?";
  url += "v=" + GetWebFileModifyTime(src);
  if (noCache) url += "&_dc=" + std::to_string(static_cast<long long>(time(nullptr)));

  char tag[1024];
  snprintf(tag, sizeof(tag), "<script type=\"text/javascript\" src=\"%s\"></script>\n",
           url.c_str());
  return tag;
}
