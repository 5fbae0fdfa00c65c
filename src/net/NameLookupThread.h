#pragma once

#include "config/ConfigNodeListener.h"
#include "core/concurrent_queue.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class ConfigNode;
class Receiver;

// Switches the lookups on and off while the setting NameLookups changes.
// Owned by NameLookupThread for the length of the process. Any thread.
class NameLookupListener final : public ConfigNodeListener {
public:
    // Listens to the node until it goes.
    explicit NameLookupListener(std::shared_ptr<ConfigNode> name_lookups);
    ~NameLookupListener();
    NameLookupListener(const NameLookupListener&) = delete;
    NameLookupListener& operator=(const NameLookupListener&) = delete;

    bool OnConfigNodeChanged(std::shared_ptr<ConfigNode> changed, std::string old_value) override;

private:
    const std::shared_ptr<ConfigNode> node;
};

// Finds out the names behind the addresses of listeners, one after the other, on one thread of its
// own: a resolver may take seconds.
// Any thread: AddReceiver, Start, SignalStop, WaitForStop. Initial thread: Init.
class NameLookupThread {
public:
    // Reads the setting and follows it from then on.
    static void Init();
    static void Start();
    static void SignalStop();
    // Waits for a lookup that is under way.
    static void WaitForStop();
    // Nothing happens before the first Start.
    static void AddReceiver(std::shared_ptr<Receiver> receiver);

private:
    static void ProcessLookups();

    static concurrent_queue<std::shared_ptr<Receiver>> recv_list;
    static std::shared_ptr<NameLookupListener> listener;
    static std::atomic<bool> stop;
    static std::atomic<bool> started; // and never false again
    static std::mutex thread_lock;    // held while the thread is started and joined
    static std::thread lookup_thread;
};
