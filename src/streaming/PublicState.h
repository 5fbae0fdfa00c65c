#pragma once

#include <cstdint>
#include <memory>
#include <string>

class Mount;

// What the mounts show of themselves, for those who wait until it changes. One look at all mounts
// serves all who wait: it is taken while somebody asks, and no more than once a cycle of the
// thread pool. Any thread.
namespace public_state {

// The state as a text: of one mount; of null, that of all that are shown, with their number.
std::string Text(const std::shared_ptr<Mount>& mount);

// Another number as soon as anything has changed. Mostly one read of a clock and of the number.
std::uint64_t Generation();

// Whether the state was another than `text` at the latest look, which is taken now if it is due.
bool Differs(const std::shared_ptr<Mount>& mount, const std::string& text);

} // namespace public_state
