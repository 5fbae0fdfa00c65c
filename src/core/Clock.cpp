#include "core/Clock.h"

#include <atomic>

namespace {
std::atomic<time_t> held{0}; // 0 while the clock runs
}

time_t now() {
    const time_t moment = held.load(std::memory_order_relaxed);
    return moment != 0 ? moment : time(nullptr);
}

void Clock::Hold(time_t moment) { held = moment; }
void Clock::Advance(time_t seconds) { held += seconds; }
void Clock::Release() { held = 0; }
