// The page of one stream.

#include "core/OSTools.h"
#include "http/Request.h"
#include "media/Metadata.h"
#include "media/PacketBuffer.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/StreamActions.h"
#include "web/StreamState.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <iterator>
#include <string_view>

using html::label_row;
using html::Markup;

namespace {

// ---- Values -------------------------------------------------------------------------------------

Markup status(const StreamState& stream) {
    const MountDescription& description = stream.description;
    std::string words = description.address.substr(1) + " is ";
    if (!stream.figures.connected) return words + "offline";
    return words + "online and currently " + (description.is_public ? "public" : "private");
}

Markup name(const StreamState& stream) { return converted(stream.description.name); }

// Whether a browser opens the address itself, and runs nothing that stands in it.
bool is_link(const std::string& address) {
    static constexpr std::string_view SCHEMES[] = {"http", "https", "ftp", "mailto",
                                                   "rtsp", "rtmp",  "mms"};
    std::string scheme = address.substr(0, address.find("://"));
    tolower(scheme);
    return std::find(std::begin(SCHEMES), std::end(SCHEMES), scheme) != std::end(SCHEMES);
}

Markup website(const StreamState& stream) {
    const std::string& words = stream.description.website;
    const std::string address = UrlFixer(words);
    return is_link(address) ? html::anchor(address, converted(words)) : converted(words);
}

Markup genre(const StreamState& stream) { return converted(stream.description.genre); }

Markup content_type(const StreamState& stream) { return stream.description.content_type; }

Markup bitrate(const StreamState& stream) {
    const std::string& described = stream.description.bitrate;
    return DataSizeToString(stream.figures.bitrate, true) +
           (described.empty() ? "" : " (" + described + ")");
}

Markup listeners(const StreamState& stream) {
    const MountStatistics& figures = stream.figures;
    const std::string most =
        figures.max_receivers > 0 ? " of " + tostring(figures.max_receivers) : "";
    return tostring(figures.receivers) + most + " (" + tostring(figures.unique_receivers) +
           " Unique)";
}

Markup tune_ins(const StreamState& stream) {
    return tostring(stream.figures.tune_ins) + " (5 mins: " + tostring(stream.figures.ex_tune_ins) +
           ")";
}

Markup listening_time(const StreamState& stream) {
    return TimeToString(stream.figures.avg_connect, true);
}

Markup quarter_hour(const StreamState& stream) { return tostring(stream.figures.avg_quarter_hour); }

Markup playing(const StreamState& stream) { return converted(stream.figures.metadata->title); }

// ---- Rows ---------------------------------------------------------------------------------------

enum class Reader { ANYBODY, MANAGER };

struct Figure {
    const char* label;
    Markup (*value)(const StreamState& stream);
    Reader reader = Reader::ANYBODY;
};

const Figure FIGURES[] = {
    {"Stream Status:", status},
    {"Name:", name},
    {"Website:", website},
    {"Genre:", genre},
    {"Content Type:", content_type},
    {"Bitrate:", bitrate},
    {"Listeners:", listeners},
    {"Tune-Ins:", tune_ins, Reader::MANAGER},
    {"Average Listening Time (TSL):", listening_time, Reader::MANAGER},
    {"Average Quarter Hour (AQH):", quarter_hour, Reader::MANAGER},
    {"Now Playing:", playing},
};

Markup figures_of(const StreamState& stream, bool admin) {
    Markup rows;
    for (const Figure& figure : FIGURES)
        if (admin || figure.reader == Reader::ANYBODY)
            rows += label_row(figure.label, figure.value(stream));
    return rows;
}

Markup hex_row(const std::string& label, const std::vector<char>& bytes) {
    std::string hex;
    bytes_to_hex(bytes, hex);
    return label_row(label, hex);
}

Markup raw_metadata(const METADATA& metadata) {
    return metadata.raw.empty() ? Markup() : hex_row("Raw Metadata:", metadata.raw);
}

Markup packet_rows(const BufferEntry& packet) {
    const auto record = packet.GetMetaData();
    const std::string label =
        tostring(packet.header_id) + " Raw PacketBuffer Sz " + tostring(packet.size) + ":";
    return (record ? hex_row("Raw Metadata:", record->raw) : Markup()) +
           hex_row(label, packet.data);
}

// All packets that are retained, for who hunts a fault in a stream.
Markup packet_dump(const Mount& mount) {
    const auto buffer = mount.GetPacketBuffer();
    if (!buffer) return {};
    const auto packets = buffer->GetBufferSnapShot();
    if (packets.empty()) return {};
    Markup rows =
        label_row("Packet Buffer Size:", tostring(buffer->GetBufferCount()) + " keys and " +
                                             tostring(buffer->GetBufferSize()) + " bytes");
    for (const auto& packet : packets)
        rows += packet_rows(*packet);
    return rows;
}

Markup actions_on(const MountStatistics& figures) {
    const Markup kick = figures.connected ? create_action_button("Kick") : Markup();
    const Markup buttons = kick + create_action_button(figures.running ? "Disable" : "Enable") +
                           create_action_button("Reset Stats");
    return html::row({{"class", "tableViewCol"}},
                     html::cell({{"colspan", "2"}}, html::form(buttons)));
}

} // namespace

Markup WebPanel::create_mount_stats(int id, bool admin) {
    const std::shared_ptr<Mount> mount = MountList::GetMount(id);
    if (!mount) return "Stream ID: " + tostring(id) + " does not exist.";
    if (admin) run_mount_action(*request, *mount);
    const StreamState stream(*mount);
    Markup rows = figures_of(stream, admin);
    if (admin && request->GetQuery("rmd") == "y") rows += raw_metadata(*stream.figures.metadata);
    if (admin && request->GetQuery("rpb") == "y") rows += packet_dump(*mount);
    if (admin) rows += actions_on(stream.figures);
    return html::table({{"class", "tableView"}}, rows);
}
