#include "media/ListenerList.h"

void ListenerList::Apply(const Changes& changes) {
    Outcomes outcomes = outcomes_of(changes);
    keep_those_who_stay(outcomes);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const Listener& listener = changes[i].first;
        if (outcomes[listener.get()].joins_with == i) listeners.push_back(listener);
    }
}

// A leave ends what came before it; of the joins behind the last one, the first counts.
ListenerList::Outcomes ListenerList::outcomes_of(const Changes& changes) {
    Outcomes outcomes;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const auto& [listener, change] = changes[i];
        Outcome& outcome = outcomes[listener.get()];
        if (change == Change::LEAVE)
            outcome = {.leaves_its_place = true};
        else if (outcome.joins_with == STAYS_OUT)
            outcome.joins_with = i;
    }
    return outcomes;
}

void ListenerList::keep_those_who_stay(Outcomes& outcomes) {
    std::erase_if(listeners, [&outcomes](const Listener& listener) {
        const auto found = outcomes.find(listener.get());
        if (found == outcomes.end()) return false;
        Outcome& outcome = found->second;
        if (!outcome.leaves_its_place) outcome.joins_with = STAYS_OUT; // is in already
        return outcome.leaves_its_place;
    });
}
