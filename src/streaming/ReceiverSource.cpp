// The two ways in which a source introduces itself: the ICY login line "user:password", answered
// with "OK2" and followed by a block of header fields, and an HTTP request (SOURCE or PUT).

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "http/Response.h"
#include "net/Socket.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverList.h"

#include <vector>

namespace {

const std::string BAD_PASSWORD = "bad password\r\n";
const std::string LOGIN_ACCEPTED = "OK2\r\nicy-caps:11\r\n\r\n";

// The login line, taken apart. A part that is missing is empty.
struct Login {
    std::string username = {};
    std::string password = {};
};

Login take_apart(const std::string& line) {
    const std::vector<std::string> parts = split(line, ':');
    Login login;
    if (!parts.empty()) login.username = parts[0];
    if (parts.size() > 1) login.password = parts[1];
    return login;
}

// The mount that an account sends to; null when there is none or the account may not.
std::shared_ptr<Mount> source_mount(const User& user) {
    const int id = user.GetFirstMount();
    return user.IsMountSourceUser(id) ? MountList::GetMount(id) : nullptr;
}

// What bars this login, in the words of the log; empty when nothing does, and then the mount is
// set.
std::string login_fault(const std::string& line, const std::string& local_ip,
                        std::shared_ptr<Mount>& mount) {
    if (line.find(':') == std::string::npos) return "lacks a username.";
    const Login login = take_apart(line);
    const std::string name = log_text(login.username);
    const std::shared_ptr<User> user = UserList::Get(login.username, "");
    if (user == UserList::GetAnonymousUser()) return "unknown user " + name;
    if (login.password.empty() || !user->Authenticate(login.password))
        return "bad password for user " + name;
    const std::shared_ptr<Mount> found = source_mount(*user);
    if (!found) return "user " + name + " is not a Source user";
    const std::string assigned = found->GetAssignedIP();
    if (!assigned.empty() && assigned != local_ip) return "user " + name + " connected to wrong IP";
    mount = found;
    return {};
}

} // namespace

// ---- ICY ----------------------------------------------------------------------------------------

// Without a mount the line that was read is the login; with one, the login is done and the header
// fields are being read.
void Receiver::greet_icy_source(int read_result) {
    if (!mount)
        log_in_icy_source();
    else if (read_result == IO_FAILED)
        LogWrite(1) << peer() << "ICY Source disconnected by error" << std::endl;
    else if (request->Complete())
        hand_over();
}

void Receiver::log_in_icy_source() {
    LogWrite(2) << peer() << "Incoming ICY Source" << std::endl;
    std::string line = request->FirstLine();
    trim(line);
    std::shared_ptr<Mount> found;
    const std::string fault = login_fault(line, socket->GetLocalIP(), found);
    if (!fault.empty()) {
        LogWrite(2) << peer() << "ICY Source " << fault << std::endl;
        socket->Send(&BAD_PASSWORD, 0);
        become(ENDING);
        return;
    }
    const Login login = take_apart(line);
    request->SetCredientials(login.username, login.password);
    socket->Send(&LOGIN_ACCEPTED, 0);
    set_mounts(found, nullptr);
}

// ---- HTTP ---------------------------------------------------------------------------------------

void Receiver::answer_http_source() {
    LogWrite(2) << peer() << "Incoming HTTP Source" << std::endl;
    if (!account->IsMountSourceUser(mount->GetID())) {
        LogWrite(1) << peer() << "Receiver source authentication failure." << std::endl;
        start_answer(401).SendHeader("");
        conclude();
        return;
    }
    LogWrite(1) << peer() << "Receiver source authenticated." << std::endl;
    start_answer(source_status()).SendHeader("");
    answer_then(Then::HAND_OVER);
}

// 100 for a PUT as HTTP/1.1 wants it, 200 for the older ways.
unsigned short Receiver::source_status() const {
    if (request->Method() == Request::METHOD_SOURCE) {
        LogWrite(2) << peer() << "Source Falling back to ICE protocol" << std::endl;
        return 200;
    }
    if (!request->GetHeader("Content-Length").empty() ||
        !request->GetHeader("Transfer-Encoding").empty()) {
        LogWrite(1) << peer() << "Receiver source correctly defined a 1.1 PUT request."
                    << std::endl;
        return 100;
    }
    LogWrite(2) << "Warning: Source connected requesting PUT method but failed to supply a "
                   "Content-Length or Transfer-Encoding header.  A lazy programmer has forced us "
                   "to fall back to legacy Icecast SOURCE method.  Do not contact us about this "
                   "warning, contact the maintainer of your source application."
                << std::endl;
    return 200;
}

// From SetRequest on the socket is the mount's: not a byte more is read or written here. An HTTP
// source leaves at once.
// Kept: an ICY source leaves with the next slice, by the line that a finished connection logs.
void Receiver::hand_over() {
    stop_watching();
    become(FINISHED);
    mount->SetRequest(request);
    if (request->Method() != Request::METHOD_ICY_LOGIN) leave_list();
}
