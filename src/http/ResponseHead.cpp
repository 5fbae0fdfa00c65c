#include "config/Config.h"
#include "core/Clock.h"
#include "core/OSTools.h"
#include "core/Version.h"
#include "http/HeaderFields.h"
#include "http/Request.h"
#include "http/Response.h"
#include "http/StatusText.h"
#include "net/Socket.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <sstream>

namespace {

constexpr const char* SERVER_NAME =
    "Quillwave Distributed Network Media Server/" QUILLWAVE_VERSION QUILLWAVE_CODE_NAME
    " (" QUILLWAVE_PLATFORM ")";

std::string gmt_text(time_t moment, const char* format) {
    struct tm parts = {};
    gmtime_r(&moment, &parts);
    std::array<char, 64> text;
    return std::string(text.data(), strftime(text.data(), text.size(), format, &parts));
}

std::string line(const std::string& text) { return text + "\r\n"; }

} // namespace

int Response::SendHeader(const std::string& body) {
    if (!body.empty() && protocol == HTTP) open_head().set("Content-Length", tostring(body.size()));
    return SendDocument(body);
}

int Response::SendDocument(const std::string& body) {
    std::string text = status == 400 && protocol == HTTP ? bad_request_document() : build_head();
    head.reset();
    if (body.empty() || request->Method() == Request::METHOD_HEAD) return Send(text);
    const bool in_pieces = body.size() > DOCUMENT_PIECE;
    if (in_pieces)
        document = std::make_shared<const std::vector<char>>(body.begin(), body.end());
    else
        text += body;
    const int sent = Send(text);
    Flush();
    return in_pieces && sent != IO_FAILED ? sent + static_cast<int>(body.size()) : sent;
}

std::string Response::build_head() {
    std::string text = status_line();
    text += protocol == HTTP ? http_fields()
                             : line("icy-notice1:<BR>This stream requires a media player") +
                                   line(std::string("icy-notice2:") + SERVER_NAME + "<BR>");
    text += own_fields();
    text += body_framing();
    text += session_cookie();
    return text + "\r\n";
}

std::string Response::status_line() const {
    std::ostringstream text;
    if (protocol == ICY)
        text << "ICY";
    else
        text << "HTTP/" << std::fixed << std::setprecision(1) << version;
    const bool own = head && !head->status_text.empty();
    text << " " << status << " " << (own ? head->status_text : StatusText(status)) << "\r\n";
    return text.str();
}

std::string Response::http_fields() {
    std::string text = line(std::string("Server: ") + SERVER_NAME);
    text += line("Date: " + gmt_text(now(), "%a, %d %b %Y %X GMT"));
    const bool kept = is_http11() && request->KeepAlive();
    text += line(kept ? "Connection: Keep-Alive" : "Connection: Close");
    if (request->Method() == Request::METHOD_OPTIONS)
        SetHeader("Allow", "GET,HEAD,POST,OPTIONS,PUT");
    return text + challenge();
}

std::string Response::challenge() const {
    if (!head || !head->auth_required) return {};
    const std::string realm = "realm=\"" + head->realm + "\"";
    if (!is_http11()) return line("WWW-Authenticate: Basic " + realm);
    const std::string uuid = GenerateUuid();
    return line("WWW-Authenticate: Digest " + realm + ", nonce=\"" +
                Base64Encode(uuid.data(), uuid.size()) + "\", algorithm=MD5, qop=\"auth\"");
}

std::string Response::own_fields() const {
    if (!head) return {};
    std::string text;
    for (const auto& [name, value] : head->headers)
        text += line(name + (protocol == HTTP ? ": " : ":") + value);
    return text;
}

// An interim answer has no body, so nothing is framed (RFC 9112 section 6.1).
std::string Response::body_framing() {
    const bool interim = status < 200;
    if (protocol != HTTP || !is_http11() || interim) return {};
    if (head && head->has("Content-Length")) return {};
    chunked = true;
    return line("Transfer-Encoding: chunked");
}

std::string Response::session_cookie() const {
    const std::string id = request->GetSessionUUID();
    if (id.empty() || protocol != HTTP) return {};
    return line("Set-Cookie: __quill_sess=" + id + "; path=/");
}

// 1.1 or more. The version is compared as a double, in which the 1.1 of a float is above 1.1.
bool Response::is_http11() const { return static_cast<double>(version) >= 1.1; }

// Kept: a request that makes no sense gets this page and no head. Clients that cannot say what they
// want are met like this by old servers of other kinds too.
std::string Response::bad_request_document() const {
    return "<!DOCTYPE HTML PUBLIC \"-//IETF//DTD HTML 2.0//EN\"><html><head><title>400 Bad "
           "Request</title></head><body>\r\n"
           "<h1>Bad Request</h1>\r\n"
           "<p>Your browser sent a request that this server could not understand.<br /></p><hr>\r\n"
           "<address>Quillwave Multimedia server port " +
           Config::Get("Hostname", false)->GetValue("localhost") +
           Config::Get("PortBase", false)->GetValue("8000") + "</address>\r\n</body></html>";
}

Response::Head& Response::open_head() {
    if (!head) head = std::make_unique<Head>();
    return *head;
}

void Response::Head::set(const std::string& name, const std::string& value) {
    for (auto& [known, old_value] : headers)
        if (known == name) old_value = value;
    headers.emplace_back(name, value);
}

bool Response::Head::has(std::string_view name) const {
    return std::any_of(headers.begin(), headers.end(),
                       [name](const auto& field) { return field.first == name; });
}

void Response::SetHeader(const std::string& name, const std::string& value) {
    if (name == "Date") return; // always generated
    open_head().set(name, without_control_bytes(value));
}

void Response::RemoveHeader(const std::string& name) {
    if (head)
        std::erase_if(head->headers, [&name](const auto& field) { return field.first == name; });
}

void Response::RequireAuthorization(std::string realm) {
    open_head().auth_required = true;
    open_head().realm = without_control_bytes(std::move(realm));
}

void Response::AddCookie(const std::string& name, const std::string& value, long expires,
                         const std::string& path, const std::string& domain, unsigned char flags) {
    std::string text = name + "=" + value;
    if (expires > 0) text += "; expires=" + gmt_text(expires, "%a, %d-%b-%Y %X GMT");
    if (!path.empty()) text += "; path=" + path;
    if (!domain.empty()) text += "; domain=" + domain;
    if (flags & COOKIE_SECURE) text += "; Secure";
    if (flags & COOKIE_HTTP_ONLY) text += "; HttpOnly";
    SetHeader("Set-Cookie", text);
}
