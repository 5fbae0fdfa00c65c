#pragma once

#include <memory>
#include <string>

class Request;

// Makes the calls whose answers nobody waits for: what applications are told of mounts and of
// listeners that left. One thread makes many at once, each within the limits of a call; it comes
// with the first and goes when there are none. Any thread.
class Notifier {
public:
    // Has a prepared call made. Those of one `lane`, unless it is empty, are made in their order,
    // each when the answer to the one before is there or will not come.
    static void Post(std::shared_ptr<Request> call, const std::string& lane);
    // Gives what is to be said SocketTimeout seconds, and takes nothing more.
    static void WaitForStop();
};
