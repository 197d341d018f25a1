#include "clock.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace plyth_services {

namespace {
ClockFn gClock = nullptr;
}

int64_t Now() {
  if (gClock != nullptr) return gClock();
  return static_cast<int64_t>(time(nullptr));
}

void SetClock(ClockFn clock) { gClock = clock; }

bool ParseLocalTime(const std::string& text, int64_t* when) {
  if (!text.empty() && text[0] == '@') {
    const std::string digits = text.substr(1);
    if (digits.empty() || digits.size() > 15 || digits.find_first_not_of("0123456789") != std::string::npos) {
      return false;
    }
    *when = static_cast<int64_t>(strtoll(digits.c_str(), nullptr, 10));
    return true;
  }
  int year, month, day, hour, minute, second;
  int used = -1;
  if (text.size() != 19 ||
      sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &year, &month, &day, &hour, &minute, &second,
             &used) != 6 ||
      used != 19 || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':' ||
      text[16] != ':') {
    return false;
  }
  struct tm fields = {};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  fields.tm_isdst = -1;
  time_t t = mktime(&fields);
  // mktime moves 31 April to 1 May; such a date was not a date.
  if (t == static_cast<time_t>(-1) || fields.tm_year != year - 1900 || fields.tm_mon != month - 1 ||
      fields.tm_mday != day || fields.tm_hour != hour || fields.tm_min != minute || fields.tm_sec != second) {
    return false;
  }
  *when = static_cast<int64_t>(t);
  return true;
}

std::string FormatLocalTime(int64_t when) {
  time_t t = static_cast<time_t>(when);
  struct tm local;
  char text[32];
  if (localtime_r(&t, &local) == nullptr || strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local) == 0) {
    return "@" + std::to_string(when);
  }
  return text;
}

}  // namespace plyth_services
