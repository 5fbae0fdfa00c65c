#pragma once

#include <ctime>

// The wall clock of every time limit, in whole seconds since 1970. Any thread.
time_t now();

// For tests: holds the clock at a moment, moves a held clock on, and lets it run again.
namespace Clock {
void Hold(time_t moment);
void Advance(time_t seconds);
void Release();
} // namespace Clock
