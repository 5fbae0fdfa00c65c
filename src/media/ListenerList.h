#pragma once

#include "media/PacketBufferListener.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

// The listeners of one stream, in the order in which they joined. Thousands may leave at once, as
// when their source ends, so changes are made in batches, each in one pass. One thread at a time.
class ListenerList {
public:
    using Listener = std::shared_ptr<PacketBufferListener>;
    enum class Change : std::uint8_t { JOIN = 0, LEAVE = 1 };
    using Changes = std::deque<std::pair<Listener, Change>>;

    // The changes in their order. Who is in already keeps its place.
    void Apply(const Changes& changes);

    const std::vector<Listener>& All() const { return listeners; }

private:
    // What a batch comes to for one listener.
    struct Outcome {
        bool leaves_its_place = false;
        std::size_t joins_with = STAYS_OUT; // the change that counts
    };
    using Outcomes = std::unordered_map<const PacketBufferListener*, Outcome>;
    static constexpr std::size_t STAYS_OUT = SIZE_MAX;

    static Outcomes outcomes_of(const Changes& changes);
    void keep_those_who_stay(Outcomes& outcomes);

    std::vector<Listener> listeners;
};
