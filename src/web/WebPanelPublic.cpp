// What a visitor without a login finds: the home page, playlists, and files for crawlers and
// movies.

#include "config/Config.h"
#include "config/ConfigNode.h"
#include "core/OSTools.h"
#include "core/Version.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/Playlists.h"
#include "web/WebPanel.h"

#include <array>
#include <ctime>

using html::Markup;
using html::single;

namespace {

const std::string AUTHORS = "Written by the Quillwave authors.";

const std::string VERSION =
    "Quillwave Multimedia Server version " QUILLWAVE_VERSION QUILLWAVE_CODE_NAME
    " (" QUILLWAVE_PLATFORM ")";

const std::string CROSSDOMAIN = "<?xml version=\"1.0\"?>\r\n"
                                "<!DOCTYPE cross-domain-policy SYSTEM "
                                "\"http://www.adobe.com/xml/dtds/cross-domain-policy.dtd\">\r\n"
                                "<cross-domain-policy>\r\n"
                                "\t<allow-access-from domain=\"*\"/>\r\n"
                                "</cross-domain-policy>\r\n";

std::string build_date() {
    const struct tm built = BuildTime();
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%B %d, %Y", &built);
    return text.data();
}

// The host and port under which the client finds this server.
std::string host_of(const Request& request) {
    const std::string asked_for = one_line(request.GetHeader("Host"));
    if (!asked_for.empty()) return asked_for;
    const std::string port = Config::Get("PortBase", false)->GetValue("8000");
    return Config::Get("Hostname", false)->GetValue("localhost") + (port == "80" ? "" : ":" + port);
}

// "m3u", or what begins at the first dot of the path.
std::string extension_of(const std::string& path) {
    const std::size_t dot = path.find('.');
    return dot == std::string::npos ? "m3u" : path.substr(dot);
}

} // namespace

int WebPanel::send_home_page() {
    page_wrap(create_mb(create_overall_stats(), "Quillwave Streams"), "", 200);
    return ANSWERED;
}

int WebPanel::send_about_page() {
    const Markup words =
        AUTHORS + single("br") + VERSION + single("br") + "Compiled on " + build_date();
    page_wrap(create_mb(words, "About Quillwave"), "", 200);
    return ANSWERED;
}

int WebPanel::send_robots() {
    std::string body = "User-agent: *\r\nDisallow: /stream*\r\n";
    for (const auto& mount : MountList::GetAllMounts(true))
        body += "Disallow: " + mount->Address() + "\r\n";
    send_final(body, "text/plain", 200, false);
    return ANSWERED;
}

int WebPanel::send_crossdomain() {
    send_final(CROSSDOMAIN, "text/xml", 200, false);
    return ANSWERED;
}

int WebPanel::send_tunein() {
    const auto mount =
        MountList::GetMount(request->GetQuery("mnt"), request->Socket()->GetLocalIP());
    if (!mount) return NOT_A_PAGE;
    const std::string url = "http://" + host_of(*request) + UrlEncode(mount->Address(), true);
    // Kept: no extension is ever without its dot, so links that end in ".pls" are answered in the
    // other form too, and players have come to rely on its type.
    if (extension_of(request->Path()) == "pls")
        send_final(pls_playlist(mount->Name(), url), "audio/x-scpls", 200, false);
    else
        send_final(m3u_playlist(mount->Name(), url), "audio/mpegurl", 200, false);
    return ANSWERED;
}
