// Pages bypass the framework's JSON output: CGI headers and the filled
// template go straight to standard output.
#include "page_output.h"

#include <cstdio>

#include "zant/appliance.h"
#include "zant/file_cache.h"
#include "zant/nxo.h"
#include "zant/webutils.h"

void RenderTemplatePage(ZANT::APIResponse* response, const char* templatePath,
                        const Json::Value& values) {
  WebUtils::Template page;
  ZANT::NXO::SecurityOptions security(nullptr);

  if (templatePath == nullptr) return;
  // Read once per change of the file, not once per request.
  auto content = ZANT::FileCache::Read(ZANT::RootPath(templatePath));
  // Unreadable template: nothing is written and the framework still answers.
  if (!content->opened) return;
  response->SetEnableOutput(false);
  if (content->read) page.SetText(content->bytes);
  // QUIRK: output cannot be on after the switch above; the guard stays.
  if (response->IsEnableOutput()) return;

  // QUIRK: no blank after the colons; the header bytes are as they always were.
  fputs("Content-Type:text/html; charset=\"UTF-8\"\r\n", stdout);
  fputs("X-Frame-Options:", stdout);
  fputs(security.GetXFrameOption().c_str(), stdout);
  fputs("\r\n", stdout);
  fputs("Content-Security-Policy:", stdout);
  fputs(security.GetCSPHeader().c_str(), stdout);
  fputs("\r\n", stdout);
  fputs("\r\n", stdout);
  // Written as a C text: a NUL in the filled page ends the body.
  fputs(page.ApplyValues(values).c_str(), stdout);
  fflush(stdout);
}

std::string HtmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '"':
        out += "&quot;";
        break;
      case '&':
        out += "&amp;";
        break;
      case '\'':
        out += "&#39;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// QUIRK: always "?", even after an existing query (script tags choose "&").
std::string VersionedURL(const std::string& path) {
  return path + "?v=" + WebUtils::GetModifyTime(path.c_str());
}
