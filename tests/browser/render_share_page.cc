// Writes the desktop landing page of a link, CGI headers and body, as method
// "get" would answer a desktop browser. The browser tests serve its body.
//
//   render_share_page --root DIR [--file JSON] [--link ID] [--sharing ID]
//                     [--token T] [--lang L] [--env NAME=VALUE]...
//
// DIR is an appliance root (a copy of web/root); every --env becomes a
// server variable of the request.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <json/json.h>

#include "share_page.h"
#include "zant/webapi.h"

namespace {

int Usage() {
  fprintf(stderr,
          "usage: render_share_page --root DIR [--file JSON] [--link ID] [--sharing ID]\n"
          "                         [--token T] [--lang L] [--env NAME=VALUE]...\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::string root, fileText = "null", link, sharing, token, lang = "enu";
  ZANT::APIRequest request;
  for (int i = 1; i < argc; ++i) {
    std::string option = argv[i];
    if (i + 1 >= argc) return Usage();
    std::string value = argv[++i];
    if (option == "--root") {
      root = value;
    } else if (option == "--file") {
      fileText = value;
    } else if (option == "--link") {
      link = value;
    } else if (option == "--sharing") {
      sharing = value;
    } else if (option == "--token") {
      token = value;
    } else if (option == "--lang") {
      lang = value;
    } else if (option == "--env") {
      size_t equals = value.find('=');
      if (equals == std::string::npos) return Usage();
      request.SetServerVar(value.substr(0, equals), value.substr(equals + 1));
    } else {
      return Usage();
    }
  }
  if (root.empty()) return Usage();

  Json::Value file;
  if (!Json::Reader().parse(fileText, file)) {
    fprintf(stderr, "render_share_page: --file is not JSON\n");
    return 2;
  }
  // The web root comes from the appliance root, not from a web server.
  setenv("ZANT_ROOT", root.c_str(), 1);
  unsetenv("DOCUMENT_ROOT");
  unsetenv("SCRIPT_FILENAME");
  request.SetUILanguage(lang);

  ZANT::APIResponse response;
  WriteSharePage(&request, &response, link, sharing, file, token);
  fflush(stdout);
  if (response.IsEnableOutput()) {
    fprintf(stderr, "render_share_page: no page written (template missing?)\n");
    return 1;
  }
  return 0;
}
