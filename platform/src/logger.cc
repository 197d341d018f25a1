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
#include <map>
#include <mutex>
#include <vector>

#include "file_util.h"
#include "zant/appliance.h"

namespace {

const char kLogDir[] = "/var/packages/BrindlexPlyth/target/var/log";
const char kDefaultLogFile[] = "/var/packages/BrindlexPlyth/target/var/log/plyth.log";
const int kDefaultLevel = Logger::kError;

struct LoggerState {
  std::mutex mutex;
  std::string file = kDefaultLogFile;  // appliance path, placed under the root at each use
  std::map<std::string, int> levels;
  int otherLevel = kDefaultLevel;      // "*" of the level file
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

void ReadLevelFile(const std::string& path, std::map<std::string, int>& levels, int& otherLevel) {
  std::ifstream in(path);
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
      otherLevel = level;
    } else {
      levels[component] = level;
    }
  }
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
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    if (!out) return;
    out << tail;
    if (!out) return;
  }
  rename(temp.c_str(), path.c_str());
}

void AppendLine(LoggerState& state, const std::string& line) {
  const std::string path = ZANT::RootPath(state.file);
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0 && errno == ENOENT) {
    ZANT::FileUtil::MakeParentDirs(path);
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  }
  if (fd < 0) return;
  ZANT::FileUtil::WriteAll(fd, line);
  struct stat st;
  bool tooLarge = state.sizeLimit > 0 && fstat(fd, &st) == 0 && st.st_size > state.sizeLimit;
  close(fd);
  if (tooLarge) CutToNewestHalf(path, static_cast<long long>(st.st_size));
}

int LevelOf(const LoggerState& state, const std::string& component) {
  auto it = state.levels.find(component);
  return it != state.levels.end() ? it->second : state.otherLevel;
}

}  // namespace

int Logger::Initialize(int type, const std::string& name, const std::string& levelFile, int size,
                       int /*safetyScope*/) {
  if (type != 0) return -1;
  std::map<std::string, int> levels;
  int otherLevel = kDefaultLevel;
  if (!levelFile.empty()) ReadLevelFile(ZANT::RootPath(levelFile), levels, otherLevel);

  LoggerState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (name.empty()) {
    state.file = kDefaultLogFile;
  } else if (name[0] == '/') {
    state.file = name;
  } else {
    state.file = std::string(kLogDir) + "/" + name;
  }
  state.levels.swap(levels);
  state.otherLevel = otherLevel;
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
  std::string line;
  if (length > 0) {
    std::vector<char> buffer(static_cast<size_t>(length) + 1);
    vsnprintf(buffer.data(), buffer.size(), format, args);
    line.assign(buffer.data(), static_cast<size_t>(length));
  }
  va_end(args);
  if (line.empty() || line.back() != '\n') line += '\n';
  AppendLine(state, line);
}

std::string Logger::LogFilePath() {
  LoggerState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  return ZANT::RootPath(state.file);
}
