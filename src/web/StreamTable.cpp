#include "web/StreamTable.h"

#include "core/OSTools.h"
#include "media/Metadata.h"
#include "web/FormFields.h"

#include <cstdint>
#include <numeric>

using html::Attributes;
using html::cell;
using html::element;
using html::Markup;
using html::row;
using html::single;

namespace {

using Streams = StreamTable::Streams;

// Characters, at which texts of strangers are cut.
constexpr unsigned int LONG_CUT = 90;
constexpr unsigned int SHORT_CUT = 30;

const std::string PUBLIC_PAGE = "/view/";
const std::string MANAGED_PAGE = "/admin/stream/";
const Attributes INDEX_CELL = {
    {"class", "tableViewIndex"}, {"colspan", "2"}, {"style", "width: 10px;"}};
// Not to be seen, but read out by a screen reader.
const Attributes SPOKEN_ONLY = {{"style", "position: absolute; left: -9999px;"}};

void hide_if(bool hidden, Attributes& attributes) {
    if (hidden) attributes.push_back({"style", "display: none;"});
}

// ---- Pieces of cells ----------------------------------------------------------------------------

Markup spoken(const std::string& words) { return element("span", SPOKEN_ONLY, words); }

Markup check_of(const StreamState& stream) {
    const std::string& address = stream.description.address;
    return element("label", create_row_check(address) + spoken("Select " + address));
}

// What a player needs to know in order to tell whether it can play the stream.
std::string media_type(const StreamState& stream) {
    const std::string& type = stream.description.content_type;
    std::string codec = stream.figures.metadata->codec;
    return codec.empty() ? type : type + "; codecs=\"" + tolower(codec) + "\"";
}

// A playlist, and with the page's player its button.
Markup play_link(const StreamState& stream) {
    const std::string& address = stream.description.address;
    const Markup picture = single(
        "img", {{"src", "/images/play.png"}, {"width", "20"}, {"height", "20"}, {"alt", "Play"}});
    return element("a",
                   {{"href", "/sbin/tunein.pls?mnt=" + UrlEncode(address, false)},
                    {"id", address},
                    {"type", media_type(stream)}},
                   picture);
}

Markup details_link(const std::string& page, const StreamState& stream, const std::string& text) {
    const std::string address = page + tostring(stream.description.id) + "/";
    return element("span", {{"class", "stationDetails"}},
                   element("a", {{"class", "streamName"}, {"href", address}}, text));
}

Markup sent_text(const std::string& text, unsigned int cut) { return welips(converted(text), cut); }

Markup bytes(std::uint64_t count) { return DataSizeToString(count, false); }

Markup bits(std::uint64_t count) { return DataSizeToString(count, true); }

// ---- Cells --------------------------------------------------------------------------------------

Markup public_name(const StreamState& stream, time_t) {
    return play_link(stream) +
           details_link(PUBLIC_PAGE, stream, welips(converted(stream.description.name), LONG_CUT));
}

Markup managed_name(const StreamState& stream, time_t) {
    return check_of(stream) + play_link(stream) +
           details_link(MANAGED_PAGE, stream, welips(stream.description.address, SHORT_CUT));
}

Markup last_ip(const StreamState& stream, time_t) { return stream.description.last_ip; }

Markup title(const StreamState& stream, time_t) {
    return sent_text(stream.figures.metadata->title, LONG_CUT);
}

Markup short_title(const StreamState& stream, time_t) {
    return sent_text(stream.figures.metadata->title, SHORT_CUT);
}

Markup genre(const StreamState& stream, time_t) {
    return sent_text(stream.description.genre, SHORT_CUT);
}

Markup connect_time(const StreamState& stream, time_t moment) {
    return time_since(stream.description.connect_time, moment);
}

Markup receivers(const StreamState& stream, time_t) {
    const MountStatistics& figures = stream.figures;
    const std::string most =
        figures.max_receivers > 0 ? "/" + tostring(figures.max_receivers) : std::string();
    return tostring(figures.receivers) + most + " (" + tostring(figures.unique_receivers) +
           " unique)";
}

Markup bitrate(const StreamState& stream, time_t) { return bits(stream.figures.bitrate); }

Markup received(const StreamState& stream, time_t) { return bytes(stream.figures.bytes_received); }

Markup sent(const StreamState& stream, time_t) { return bytes(stream.figures.bytes_sent); }

// ---- Columns ------------------------------------------------------------------------------------

struct Column {
    const char* heading;
    Markup (*content)(const StreamState& stream, time_t moment);
    Attributes attributes = {};
    const char* span = "1"; // of the heading
};

const std::vector<Column> PUBLIC_COLUMNS = {
    {"Name", public_name, INDEX_CELL, "2"},
    {"Playing", title, {{"class", "metaSong"}}},
    {"Genre", genre, {{"class", "genreBitrate"}}},
    {"Listeners", receivers, {{"class", "receiversCount"}}},
};

const std::vector<Column> MANAGER_COLUMNS = {
    {"Name", managed_name, INDEX_CELL, "2"},
    {"Last IP", last_ip},
    {"Playing", short_title, {{"class", "metaSong"}}},
    {"Connect Time", connect_time, {{"class", "genreBitrate"}}},
    {"Listeners", receivers, {{"class", "receiversCount"}}},
    {"Bitrate", bitrate},
    {"Bytes Received", received},
    {"Bytes Sent", sent},
};

const std::vector<Column>& columns_of(StreamTable::Form form) {
    return form == StreamTable::Form::FOR_ALL ? PUBLIC_COLUMNS : MANAGER_COLUMNS;
}

const char* width_of(StreamTable::Form form) {
    return form == StreamTable::Form::FOR_ALL ? "5" : "9";
}

// ---- Sums ---------------------------------------------------------------------------------------

std::uint64_t sum(const Streams& streams, std::uint64_t MountStatistics::*figure) {
    return std::accumulate(streams.begin(), streams.end(), std::uint64_t{0},
                           [figure](std::uint64_t total, const StreamState& stream) {
                               return total + stream.figures.*figure;
                           });
}

std::string total_receivers(const Streams& streams) {
    const std::uint64_t all = sum(streams, &MountStatistics::receivers);
    const std::uint64_t unique = sum(streams, &MountStatistics::unique_receivers);
    return tostring(all) + (all == unique ? "" : " (" + tostring(unique) + " unique)");
}

Markup bold_cell(const Markup& content) { return cell(element("b", content)); }

} // namespace

Markup StreamTable::Head(bool is_empty, const Markup& master_check) const {
    Markup before;
    if (!master_check.empty())
        before = element("label", master_check + spoken("Select all streams"));
    Markup cells;
    for (const Column& column : columns_of(form)) {
        cells +=
            cell({{"colspan", column.span}, {"role", "columnheader"}}, before + column.heading);
        before = {};
    }
    Attributes attributes = {{"class", "tableViewHead"}};
    hide_if(is_empty, attributes);
    return row(attributes, cells);
}

Markup StreamTable::None(bool is_empty) const {
    Attributes attributes = {{"class", "tableViewCol"}, {"id", "tableViewNone"}};
    hide_if(!is_empty, attributes);
    return Wide(attributes, "No streams are available.");
}

Markup StreamTable::Row(const StreamState& stream) const {
    Markup cells;
    for (const Column& column : columns_of(form))
        cells += cell(column.attributes, column.content(stream, moment));
    return row(
        {{"class", "tableViewCol"}, {"id", "internalStation" + tostring(stream.description.id)}},
        cells);
}

Markup StreamTable::Wide(const Attributes& row_attributes, const Markup& content) const {
    return row(row_attributes, cell({{"colspan", width_of(form)}}, content));
}

Markup StreamTable::Block(const std::string& title_words, const std::string& row_class,
                          const Streams& streams) const {
    if (streams.empty()) return {};
    Markup rows = Wide({{"class", "tableViewHead"}}, title_words);
    for (const StreamState& stream : streams) {
        const Markup link = html::anchor(MANAGED_PAGE + tostring(stream.description.id),
                                         stream.description.address);
        rows += row({{"class", row_class}}, cell(INDEX_CELL, check_of(stream) + link) +
                                                cell({{"colspan", "5"}}, last_ip(stream, moment)) +
                                                cell(received(stream, moment)) +
                                                cell(sent(stream, moment)));
    }
    return rows;
}

Markup StreamTable::Totals(const Markup& actions, const Streams& connected) {
    return row({{"class", "tableViewCol"}},
               cell({{"colspan", "4"}, {"id", "mount_actions"}}, actions) + cell("Totals:") +
                   bold_cell(total_receivers(connected)) +
                   bold_cell(bits(sum(connected, &MountStatistics::bitrate))) +
                   bold_cell(bytes(sum(connected, &MountStatistics::bytes_received))) +
                   bold_cell(bytes(sum(connected, &MountStatistics::bytes_sent))));
}
