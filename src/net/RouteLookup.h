#pragma once

#include "net/Route.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

// A route that is being found out aside, so that nobody waits for the resolver. What is given in
// numbers is known at once; names are looked up by threads that come and go with the work, and who
// asks for the same at the same time shares the answer. Any thread.
class RouteLookup {
public:
    static std::shared_ptr<RouteLookup> Start(const RouteQuery& query);

    // Null until the answer is in; then it stays as it is.
    const Route* Found() const;
    // Waits for the answer, at most this long.
    void Wait(int milliseconds) const;

private:
    class Desk; // where the lookups lie that are not done

    explicit RouteLookup(RouteQuery asked) : query(std::move(asked)) {}
    std::string words() const;
    void answer(Route found);

    const RouteQuery query;
    mutable std::mutex mutex;
    mutable std::condition_variable answered;
    bool done = false; // under the mutex; `route` does not change afterwards
    Route route;
};
