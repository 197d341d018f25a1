#include "clock.h"

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

}  // namespace plyth_services
