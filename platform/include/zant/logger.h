// The sync service's debug logger.
#pragma once

#include <cstddef>
#include <string>

// Lines go to the appliance log "/var/packages/BrindlexPlyth/target/var/log/plyth.log",
// one message a line (a line feed is added when the message lacks one).
// The level file named at Initialize holds `component=level` lines, the
// level a number 0-7 or one of emerg alert crit error warning notice info
// debug; "*" sets the level of every component not named. Without the file,
// or for a component it does not name, the level is 3 (errors only). A
// message is logged when its level is at or below the component's level.
//
// A line never holds more than one message: CR, LF and the other control
// bytes of a message (0x00-0x1f, 0x7f) are written as \r, \n and \xNN (a
// closing line feed is the line's end), and a message longer than
// kMaxLineBytes after that is cut to its head, ending in " [cut]". The file
// is created with mode 0640.
class Logger {
 public:
  enum Level { kError = 3, kWarning = 4, kInfo = 6, kDebug = 7 };
  static constexpr size_t kMaxLineBytes = 2048;

  // type 0 logs to the file above; `name` empty keeps that file; `size` is
  // the file's limit in MiB, past which it is cut to its newest half;
  // `safetyScope` is accepted for the service's other callers and unused.
  static int Initialize(int type, const std::string& name, const std::string& levelFile, int size,
                        int safetyScope);
  static bool IsNeedToLog(int level, const std::string& component);
  static void LogMsg(int level, const std::string& component, const char* format, ...)
      __attribute__((format(printf, 3, 4)));

  // The log file in use (an absolute path, after the appliance root).
  static std::string LogFilePath();
};
