#include "zant/json_util.h"

#include <fstream>
#include <memory>
#include <sstream>

namespace ZANT {

std::string JsonToString(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

bool JsonFromFile(const std::string& path, Json::Value& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) return false;
  const std::string content = text.str();

  Json::CharReaderBuilder builder;
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value parsed;
  std::string errors;
  if (!reader->parse(content.data(), content.data() + content.size(), &parsed, &errors)) {
    return false;
  }
  out.swap(parsed);
  return true;
}

}  // namespace ZANT
