#include "share_page.h"

#include <cctype>
#include <cstdio>
#include <map>
#include <vector>

#include "json_readers.h"
#include "page_output.h"
#include "plyth_http.h"
#include "web_resources.h"

namespace {

const char kShareTemplate[] = "/var/packages/BrindlexPlyth/target/webapi/plyth/shard/shard.html";
const char kFavicon[] = "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png";
const char kFileTypeIconDir[] = "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/FileType/64/";

// Extensions per icon category, searched in key order (so "ac3" is audio).
// The one-letter "c" never matches (too short).
// QUIRK: "  raw" and "mpg  " carry blanks, so raw and mpg files get the generic icon.
const std::map<std::string, std::vector<std::string>> kFileTypes = {
    {"acc", {"acc", "accdb", "accde", "accdr", "accdt", "ade", "adn", "adp", "mam", "maf",
             "maq", "mar", "mat", "mda", "mdb", "mde", "mdf", "mdn", "mdt", "mdw"}},
    {"ai", {"ai"}},
    {"audio", {"aac", "ac3", "aif", "ape", "cda", "dts", "flac", "m4a", "m4b", "mid",
               "mka", "mp2", "mp3", "mpc", "ogg", "pcm", "ra", "wav", "wma", "mp1",
               "mpa", "ram", "m4p", "aiff", "dsf", "dff", "m3u", "wpl"}},
    {"code", {"js", "actproj", "ad", "akp", "applescript", "as", "asax", "asc", "ascx",
              "asm", "asmx", "asp", "aspx", "asr", "bkpi", "c", "cc", "cpp", "cs", "css",
              "cxx", "jsx", "mhtml", "php", "xhtml", "xml"}},
    {"doc", {"doc", "docx", "rtf", "wri", "odt"}},
    {"exe", {"exe"}},
    {"fla", {"fla"}},
    {"htm", {"htm", "html"}},
    {"idn", {"idn", "indd"}},
    {"image", {"3fr", "arw", "bmp", "cr2", "crw", "dcr", "dng", "erf", "gif", "ico", "jpe",
               "jpeg", "jpg", "k25", "kdc", "mef", "mos", "mrw", "nef", "orf", "pef", "png",
               "ptx", "raf", "  raw", "rw2", "sr2", "srf", "tif", "tiff", "ufo", "x3f"}},
    {"iso", {"iso", "bin", "daa", "img", "mds", "nrg"}},
    {"pdf", {"pdf"}},
    {"ppt", {"ppt", "pps", "ppsx", "pptx", "odp"}},
    {"psd", {"psd"}},
    {"swf", {"swf", "f4v", "flv"}},
    {"ttf", {"ttf", "otf", "ttc"}},
    {"txt", {"txt"}},
    {"video", {"3g2", "3gp", "ac3", "amr", "asf", "avi", "dat", "divx", "dvr-ms",
               "ifo", "m1v", "m2t", "m2ts", "m2v", "m4v", "mkv", "mov", "mpe",
               "mpeg", "mpeg1", "mpeg2", "mpeg4", "mpg  ", "mp4", "mts", "ogv", "qt",
               "rm", "rmvb", "tp", "trp", "ts", "vob", "webm", "wmv", "xvid"}},
    {"xls", {"xls", "xla", "xlam", "xlb", "xlc", "xld", "xlk", "xll", "xlm", "xlsb", "xlsm",
             "xlsx", "xlt", "xltm", "xlv", "xlw", "xltx", "ods", "ots", "csv"}},
    {"zip", {"zip", "7z", "bz2", "gz", "rar", "tar", "tbz", "tgz", "txz"}},
};

std::string Tag(const char* format, const std::string& url) {
  char buffer[1024];
  snprintf(buffer, sizeof(buffer), format, url.c_str());
  return buffer;
}

std::string DesktopScripts(const std::string& lang) {
  char jsUIString[1024];
  char uiString[1024];
  // QUIRK: "version" and "method" stand in a different order in the two addresses.
  snprintf(jsUIString, sizeof(jsUIString),
           "webapi/entry.cgi?api=ZANT.Core.Desktop.JSUIString&version=1&method=getjs&lang=%s",
           lang.c_str());
  snprintf(uiString, sizeof(uiString),
           "webapi/entry.cgi?api=ZANT.Core.Desktop.UIString&method=getjs&version=1&lang=%s",
           lang.c_str());
  const char* const scripts[] = {
      "webapi/entry.cgi?api=ZANT.Core.Desktop.Defs&version=1&method=getjs",
      jsUIString,
      uiString,
      "scripts/ext-3/adapter/ext/ext-base.js",
      "scripts/ext-3/ext-all.js",
      "scripts/ext-3/ux/ux-all.js",
      "scripts/scrollbar/flexcroll.js",
      "webman/3rdparty/BrindlexPlyth-Plyth/public_share_base.js",
  };
  std::string tags;
  for (const char* src : scripts) tags += GetScriptTag(src, false);
  return tags;
}

// The page script of method getjs. The identifiers go in as they are: "%22"
// around each makes it a JSON string for the method's parameter parsing.
std::string PageScripts(const std::string& linkId, const std::string& sharingLink,
                        const std::string& nxoToken) {
  std::string url = "webapi/entry.cgi?api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs";
  url += "&permanent_link=%22" + linkId + "%22";
  if (!sharingLink.empty()) url += "&sharing_link=%22" + sharingLink + "%22";
  if (!nxoToken.empty()) url += "&ZantToken=" + nxoToken;
  return GetScriptTag(url.c_str(), true) +
         GetScriptTag("webman/3rdparty/BrindlexPlyth-Plyth/public_share.js", false);
}

std::string StyleSheets() {
  const char* const sheets[] = {
      "scripts/ext-3/resources/css/ext-all.css",
      "scripts/ext-3/resources/css/xtheme-gray.css",
      "scripts/ext-3/ux/ux-all.css",
      "webman/resources/css/desktop.css",
      "zantQRTjslib/qrt.css",
      "webman/3rdparty/BrindlexPlyth-Plyth/style.css",
  };
  std::string tags;
  for (const char* path : sheets) {
    std::string url = path;
    url += url.find('?') != std::string::npos ? "&" : "?";
    url += "v=" + GetWebFileModifyTime(path);
    tags += Tag("<link rel=\"stylesheet\" type=\"text/css\" href=\"%s\" />\n", url);
  }
  return tags;
}

}  // namespace

std::string FileIconCategory(const Json::Value& file) {
  if (MemberText(file, "type") == "dir") return "folder";
  std::string name = MemberText(file, "name");
  std::string extension;
  size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot + 1 < name.size()) extension = name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  if (extension.size() < 2) return "xxx";
  for (const auto& entry : kFileTypes) {
    for (const std::string& known : entry.second) {
      if (known == extension) return entry.first;
    }
  }
  return "xxx";
}

void ApplyCrawlerHost(ZANT::APIRequest* request) {
  std::string agent = EnvText(request, "HTTP_USER_AGENT");
  if (agent.empty()) return;
  Json::Value env(Json::objectValue);
  if (agent.find("facebookexternalhit") == std::string::npos) {
    request->InitEnv(env);
    return;
  }
  std::string host = EnvText(request, "HTTP_HOST");
  if (!host.empty() && host[0] == '[') {
    size_t bracket = host.find(']');
    if (bracket != std::string::npos && bracket + 1 < host.size() && host[bracket + 1] == ':') {
      return;
    }
    // QUIRK: a bracketed address without a port holds ":", so the test below skips it too.
  }
  if (host.find(':') != std::string::npos) return;
  env["HTTP_HOST"] = host + ":" + EnvText(request, "SERVER_PORT");
  request->InitEnv(env);
}

void WriteSharePage(ZANT::APIRequest* request, ZANT::APIResponse* response,
                    const std::string& linkId, const std::string& sharingLink,
                    const Json::Value& file, const std::string& nxoToken) {
  ApplyCrawlerHost(request);
  std::string category = FileIconCategory(file);
  std::string lang = request->GetUILanguage();

  Json::Value values(Json::objectValue);
  values["NXOJSFILE"] = DesktopScripts(lang);
  values["NODEJSFILE"] = PageScripts(linkId, sharingLink, nxoToken);
  values["CSS"] = StyleSheets();
  // Read after ApplyCrawlerHost, so that a crawler sees the port.
  values["NODE_URL"] = request->GetURLProto("") + "://" + EnvText(request, "HTTP_HOST") +
                       EnvText(request, "REQUEST_URI");
  values["NODE_TITLE"] = ZANT::WebAPIUtil::EncodeHtml(MemberText(file, "name"), false);

  std::string source;
  std::string baseURL;
  PlythGetBaseURL(request, source, baseURL);
  values["NODE_THUMB"] = baseURL + kFileTypeIconDir + category + ".png";
  values["TITLE"] = "Brindlex Plyth";
  values["FAVICON"] = kFavicon;

  RenderTemplatePage(response, kShareTemplate, values);
}
