// A mount that fetches its stream from another server: it calls the address whose turn it is, and
// tries again for ever.

#include "config/Config.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "core/Version.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "streaming/Mount.h"

#include <chrono>
#include <utility>

namespace {

constexpr int LOOK_MS = 50; // between two looks at the flags
constexpr float VERSION = 1.1F;
constexpr int ACCEPTED = 200;
constexpr const char* USER_AGENT =
    "Quillwave Distributed Network Media Server/" QUILLWAVE_VERSION QUILLWAVE_CODE_NAME
    " (" QUILLWAVE_PLATFORM ")(Shoutcast compatible)";

// An answer with metadata in it, by either way of carrying it.
std::shared_ptr<Request> request_for(const std::string& target) {
    auto request = std::make_shared<Request>(target, Request::METHOD_GET, "", "",
                                             Request::PROTOCOL_HTTP, VERSION);
    request->SetHeader("User-Agent", USER_AGENT);
    request->SetHeader("Icy-MetaData", "1");
    request->SetHeader("Accept-Encoding", "chunked");
    return request;
}

} // namespace

bool Mount::is_relay() const {
    spin_guard guard(settings_lock);
    return !relays.empty();
}

// False when there is no stream, for whatever reason.
bool Mount::connect_relay() {
    kick = false; // one that came before was not meant for this connection
    const auto master = request_for(RelayAddress());
    take_text(&Mount::last_ip, master->Host());
    session = {.request = master, .peer = "<" + log_text(master->Host()) + "> ", .is_relay = true};
    call_master(*master);
    session.socket = master->Socket();
    source_socket.store(session.socket);
    if ((stop || kick) && session.socket) session.socket->Shutdown();

    const std::string ip = master->GetIP();
    if (!ip.empty()) session.peer = "<" + ip + "> ";
    const std::string port = tostring(Config::Get("PortBase", false)->GetValue(8000));
    session.stream = log_text(master->GetLocalIP() + ":" + port + address);
    if (master->Status() == ACCEPTED) return !stop;
    if (!stop) log_relay_failure(*master);
    return false;
}

void Mount::call_master(Request& master) {
    const int limit = Config::Get("SocketTimeout", false)->GetValue(5);
    const time_t start = now();
    while (!stop && !kick && difftime(now(), start) < limit && master.InitiateRequest() == IO_AGAIN)
        master.AwaitStep(LOOK_MS);
}

void Mount::log_relay_failure(const Request& master) const {
    LogWrite line(2);
    line << session.peer << "Relay Connect Failed, Retrying in " << relay_wait << "s";
    if (master.Status() > 0)
        line << " [Error: (" << master.Status() << ") " << log_text(master.Message()) << "]";
    line << " (A: " << session.stream << ")" << std::endl;
}

// After a session as a relay. Without addresses, which may have gone meanwhile, sources are waited
// for at once.
void Mount::rest_from_relay() {
    {
        spin_guard guard(settings_lock);
        relays.Advance();
    }
    std::unique_lock guard(wake_mutex);
    wake_up.wait_for(guard, std::chrono::seconds(relay_wait),
                     [this] { return stop || kick || !is_relay(); });
}
