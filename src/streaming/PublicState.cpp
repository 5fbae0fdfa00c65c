#include "streaming/PublicState.h"

#include "core/OSTools.h"
#include "core/shared_cell.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"

#include <atomic>
#include <ctime>
#include <map>

namespace {

// Less than a cycle of the pool, so that every cycle finds a new look.
constexpr std::int64_t LOOK_MS = 25;

struct Look {
    std::string all_shown = {};
    std::map<const Mount*, std::string> by_mount = {};
    bool operator==(const Look&) const = default;
};

shared_cell<const Look> latest(std::make_shared<const Look>());
std::atomic<std::uint64_t> generation{0};
std::atomic<std::int64_t> next_look{0}; // by the coarse clock

// Coarse, for it is read by everyone who waits, twenty times a second.
std::int64_t milliseconds() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

std::shared_ptr<const Look> look_at_mounts() {
    auto look = std::make_shared<Look>();
    look->all_shown = public_state::Text(nullptr);
    for (const auto& mount : MountList::GetAllMounts(false))
        look->by_mount.emplace(mount.get(), mount->ToString());
    return look;
}

// One caller looks; the others go on with what was seen before.
void look_if_due() {
    const std::int64_t present = milliseconds();
    std::int64_t due = next_look.load(std::memory_order_relaxed);
    if (present < due || !next_look.compare_exchange_strong(due, present + LOOK_MS)) return;
    const std::shared_ptr<const Look> look = look_at_mounts();
    if (*look != *latest.exchange(look)) generation.fetch_add(1, std::memory_order_release);
}

} // namespace

std::string public_state::Text(const std::shared_ptr<Mount>& mount) {
    if (mount) return mount->ToString();
    const auto shown = MountList::GetAllMounts(true);
    std::string text = tostring(shown.size());
    for (const auto& one : shown)
        text += one->ToString();
    return text;
}

std::uint64_t public_state::Generation() {
    look_if_due();
    return generation.load(std::memory_order_acquire);
}

bool public_state::Differs(const std::shared_ptr<Mount>& mount, const std::string& text) {
    look_if_due();
    const std::shared_ptr<const Look> look = latest.load();
    if (!mount) return look->all_shown != text;
    const auto place = look->by_mount.find(mount.get());
    return (place == look->by_mount.end() ? mount->ToString() : place->second) != text;
}
