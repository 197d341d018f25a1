#include "zant/json_util.h"

#include "zant/file_cache.h"

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

namespace {

// The file's JSON value, or nothing when it cannot be read or parsed.
std::shared_ptr<const Json::Value> ParseJsonFile(const FileCache::Content& content) {
  if (!content.read) return nullptr;
  Json::Value parsed;
  std::string errors;
  const std::string& text = content.bytes;
  if (!DefaultReader().parse(text.data(), text.data() + text.size(), &parsed, &errors)) {
    return nullptr;
  }
  return std::make_shared<const Json::Value>(std::move(parsed));
}

}  // namespace

bool JsonFromFile(const std::string& path, Json::Value& out) {
  auto parsed = FileCache::Derived<std::shared_ptr<const Json::Value>>(path, "json", ParseJsonFile);
  if (!*parsed) return false;
  out = **parsed;
  return true;
}

}  // namespace ZANT
