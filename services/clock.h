// The services' notion of "now", in whole seconds since the epoch. Expiry
// and the password throttle compare against it, so tests replace it.
#pragma once

#include <cstdint>

namespace plyth_services {

int64_t Now();

// Replaces the clock; nullptr restores the system clock.
using ClockFn = int64_t (*)();
void SetClock(ClockFn clock);

}  // namespace plyth_services
