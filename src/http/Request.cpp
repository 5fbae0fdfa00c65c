#include "http/Request.h"

#include "http/AcceptList.h"
#include "http/Cookies.h"
#include "http/LeadingNumber.h"
#include "http/OutboundExchange.h"
#include "http/Sessions.h"
#include "net/Socket.h"
#include "net/url.h"

#include <utility>

namespace {

constexpr int DEFAULT_PORT = 80;

template <typename Map> std::vector<std::string> keys_of(const Map& map) {
    std::vector<std::string> keys;
    keys.reserve(map.size());
    for (const auto& [key, value] : map)
        keys.push_back(key);
    return keys;
}

std::string value_of(const std::map<std::string, std::string>& map, const std::string& key) {
    const auto found = map.find(key);
    return found == map.end() ? std::string() : found->second;
}

} // namespace

Request::Request(std::shared_ptr<::Socket> connection)
    : socket(std::move(connection)), ip(socket ? socket->GetIP() : std::string()),
      local_ip(socket ? socket->GetLocalIP() : std::string()) {}

Request::Request(const std::string& address, RequestMethod with_method, std::string body_text,
                 std::string from_ip, RequestProtocol with_protocol, float with_version)
    : Request(::url(address), with_method, std::move(body_text), std::move(from_ip), with_protocol,
              with_version) {}

Request::Request(const ::url& target, RequestMethod with_method, std::string body_text,
                 std::string from_ip, RequestProtocol with_protocol, float with_version)
    : exchange(std::make_unique<OutboundExchange>(target, std::move(body_text), from_ip)),
      method(with_method), protocol(with_protocol), version(with_version),
      local_ip(std::move(from_ip)) {}

Request::~Request() = default;

bool Request::Valid() const {
    if (method == METHOD_UNKNOWN || Path().empty()) return false;
    if (protocol != PROTOCOL_HTTP && protocol != PROTOCOL_ICE) return false;
    if (version == 1.0F) return true;
    return protocol == PROTOCOL_HTTP && is_http11() && !GetHeader("Host").empty();
}

// 1.1 or more. The version is compared as a double, in which the 1.1 of a float is above 1.1.
bool Request::is_http11() const { return static_cast<double>(version) >= 1.1; }

std::string Request::MethodString() const {
    return method == METHOD_ICY_LOGIN ? "" : HTTP_METHOD_STRINGS[method];
}

std::string Request::Path() const {
    spin_guard guard(field_lock);
    return path;
}

std::string Request::Query() const {
    spin_guard guard(field_lock);
    return query_string;
}

std::string Request::FirstLine() const {
    spin_guard guard(field_lock);
    const std::size_t end = raw_header.find('\n');
    return end == std::string::npos ? std::string() : raw_header.substr(0, end);
}

std::string Request::BareLine() const {
    spin_guard guard(field_lock);
    return bare_line;
}

std::string Request::GetRawRequest() const {
    spin_guard guard(field_lock);
    return raw_header;
}

std::string Request::User() const {
    spin_guard guard(field_lock);
    return user;
}

std::string Request::Pass() const {
    spin_guard guard(field_lock);
    return pass;
}

void Request::SetCredientials(std::string name, std::string password) {
    spin_guard guard(field_lock);
    user.swap(name);
    pass.swap(password);
}

std::string Request::Message() const {
    spin_guard guard(field_lock);
    return message;
}

std::string Request::GetIP() const {
    spin_guard guard(field_lock);
    return ip;
}

std::string Request::GetLocalIP() const {
    spin_guard guard(field_lock);
    return local_ip;
}

std::string Request::peer() const { return "<" + GetIP() + "> "; }

std::string Request::Host() const {
    if (exchange && !exchange->Target().Host().empty()) return exchange->Target().Host();
    const std::string host = GetHeader("Host");
    return host.substr(0, host.find(':'));
}

int Request::Port() const {
    if (exchange && !exchange->Target().Host().empty()) return exchange->Target().Port();
    const std::string local = socket ? socket->GetLocalInfo().port : std::string();
    if (!local.empty()) return leading_number<unsigned short>(local);
    const std::string host = GetHeader("Host");
    const std::size_t colon = host.find(':');
    if (colon == std::string::npos) return DEFAULT_PORT;
    return leading_number<unsigned short>(std::string_view(host).substr(colon + 1));
}

std::string Request::GetHeader(const std::string& name) const {
    spin_guard guard(field_lock);
    return headers.Get(name);
}

void Request::SetHeader(const std::string& name, const std::string& value) {
    spin_guard guard(field_lock);
    headers.Set(name, value);
}

std::string Request::GetQuery(const std::string& name) const {
    spin_guard guard(field_lock);
    return value_of(query, name);
}

std::string Request::GetCookie(const std::string& name) const {
    return value_of(parse_cookies(GetHeader("Cookie")), name);
}

std::string Request::GetFormField(const std::string& name) const {
    spin_guard guard(field_lock);
    return form ? value_of(form->fields, name) : std::string();
}

std::vector<std::string> Request::GetAllHeaderKeys() const {
    spin_guard guard(field_lock);
    return headers.Keys();
}

std::vector<std::string> Request::GetAllQueryKeys() const {
    spin_guard guard(field_lock);
    return keys_of(query);
}

std::vector<std::string> Request::GetAllCookieKeys() const {
    return keys_of(parse_cookies(GetHeader("Cookie")));
}

std::vector<std::string> Request::GetAllFormFields() const {
    spin_guard guard(field_lock);
    return form ? keys_of(form->fields) : std::vector<std::string>();
}

std::vector<Request::TransmittedObject> Request::GetAllMultipartForm() const {
    spin_guard guard(field_lock);
    return form ? form->files : std::vector<TransmittedObject>();
}

std::string Request::GetSessionUUID() const {
    if (const auto mine = session.load()) return mine->Id();
    spin_guard guard(field_lock);
    return session_uuid;
}

std::string Request::GetSessionVar(const std::string& name,
                                   const std::string& default_value) const {
    const auto mine = session.load();
    return mine ? mine->Get(name, default_value) : default_value;
}

void Request::SetSessionVar(const std::string& name, const std::string& value) {
    if (const auto mine = session.load()) mine->Set(name, value);
}

bool Request::Acceptable(const std::string& media_type) const {
    return accepts(parse_accept(GetHeader("Accept")), media_type);
}

int Request::GetPreferredProtocol() const {
    if (!Valid()) return protocol;
    if (Path().starts_with("/;")) return PROTOCOL_ICY;
    if (GetHeader("Icy-MetaData") == "1" && GetQuery("http").empty()) return PROTOCOL_ICY;
    if (!GetQuery("icy").empty()) return PROTOCOL_ICY;
    return protocol;
}
