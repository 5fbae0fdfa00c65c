#pragma once

#include "streaming/Mount.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

class User;

// All mounts of the server, by address, and the sums over them. Lookups work on an unchanging
// snapshot of the map, so none ever waits for a mount. Any thread, unless said otherwise.
class MountList {
public:
    using Map = std::map<std::string, std::shared_ptr<Mount>>; // by address

    // Initial thread. Makes the mounts of the sections below "Source"; Reload only those whose id
    // is new. A section that cannot be a mount is logged and skipped.
    static void Init();
    static void Reload();
    // Initial thread: ends all mounts. WaitForStop returns when their threads have ended.
    static void SignalStop();
    static void WaitForStop();
    static bool Ready();
    static time_t StartTime();

    // Whether players ask for the default mount at this address: "/", and all with "/;" in it.
    static bool IsReservedAddress(const std::string& address);
    // Takes in a mount and starts it; a mount without a section of its own gets one in the tree.
    // One with an address that is taken is logged and left out.
    static void Add(const std::shared_ptr<Mount>& mount);
    // Waits until the mount's thread has ended, forgets its settings and the rights on it, and
    // takes it out. Nothing for a mount that is not listed. Not from the mount's own thread.
    static void Remove(const std::shared_ptr<Mount>& mount);

    // Null when there is none.
    static std::shared_ptr<Mount> GetMount(int id);
    // The mount for a request at a local address: "/;..." means "/", and at "/" a mount that this
    // IP or port is assigned to comes first; then addresses, then symlinks. Null when there is
    // none. `ip` and `port` may be empty.
    static std::shared_ptr<Mount> GetMount(std::string address, const std::string& ip = {},
                                           const std::string& port = {});
    // In address order. With `shown`, only the connected ones that ask nobody for a login.
    static std::vector<std::shared_ptr<Mount>> GetAllMounts(bool shown);
    // The mounts an account has rights on: all in address order for administrators, otherwise by
    // ascending id, each once. With `connected`, only those that are.
    static std::vector<std::shared_ptr<Mount>>
    GetAllMountsByCredentials(const std::shared_ptr<User>& user, bool connected);
    // The first connected mount that the account of these credentials feeds; null without one.
    static std::shared_ptr<Mount> GetActiveMountCredentialsByUsername(const std::string& user,
                                                                      const std::string& pass);
    // The smallest id above 0 that no mount has; -1 when there is none.
    static int GetNextFreeID();

    static void IncTotalReceivers(int delta);
    static std::uint64_t TotalReceivers();
    static std::uint64_t TotalPeakReceivers();
    static void IncTotalUniqueReceivers(int delta);
    static std::uint64_t TotalUniqueReceivers();
    static void IncTotalActiveMounts(int delta);
    static std::uint64_t TotalActiveMounts();
    static std::uint64_t TotalBytesReceived();
    static std::uint64_t TotalSourceBitrate();   // bits per second
    static std::uint64_t TotalReceiverBitrate(); // as Receiver::GetBitrate counts

private:
    static std::atomic<bool> ready;
    static std::atomic<time_t> start_time;
};
