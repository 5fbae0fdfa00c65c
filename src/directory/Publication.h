#pragma once

#include "core/spinlock.h"

#include <ctime>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>

class Mount;
class YellowPage;

// The directories of one mount, with a page for each. Owned by its Mount, which it holds in turn
// from Start to the end of WaitForStop. Any thread.
class Publication {
public:
    // An address as configured, and its page.
    using Pages = std::list<std::pair<std::string, std::shared_ptr<YellowPage>>>;

    // The mount's address is for log lines alone.
    explicit Publication(std::string of_mount);

    // Refused while it runs.
    void SetMount(const std::shared_ptr<Mount>& listed_mount) EXCLUDES(lock);
    // One that cannot be a directory is left out, with a log line.
    void AddAddress(const std::string& address) EXCLUDES(lock);
    // Its page ends its listing by itself.
    void RemoveAddress(const std::string& address) EXCLUDES(lock);

    // Also while it still stops: each page is listed again once it has been removed.
    void Start() EXCLUDES(lock);
    // Asks all pages to end their listings.
    void SignalStop() EXCLUDES(lock);
    // The same, and returns when they have. A directory that keeps silent is waited for no longer
    // than one exchange may take, and none once `leaves_early` holds; its page goes on by itself.
    // Not from the pool, which does the work.
    void WaitForStop(const std::function<bool()>& leaves_early = [] { return false; })
        EXCLUDES(lock);
    // Whether it was started and not asked to stop.
    bool IsRunning() const EXCLUDES(lock);
    // Empty unless it was started and has something listed, or is to have.
    Pages GetPublicationDetails() const EXCLUDES(lock);

private:
    Pages all_pages() const EXCLUDES(lock);
    bool runs(const std::shared_ptr<YellowPage>& page) const EXCLUDES(lock);
    bool holds_up_stop(time_t since) const EXCLUDES(lock);
    bool end() EXCLUDES(lock);

    const std::string mount_address;
    mutable spinlock lock;
    Pages pages GUARDED_BY(lock); // in the order of adding
    bool running GUARDED_BY(lock) = false;
    bool stopping GUARDED_BY(lock) = false;
    std::shared_ptr<Mount> mount GUARDED_BY(lock);
};
