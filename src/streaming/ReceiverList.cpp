#include "streaming/ReceiverList.h"

#include "core/Log.h"
#include "core/OSTools.h"
#include "core/ThreadPool.h"
#include "streaming/Receiver.h"

#include <utility>

spinlock ReceiverList::recvlist_lock;
std::map<std::string, std::shared_ptr<Receiver>> ReceiverList::receiver_list;
std::atomic<long> ReceiverList::receiver_size{0};
std::atomic<bool> ReceiverList::open{false};

void ReceiverList::Open() { open.store(true, std::memory_order_release); }

bool ReceiverList::IsOpen() { return open.load(std::memory_order_acquire); }

void ReceiverList::Add(std::shared_ptr<Receiver> receiver) {
    std::shared_ptr<Receiver> replaced = receiver; // released outside the lock
    {
        spin_guard guard(recvlist_lock);
        receiver_list[receiver->GetUUID()].swap(replaced);
        receiver_size = static_cast<long>(receiver_list.size());
    }
    ThreadPool::Add(receiver);
    ThreadPool::AddWork(std::move(receiver), ThreadPool::LOW);
}

long ReceiverList::Remove(const std::shared_ptr<Receiver>& receiver) {
    ThreadPool::Remove(receiver);
    std::map<std::string, std::shared_ptr<Receiver>>::node_type removed; // as above
    spin_guard guard(recvlist_lock);
    removed = receiver_list.extract(receiver->GetUUID());
    receiver_size = static_cast<long>(receiver_list.size());
    return receiver_size;
}

std::shared_ptr<Receiver> ReceiverList::GetReceiver(const std::string& uuid) {
    spin_guard guard(recvlist_lock);
    const auto found = receiver_list.find(uuid);
    return found == receiver_list.end() ? nullptr : found->second;
}

long ReceiverList::Count() { return receiver_size.load(std::memory_order_acquire); }

std::string ReceiverList::GenerateUUID() { return unused_uuid(GenerateUuid()); }

std::string ReceiverList::unused_uuid(std::string candidate) {
    while (GetReceiver(candidate)) {
        candidate = GenerateUuid();
        LogWrite(2) << "Duplicate UUID, regenerating [" << candidate << "]" << std::endl;
    }
    return candidate;
}
