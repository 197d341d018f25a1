#include "zant/json_util.h"

#include <fstream>
#include <memory>
#include <sstream>

namespace ZANT {

namespace {

// Building a writer or reader from its builder costs more than most of the
// small values it handles; each thread keeps one of each. Both keep no state
// from one use to the next.
Json::StreamWriter& CompactWriter() {
  thread_local std::unique_ptr<Json::StreamWriter> writer([] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return builder.newStreamWriter();
  }());
  return *writer;
}

Json::CharReader& DefaultReader() {
  thread_local std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  return *reader;
}

}  // namespace

std::string JsonToString(const Json::Value& value) {
  std::ostringstream out;
  CompactWriter().write(value, &out);
  return out.str();
}

bool JsonFromFile(const std::string& path, Json::Value& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) return false;
  const std::string content = text.str();

  Json::Value parsed;
  std::string errors;
  if (!DefaultReader().parse(content.data(), content.data() + content.size(), &parsed, &errors)) {
    return false;
  }
  out.swap(parsed);
  return true;
}

}  // namespace ZANT
