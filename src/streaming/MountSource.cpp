#include "accounts/UserList.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "directory/Publication.h"
#include "http/Request.h"
#include "media/MediaReader.h"
#include "media/PacketBuffer.h"
#include "net/Socket.h"
#include "net/SocketTools.h"
#include "streaming/Framers.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"

#include <utility>

namespace {
constexpr std::uint64_t BITS = 8;

// The first of two headers that says something.
std::string first_of(const Request& request, const char* one, const char* other,
                     const std::string& otherwise = {}) {
    for (const char* name : {one, other}) {
        std::string value = request.GetHeader(name);
        if (!value.empty()) return value;
    }
    return otherwise;
}

// Whom a source's credentials name. A name alone is no login.
std::shared_ptr<User> account_of(const Request& request) {
    const std::string user = request.User();
    const std::string pass = request.Pass();
    if (user.empty() || pass.empty()) return UserList::GetAnonymousUser();
    return UserList::Get(user, pass);
}
} // namespace

// A request that waits is replaced, and its connection ends with it; one whose session runs is kept
// by the session.
void Mount::SetRequest(const std::shared_ptr<Request>& source_request) {
    std::shared_ptr<User> account = account_of(*source_request);
    std::shared_ptr<Request> former = source_request;
    {
        spin_guard guard(settings_lock);
        request.swap(former);
        source_account.swap(account);
    }
    wake();
}

std::shared_ptr<Request> Mount::GetRequest() const {
    spin_guard guard(settings_lock);
    return request;
}

std::shared_ptr<User> Mount::GetSourceAccount() const {
    spin_guard guard(settings_lock);
    return source_account;
}

std::uint64_t Mount::BytesReceived() const {
    const auto source = reader.load();
    return source ? source->GetBytesRead() : 0;
}

std::uint64_t Mount::GetBitrate(bool recent) const {
    const auto source = reader.load();
    return source ? source->GetBytesPerSecond(recent) * BITS : 0;
}

std::shared_ptr<Mount> Mount::GetFallbackMount() const {
    std::string stand_in;
    {
        spin_guard guard(settings_lock);
        stand_in = fallback;
    }
    return stand_in.empty() ? nullptr : MountList::GetMount(stand_in);
}

// One source, from the wait for it to its end.
void Mount::RetrieveStream() {
    connected = false;
    kick = false;
    if (!wait_for_source()) return;
    const bool taken = is_relay() ? connect_relay() : take_source();
    if (taken && open_stream()) {
        announce_source();
        pump();
    }
    end_session();
}

// False when the mount is to end. A mount with relay addresses takes no sources, and has nothing to
// wait for.
bool Mount::wait_for_source() {
    std::unique_lock guard(wake_mutex);
    wake_up.wait(guard, [this] { return stop || source_waits(); });
    return !stop;
}

bool Mount::source_waits() const {
    spin_guard guard(settings_lock);
    return !relays.empty() || request != nullptr;
}

bool Mount::take_source() {
    const auto source = GetRequest();
    if (!source) return false;
    session = {
        .request = source,
        .socket = source->Socket(),
        .peer = "<" + source->GetIP() + "> ",
        .stream = log_text(source->GetLocalIP() + ":" + tostring(source->Port()) + source->Path())};
    source_socket.store(session.socket);
    kick = false; // one that came before this source was not meant for it
    if (stop && session.socket) session.socket->Shutdown();
    return true;
}

// False when there is no way to frame what the source sends.
bool Mount::open_stream() {
    const std::string type = session.request->GetHeader("Content-Type");
    if (type != ContentType()) cleanup_buffer();
    take_properties(*session.request);
    const Framer& framer = framer_for(type);
    if (framer.make == nullptr) {
        LogWrite(2) << session.peer << "Ultravox Underlay Not supported (A: " << session.stream
                    << ")" << std::endl;
        return false;
    }
    session.type = framer.log_name;
    if (*framer.word == '\0') session.type += " (" + log_text(type) + ")";
    open_reader(session.request);
    open_buffer(framer);
    connected = true;
    MountList::IncTotalActiveMounts(1);
    return true;
}

// What the last source said and this one does not say is forgotten.
void Mount::take_properties(const Request& source) {
    const std::string type = source.GetHeader("Content-Type");
    std::string called = first_of(source, "icy-name", "ice-name", "Unknown");
    std::string kind = first_of(source, "icy-genre", "ice-genre", "Unknown");
    std::string rate = first_of(source, "icy-br", "ice-bitrate");
    std::string home = first_of(source, "icy-url", "ice-url");
    std::string about = first_of(source, "ice-description", "icy-description");
    std::string audio = source.GetHeader("ice-audio-info");
    const bool listed = first_of(source, "icy-pub", "ice-public") == "1";
    spin_guard guard(settings_lock);
    content_type = type;
    name.swap(called);
    genre.swap(kind);
    bitrate.swap(rate);
    website.swap(home);
    description.swap(about);
    audio_info.swap(audio);
    source_public = listed;
    connect_time = now();
}

void Mount::announce_source() {
    LogWrite(2) << session.peer << (session.is_relay ? "Relay" : "Source")
                << " Connected (A: " << session.stream << ") [T: " << session.type << "]"
                << std::endl;
    if (session.socket) take_text(&Mount::last_ip, session.socket->GetIP());
    start_publication();
    tell_source_came();
}

void Mount::pump() {
    const std::shared_ptr<PacketBuffer> buffer = live_buffer.load();
    for (;;) {
        do_stats_snap();
        const int result = buffer->FillBuffer();
        if (result != PacketBuffer::FILL_PACKET || kick || stop)
            return log_end(result, buffer->SocketError());
        follow_metadata(*buffer);
    }
}

void Mount::follow_metadata(const PacketBuffer& buffer) {
    const auto record = buffer.GetMetaData();
    if (!record) return;
    {
        spin_guard guard(settings_lock);
        if (record == metadata) return;
    }
    change_meta_data(record);
}

// Whoever sent a request meanwhile has lost: it goes with the one whose session ends here. To a
// relay nobody's request matters.
void Mount::log_end(int result, int error) {
    if (!session.is_relay) drop_request(nullptr);
    LogWrite line(2);
    line << session.peer << (session.is_relay ? "Relay" : "Source") << " Disconnected ";
    if (result == PacketBuffer::FILL_FAILED)
        line << "[Error: (" << error << ") " << socket_strerror(error) << "] ";
    else if (!session.is_relay)
        line << "Gracefully ";
    line << "(A: " << session.stream << ")" << std::endl;
}

// Undoes what the session did so far. Listeners, packets and the reader stay. Sources are let in
// and listeners find their fallback before the directories are waited for: these may be slow.
void Mount::end_session() {
    if (session.request) drop_request(session.request);
    if (connected) tell_source_left();
    if (session.socket) session.socket->Close();
    source_socket.store(nullptr);
    if (connected) {
        stop_publication();
        MountList::IncTotalActiveMounts(-1);
        reset();
        publication->WaitForStop([this] { return stop || next_source_waits(); });
    }
    const bool was_relay = session.is_relay;
    session = {.is_relay = was_relay}; // which the rest depends on
}

// Whether somebody else is to be heard here, who need not wait for what the last one leaves behind.
bool Mount::next_source_waits() const { return !is_relay() && GetRequest() != nullptr; }

// Lets go of the stored request; with `only`, unless it is another one by now.
void Mount::drop_request(const std::shared_ptr<Request>& only) {
    std::shared_ptr<Request> dropped;
    spin_guard guard(settings_lock);
    if (only == nullptr || only == request) dropped.swap(request);
}

void Mount::close_down() {
    cleanup_buffer();
    drop_request(nullptr);
    LogWrite(2) << "Closing Mount " << address << " down" << std::endl;
    KickReceivers();
}
