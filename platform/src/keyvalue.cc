// Key-value configuration files and the per-thread last error of the base
// library.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "keyvalue_file.h"
#include "zant/file_cache.h"
#include "zant/appliance.h"
#include "zant/vlibc.h"

namespace ZANT {
namespace KeyValue {

namespace {
const char kBlanks[] = " \t\r\n";
}

std::string Trim(const std::string& text) {
  size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return std::string();
  size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

bool ParseLine(const std::string& line, const std::string& key, std::string* value) {
  std::string text = Trim(line);
  if (text.empty() || text[0] == '#') return false;
  size_t equals = text.find('=');
  if (equals == std::string::npos) return false;
  if (Trim(text.substr(0, equals)) != key) return false;
  std::string raw = Trim(text.substr(equals + 1));
  if (!raw.empty() && raw[0] == '"') {
    // A quoted value ends at the next quote; the files carry no escapes, and
    // an unterminated quote runs to the end of the line.
    size_t close = raw.find('"', 1);
    *value = raw.substr(1, close == std::string::npos ? std::string::npos : close - 1);
  } else {
    *value = raw;
  }
  return true;
}

namespace {

// The first value of every key in a file, as ParseLine reads each line.
struct FirstValues {
  bool readable = false;  // opened, not a directory
  bool whole = false;     // every byte was read
  std::unordered_map<std::string, std::string> values;
};

FirstValues ParseFile(const FileCache::Content& content) {
  FirstValues parsed;
  parsed.readable = content.opened && !S_ISDIR(content.status.st_mode);
  parsed.whole = content.read;
  const std::string& bytes = content.bytes;
  size_t start = 0;
  while (start < bytes.size()) {
    size_t newline = bytes.find('\n', start);
    size_t end = newline == std::string::npos ? bytes.size() : newline + 1;
    std::string line = bytes.substr(start, end - start);
    start = end;
    // A NUL ends the line's text, as it ends a C string.
    line.resize(std::strlen(line.c_str()));
    std::string text = Trim(line);
    size_t equals = text.find('=');
    if (text.empty() || text[0] == '#' || equals == std::string::npos) continue;
    const std::string name = Trim(text.substr(0, equals));
    std::string value;
    if (parsed.values.count(name) == 0 && ParseLine(line, name, &value)) {
      parsed.values.emplace(name, value);
    }
  }
  return parsed;
}

}  // namespace

Lookup Read(const std::string& appliancePath, const std::string& key, std::string* value) {
  auto parsed = FileCache::Derived<FirstValues>(RootPath(appliancePath), "key-value", ParseFile);
  if (!parsed->readable) return Lookup::kUnreadable;
  auto found = parsed->values.find(key);
  if (found != parsed->values.end()) {
    *value = found->second;
    return Lookup::kFound;
  }
  return parsed->whole ? Lookup::kAbsent : Lookup::kUnreadable;
}

}  // namespace KeyValue
}  // namespace ZANT

namespace {

// This file's name as the last error reports it.
const char kSource[] = "keyvalue.cc";

struct LastError {
  int code = VLIBC_ERR_NONE;
  char file[128] = "";
  int line = 0;
};
thread_local LastError tLastError;

}  // namespace

extern "C" {

int VLIBCErrGet(void) { return tLastError.code; }

const char* VLIBCErrorGetFile(void) { return tLastError.file; }

int VLIBCErrorGetLine(void) { return tLastError.line; }

void VLIBCErrSet(int code, const char* file, int line) {
  tLastError.code = code;
  // Copied, so that a caller may pass a text that does not outlive the call.
  std::snprintf(tLastError.file, sizeof(tLastError.file), "%s", file != nullptr ? file : "");
  tLastError.line = line;
}

int VLIBCFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int flags) {
  (void)flags;  // no flag changes how a file is read
  if (file == nullptr || key == nullptr || buffer == nullptr || size <= 0) {
    VLIBCErrSet(VLIBC_ERR_BAD_PARAMETER, kSource, __LINE__);
    return -1;
  }
  std::string value;
  switch (ZANT::KeyValue::Read(file, key, &value)) {
    case ZANT::KeyValue::Lookup::kUnreadable:
      VLIBCErrSet(VLIBC_ERR_FILE_OPEN, kSource, __LINE__);
      return -1;
    case ZANT::KeyValue::Lookup::kAbsent:
      return 0;
    case ZANT::KeyValue::Lookup::kFound:
      break;
  }
  size_t copied = value.size() < static_cast<size_t>(size - 1) ? value.size() : size - 1;
  std::memcpy(buffer, value.data(), copied);
  buffer[copied] = '\0';
  return static_cast<int>(copied) + 1;
}

int VLIBCFileCheckKeyValue(const char* file, const char* key, const char* value, int flags) {
  (void)flags;
  if (file == nullptr || key == nullptr || value == nullptr) {
    VLIBCErrSet(VLIBC_ERR_BAD_PARAMETER, kSource, __LINE__);
    return 0;
  }
  std::string stored;
  switch (ZANT::KeyValue::Read(file, key, &stored)) {
    case ZANT::KeyValue::Lookup::kUnreadable:
      VLIBCErrSet(VLIBC_ERR_FILE_OPEN, kSource, __LINE__);
      return 0;
    case ZANT::KeyValue::Lookup::kAbsent:
      return 0;
    case ZANT::KeyValue::Lookup::kFound:
      break;
  }
  return stored == value ? 1 : 0;
}

}  // extern "C"
