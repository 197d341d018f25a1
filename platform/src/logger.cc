// The sync service's debug logger: one file under the appliance root,
// levels per component from a level file.
#include "zant/logger.h"

#include <errno.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <map>
#include <mutex>
#include <vector>

#include "file_util.h"
#include "zant/appliance.h"
#include "zant/file_cache.h"

namespace {

const char kLogDir[] = "/var/packages/BrindlexPlyth/target/var/log";
const char kDefaultLogFile[] = "/var/packages/BrindlexPlyth/target/var/log/plyth.log";
const int kDefaultLevel = Logger::kError;
const char kCutMark[] = " [cut]";

struct Levels {
  std::map<std::string, int> named;
  int other = kDefaultLevel;  // "*" of the level file
};

struct LoggerState {
  std::mutex mutex;
  std::string file = kDefaultLogFile;  // appliance path, placed under the root at each use
  std::shared_ptr<const Levels> levels;
  long long sizeLimit = 0;             // bytes; 0 keeps the file whole
};

LoggerState& State() {
  static LoggerState state;
  return state;
}

std::string Trim(const std::string& text) {
  const char* blanks = " \t\r";
  size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return std::string();
  size_t end = text.find_last_not_of(blanks);
  return text.substr(begin, end - begin + 1);
}

// 0-7, or a level name; -1 when the text is neither.
int ParseLevel(const std::string& text) {
  static const char* const kNames[] = {"emerg", "alert",  "crit", "error",
                                       "warning", "notice", "info", "debug"};
  if (text.size() == 1 && text[0] >= '0' && text[0] <= '7') return text[0] - '0';
  for (int level = 0; level < 8; ++level) {
    if (strcasecmp(text.c_str(), kNames[level]) == 0) return level;
  }
  return -1;
}


Levels ParseLevelFile(const ZANT::FileCache::Content& content) {
  Levels levels;
  std::istringstream in(content.bytes);
  std::string line;
  while (std::getline(in, line)) {
    line = Trim(line);
    if (line.empty() || line[0] == '#') continue;
    size_t eq = line.find('=');
    if (eq == std::string::npos) continue;
    const std::string component = Trim(line.substr(0, eq));
    const int level = ParseLevel(Trim(line.substr(eq + 1)));
    if (component.empty() || level < 0) continue;
    if (component == "*") {
      levels.other = level;
    } else {
      levels.named[component] = level;
    }
  }
  return levels;
}

// A control byte of a message would start or forge lines in the file: it is
// written as a C escape. Other bytes, UTF-8 included, are kept.
void AppendEscaped(std::string& line, unsigned char c) {
  static const char kHex[] = "0123456789abcdef";
  if (c == '\n') {
    line += "\\n";
  } else if (c == '\r') {
    line += "\\r";
  } else if (c < 0x20 || c == 0x7f) {
    line += "\\x";
    line += kHex[c >> 4];
    line += kHex[c & 0xf];
  } else {
    line += static_cast<char>(c);
  }
}

// The message as one line of at most kMaxLineBytes bytes before its line
// feed (the message's own closing line feed is that line feed). A longer one
// keeps its head, cut between characters, and ends in kCutMark.
std::string FormatLine(const char* text, size_t length) {
  if (length > 0 && text[length - 1] == '\n') --length;
  const size_t keep = Logger::kMaxLineBytes - (sizeof(kCutMark) - 1);
  std::string line;
  size_t cutAt = 0;  // the last boundary between written bytes at or below `keep`
  size_t used = 0;
  for (; used < length && line.size() <= Logger::kMaxLineBytes; ++used) {
    const unsigned char c = static_cast<unsigned char>(text[used]);
    const bool continuation = (c & 0xC0) == 0x80;
    if (!continuation && line.size() <= keep) cutAt = line.size();
    AppendEscaped(line, c);
  }
  if (used < length || line.size() > Logger::kMaxLineBytes) {
    line.resize(cutAt);
    line += kCutMark;
  }
  line += '\n';
  return line;
}

// Keeps the newest half of the file, from the first whole line on.
void CutToNewestHalf(const std::string& path, long long size) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return;
  in.seekg(size - size / 2);
  std::string tail((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  in.close();
  size_t firstLine = tail.find('\n');
  tail.erase(0, firstLine == std::string::npos ? tail.size() : firstLine + 1);
  const std::string temp = path + ".cut";
  int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
  if (fd < 0) return;
  bool written = ZANT::FileUtil::WriteAll(fd, tail);
  if (close(fd) != 0 || !written) return;
  rename(temp.c_str(), path.c_str());
}

void AppendLine(LoggerState& state, const std::string& line) {
  const std::string path = ZANT::RootPath(state.file);
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
  if (fd < 0 && errno == ENOENT) {
    ZANT::FileUtil::MakeParentDirs(path);
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
  }
  if (fd < 0) return;
  ZANT::FileUtil::WriteAll(fd, line);
  struct stat st;
  bool tooLarge = state.sizeLimit > 0 && fstat(fd, &st) == 0 && st.st_size > state.sizeLimit;
  close(fd);
  if (tooLarge) CutToNewestHalf(path, static_cast<long long>(st.st_size));
}

int LevelOf(const LoggerState& state, const std::string& component) {
  if (!state.levels) return kDefaultLevel;
  auto it = state.levels->named.find(component);
  return it != state.levels->named.end() ? it->second : state.levels->other;
}

}  // namespace

int Logger::Initialize(int type, const std::string& name, const std::string& levelFile, int size,
                       int /*safetyScope*/) {
  if (type != 0) return -1;
  // Called for every request: the level file is parsed again only when it changed.
  std::shared_ptr<const Levels> levels =
      levelFile.empty() ? std::make_shared<const Levels>()
                        : ZANT::FileCache::Derived<Levels>(ZANT::RootPath(levelFile), "levels",
                                                          ParseLevelFile);

  LoggerState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (name.empty()) {
    state.file = kDefaultLogFile;
  } else if (name[0] == '/') {
    state.file = name;
  } else {
    state.file = std::string(kLogDir) + "/" + name;
  }
  state.levels = levels;
  state.sizeLimit = size > 0 ? static_cast<long long>(size) * 1024 * 1024 : 0;
  return 0;
}

bool Logger::IsNeedToLog(int level, const std::string& component) {
  LoggerState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  return level <= LevelOf(state, component);
}

void Logger::LogMsg(int level, const std::string& component, const char* format, ...) {
  if (format == nullptr) return;
  LoggerState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (level > LevelOf(state, component)) return;

  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  int length = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::vector<char> buffer(length > 0 ? static_cast<size_t>(length) + 1 : 1, '\0');
  if (length > 0) vsnprintf(buffer.data(), buffer.size(), format, args);
  va_end(args);
  const std::string line = FormatLine(buffer.data(), length > 0 ? static_cast<size_t>(length) : 0);
  AppendLine(state, line);
}

std::string Logger::LogFilePath() {
  LoggerState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  return ZANT::RootPath(state.file);
}
