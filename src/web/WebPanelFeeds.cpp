// The status feeds: what they tell, and to whom.

#include "core/OSTools.h"
#include "http/Request.h"
#include "media/Metadata.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "web/FeedDocument.h"
#include "web/FeedText.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace {

using Mounts = std::vector<std::shared_ptr<Mount>>;

// What `src` asks for: a mount's id, or its address. Empty for all.
// Kept: an address counts as the number it begins with, so that "/x" also asks for a mount 0.
bool is_asked_for(const std::string& src, const Mount& mount) {
    return std::strtol(src.c_str(), nullptr, 10) == mount.GetID() || src == mount.Address();
}

FeedDocument::Peer peer_of(const Receiver& receiver) {
    const std::shared_ptr<Request> request = receiver.GetRequest();
    return {.uuid = receiver.GetUUID(),
            .ip = receiver.GetIP(),
            .user = request->User(),
            .user_agent = request->GetHeader("User-Agent"),
            .connect_time = receiver.ConnectTime(),
            .last_service = receiver.GetLastServiceTime(),
            .bytes_sent = receiver.BytesSent()};
}

FeedDocument::Source source_of(const Mount& mount, bool in_full) {
    FeedDocument::Source source = {.description = mount.GetMountDescription(),
                                   .figures = mount.GetMountStatistics()};
    if (!in_full) return source;
    for (const auto& receiver : mount.GetReceiverList())
        source.peers.push_back(peer_of(*receiver));
    return source;
}

// The mount of the one-line feed, or null.
std::shared_ptr<Mount> mount_of_line(const std::string& src) {
    const Mounts mounts = MountList::GetAllMounts(false);
    const auto place = std::find_if(mounts.begin(), mounts.end(), [&src](const auto& mount) {
        return src.empty() ? mount->IsSymLink("/") : is_asked_for(src, *mount);
    });
    return place == mounts.end() ? nullptr : *place;
}

std::string line_of(const Mount& mount) {
    const MountStatistics figures = mount.GetMountStatistics();
    const std::string bitrate = mount.Bitrate();
    return tostring(figures.receivers) + "," + (figures.connected ? "1" : "0") + "," +
           tostring(figures.peak_receivers) + "," + tostring(figures.max_receivers) + "," +
           tostring(figures.unique_receivers) + "," +
           (bitrate.empty() ? "0" : feed_text::for_line(bitrate)) + "," +
           feed_text::for_line(figures.metadata->title);
}

// The forms of the one-line feed, by query `m`; the last is for all others.
struct LineForm {
    std::string name;
    std::string subtype;
    std::string opening;
    std::string line_end;
    std::string closing;
};
const std::string META_LINE = "<meta http-equiv=\"Pragma\" content=\"no-cache\"></head><body>";
const LineForm LINE_FORMS[] = {
    {"plain", "plain", "", "\r\n", ""},
    {"myscriptsucks", "html", "<HTML>" + META_LINE, "<br />", "</body></html>"},
    {"", "html", "<!DOCTYPE html><html><head>" + META_LINE, "<br />", "</body></html>"},
};

const LineForm& line_form(const std::string& name) {
    const auto* const last = std::end(LINE_FORMS) - 1;
    return *std::find_if(std::begin(LINE_FORMS), last,
                         [&name](const LineForm& form) { return form.name == name; });
}

} // namespace

void WebPanel::send_json_stats(const std::shared_ptr<Mount>& only) {
    const std::string json = json_feed(feed_document(only));
    const std::string callback = request->GetQuery("callback");
    if (is_js_method(callback))
        send_final(callback + "(" + json + ");", "application/javascript; charset=UTF-8", 200,
                   true);
    else
        send_final(json, "application/json; charset=UTF-8", 200, true);
}

void WebPanel::send_xml_stats(const std::shared_ptr<Mount>& only) {
    send_final(xml_feed(feed_document(only)), "text/xml; charset=UTF-8", 200, true);
}

void WebPanel::send_comma_delimited_stats() {
    const LineForm& form = line_form(request->GetQuery("m"));
    const std::shared_ptr<Mount> mount = mount_of_line(request->GetQuery("src"));
    const std::string line = mount ? line_of(*mount) + form.line_end : "";
    send_final(form.opening + line + form.closing, "text/" + form.subtype + "; charset=UTF-8", 200,
               false);
}

FeedDocument WebPanel::feed_document(const std::shared_ptr<Mount>& only) const {
    const bool for_managers = request->Path().starts_with("/admin") && !panel_mounts.empty();
    const Mounts mounts = for_managers ? panel_mounts : MountList::GetAllMounts(only == nullptr);
    FeedDocument document = {.for_managers = for_managers,
                             .in_full = for_managers || only,
                             .total_nodes = MountList::TotalReceivers(),
                             .total_unique_nodes = MountList::TotalUniqueReceivers(),
                             .total_peak_nodes = MountList::TotalPeakReceivers(),
                             .startup_time = MountList::StartTime(),
                             .system_time = panel_time,
                             .active_sources = mounts.size()};
    const std::string src = request->GetQuery("src");
    for (const auto& mount : mounts)
        if ((!only || mount == only) && (src.empty() || is_asked_for(src, *mount)))
            document.sources.push_back(source_of(*mount, document.in_full));
    return document;
}
