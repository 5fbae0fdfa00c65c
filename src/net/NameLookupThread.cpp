#include "net/NameLookupThread.h"

#include "config/Config.h"
#include "config/ConfigNode.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "streaming/Receiver.h"

#include <utility>

namespace {
constexpr unsigned int IDLE_MS = 500;
} // namespace

std::atomic<bool> NameLookupThread::stop{false};
std::atomic<bool> NameLookupThread::started{false};
std::mutex NameLookupThread::thread_lock;
std::thread NameLookupThread::lookup_thread;
concurrent_queue<std::shared_ptr<Receiver>> NameLookupThread::recv_list;
std::shared_ptr<NameLookupListener> NameLookupThread::listener;

NameLookupListener::NameLookupListener(std::shared_ptr<ConfigNode> name_lookups)
    : node(std::move(name_lookups)) {
    node->AddListener(this);
}

NameLookupListener::~NameLookupListener() { node->RemoveListener(this); }

bool NameLookupListener::OnConfigNodeChanged(std::shared_ptr<ConfigNode>, std::string) {
    if (node->GetValue(false))
        NameLookupThread::Start();
    else
        NameLookupThread::WaitForStop();
    return false;
}

// The node is made where it does not stand in the file, so that a line that comes later is heard.
void NameLookupThread::Init() {
    if (listener) return;
    stop = false;
    const std::shared_ptr<ConfigNode> node = Config::Get("NameLookups", true);
    listener = std::make_shared<NameLookupListener>(node);
    if (node->GetValue(false)) Start();
}

// Kept: lookups that were switched off stay off until the next start of the process, while
// listeners are queued as before. Operators know the switch in this form.
void NameLookupThread::Start() {
    if (started) return; // at once, though another may be waiting for the end of a lookup
    const std::lock_guard guard(thread_lock);
    if (started.exchange(true)) return;
    stop = false;
    try {
        lookup_thread = std::thread(ProcessLookups);
    } catch (...) {
        started = false; // or what nobody serves would be queued
        throw;
    }
}

void NameLookupThread::SignalStop() { stop = true; }

// The flag is set under the lock, or a start that goes before would clear it and never be ended.
void NameLookupThread::WaitForStop() {
    const std::lock_guard guard(thread_lock);
    stop = true;
    if (lookup_thread.joinable()) lookup_thread.join();
}

void NameLookupThread::AddReceiver(std::shared_ptr<Receiver> receiver) {
    if (started) recv_list.push(std::move(receiver));
}

void NameLookupThread::ProcessLookups() {
    SetThreadName("NameLookup Process");
    LogWrite(2) << "Name Lookup Thread started." << std::endl;
    while (!stop) {
        if (const auto receiver = recv_list.pop())
            (*receiver)->ResolveHostname();
        else
            Sleep(IDLE_MS);
    }
    LogWrite(2) << "Name Lookup Thread stopped." << std::endl;
}
