// The services' notion of "now", in whole seconds since the epoch. Expiry
// and the password throttle compare against it, so tests replace it. Also
// the local time form in which administrators write and read times.
#pragma once

#include <cstdint>
#include <string>

namespace plyth_services {

int64_t Now();

// Replaces the clock; nullptr restores the system clock.
using ClockFn = int64_t (*)();
void SetClock(ClockFn clock);

// "YYYY-MM-DD HH:MM:SS" in the local time zone (TZ), or "@<seconds since
// the epoch>"; false for anything else, an impossible date included.
bool ParseLocalTime(const std::string& text, int64_t* when);
// The same local form; "@<seconds>" for a time it cannot show.
std::string FormatLocalTime(int64_t when);

}  // namespace plyth_services
