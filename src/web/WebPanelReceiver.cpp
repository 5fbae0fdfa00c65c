// The page of one listener.

#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/Receiver.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <cmath>

using html::label_row;
using html::Markup;
using html::raw;

namespace {

Markup requested_resource(const Request& request, const Mount& mount) {
    const std::string stream = "/admin/stream/" + tostring(mount.GetID()) + "/";
    return Markup(request.Path()) + " (" + html::anchor(stream, mount.Address()) + ")";
}

std::string remote_address(const Receiver& receiver) {
    const std::string hostname = receiver.GetHostname();
    const std::string ip = receiver.GetIP();
    return hostname == ip ? ip : hostname + " (" + ip + ")";
}

std::string listening_time(const Receiver& receiver) {
    const double seconds = std::max(std::floor(receiver.GetConnectTime()), 0.0);
    return TimeToString(static_cast<unsigned long long>(seconds), true);
}

Markup cookies(const Request& request) {
    Markup lines;
    for (const std::string& key : request.GetAllCookieKeys()) {
        if (!lines.empty()) lines += raw("<br />");
        lines += key + " = " + request.GetCookie(key);
    }
    return lines;
}

Markup with_line_breaks(const std::string& text) {
    Markup lines;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find('\n', start)) != text.npos; start = end + 1)
        lines += Markup(text.substr(start, end - start)) + raw("\n<br />");
    return lines + text.substr(start);
}

Markup receiver_rows(const Receiver& receiver, const Mount& mount) {
    const auto request = receiver.GetRequest();
    return label_row("UUID:", receiver.GetUUID()) + label_row("Method:", request->MethodString()) +
           label_row("Requested Resource:", requested_resource(*request, mount)) +
           label_row("Query:", request->Query()) +
           label_row("Remote Address:", remote_address(receiver)) +
           label_row("User:", latin1_to_utf8(request->User(), true)) +
           label_row("User-Agent:", latin1_to_utf8(request->GetHeader("User-Agent"), true)) +
           label_row("Bitrate:", DataSizeToString(receiver.GetBitrate(false), true)) +
           label_row("Listening Time:", listening_time(receiver)) +
           label_row("Bytes Sent:", DataSizeToString(receiver.BytesSent(), false)) +
           label_row("Cookies:", cookies(*request)) +
           label_row("Raw Request:", with_line_breaks(request->GetRawRequest()));
}

} // namespace

Markup WebPanel::create_receiver_stats(const std::string& uuid) {
    for (const auto& mount : panel_mounts) {
        const auto receivers = mount->GetReceiverList();
        const auto found = std::ranges::find(receivers, uuid, &Receiver::GetUUID);
        if (found == receivers.end()) continue;
        // Kept: a row begins that has no end. Programs that count the rows of this page know it.
        return html::table({{"class", "tableView"}}, raw("<tr>") + receiver_rows(**found, *mount));
    }
    return "Receiver ID: " + uuid + " does not exist.";
}
