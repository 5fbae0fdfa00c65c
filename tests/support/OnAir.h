#pragma once

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "config/ConfigNode.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "media/PacketBuffer.h"
#include "net/ArrivalWatch.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverList.h"
#include "support/LoopbackPair.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <thread>

// Waits up to five seconds for what another thread is to do.
template <typename Condition> bool comes_true(Condition condition) {
    for (int look = 0; look < 5000; ++look) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

// A mount in the list, whose source is a loopback pair of the test's. No pool runs: packets reach
// the listeners when the test says so. The stream is cut into packets of 500 bytes.
class OnAir {
public:
    static constexpr std::size_t PACKET = 500;
    static constexpr int PACKETS_PER_FEED = 16;
    using Settings = std::map<std::string, std::string>;

    explicit OnAir(const std::string& address, int id = 1, const Settings& settings = {}) {
        const auto node = Config::Get("Source", true)
                              ->AddChild(std::make_shared<ConfigNode>(std::to_string(id), ""));
        for (const auto& [key, value] : settings)
            node->GetChild(key, true)->SetValue(value);
        mount = std::make_shared<Mount>(address, id, node);
        MountList::Add(mount);
        ReceiverList::Open();
    }
    ~OnAir() { mount->WaitForStop(); }
    OnAir(const OnAir&) = delete;
    OnAir& operator=(const OnAir&) = delete;

    std::shared_ptr<Mount> mount;

    // A source of this type takes the mount.
    void Connect(const std::string& content_type = "application/test",
                 const std::string& fields = {}) {
        source = std::make_unique<LoopbackPair>();
        source->Send("SOURCE " + mount->Address() + " HTTP/1.0\r\nContent-Type: " + content_type +
                     "\r\n" + fields + "\r\n");
        auto request = std::make_shared<Request>(source->server);
        comes_true([&] { return request->ReadRequest() > 0 && request->Complete(); });
        mount->SetRequest(request);
        comes_true([&] { return mount->IsConnected(); });
        first_feed = true;
    }

    void Disconnect() {
        source->CloseClient();
        comes_true([&] { return !mount->IsConnected(); });
    }

    // Sixteen more packets are cut; nobody has them yet.
    void Feed(char byte = 'a') {
        const auto newest = last_packet();
        // The first read fills the whole buffer, and leaves less than a packet behind in it; the
        // ones behind it take two packets each.
        source->Send(std::string(first_feed ? 8192 : PACKETS_PER_FEED * PACKET, byte));
        first_feed = false;
        comes_true([&] { return packets_behind(newest) == PACKETS_PER_FEED; });
    }

    // What was cut goes to the listeners' queues.
    void Deliver() {
        const auto buffer = mount->GetPacketBuffer();
        while (buffer->Poll(50) != ThreadPool::NOTHING)
            buffer->Process();
    }

    void FeedAndDeliver(char byte = 'a') {
        Feed(byte);
        Deliver();
    }

private:
    std::shared_ptr<BufferEntry> last_packet() const {
        const auto packets = mount->GetPacketBuffer()->GetBufferSnapShot();
        return packets.empty() ? nullptr : packets.back();
    }
    int packets_behind(const std::shared_ptr<BufferEntry>& packet) const {
        const auto packets = mount->GetPacketBuffer()->GetBufferSnapShot();
        const auto found = std::find(packets.rbegin(), packets.rend(), packet);
        return static_cast<int>(found - packets.rbegin());
    }

    std::unique_ptr<LoopbackPair> source;
    bool first_feed = true;
};

// A client and the Receiver that serves it, slice by slice.
class Visitor {
public:
    explicit Visitor(const std::string& says = {}) {
        ReceiverList::Open();
        receiver = std::make_shared<Receiver>(pair.server);
        if (!says.empty()) Say(says);
    }
    ~Visitor() { ReceiverList::Remove(receiver); }
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

    LoopbackPair pair;
    std::shared_ptr<Receiver> receiver;

    void Say(const std::string& text) {
        pair.Send(text);
        comes_true([&] { return pair.server->CanRecv() == 1; });
    }
    void Slice(int count = 1) {
        for (int slice = 0; slice < count; ++slice) {
            // As the listening thread does; a request is worked on by the slices of the test.
            if (receiver->Status() != 0) ArrivalWatch::Deliver();
            receiver->Process();
        }
    }
    // Says it and lets it be worked on.
    std::string Ask(const std::string& text) {
        Say(text);
        Slice();
        return Hear();
    }
    // What has arrived, with the session's id, which differs each time, as "ID".
    std::string Hear() const {
        static const std::regex SESSION("__quill_sess=[^;]*");
        return std::regex_replace(pair.ReceiveWaiting(), SESSION, "__quill_sess=ID");
    }
    // The client takes no more: the server's next send meets EAGAIN. What is in the way to it.
    std::uint64_t StopReading() const { return pair.FillTowardsClient(); }
    // Whether the server has closed, with nothing left to read.
    bool IsClosed() const {
        char byte = 0;
        return recv(pair.client, &byte, 1, MSG_PEEK) == 0;
    }
};

inline std::shared_ptr<User> make_account(const std::string& name, const std::string& password,
                                          User::UserGroup group, int mount = User::EVERY_MOUNT) {
    const auto user = UserList::Add(name, password);
    user->SetGroup(group);
    user->AddProperty(mount, "*", User::ALL);
    return user;
}

inline std::string basic(const std::string& credentials) {
    return "Authorization: Basic " + Base64Encode(credentials.data(), credentials.size()) + "\r\n";
}
