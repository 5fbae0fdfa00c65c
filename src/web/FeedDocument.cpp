// The fields of the status documents, in their order. Names, titles and what listeners say of
// themselves are made UTF-8.
// Kept: what describes the audio stands as the source wrote it. A source that writes it in Latin-1
// makes a document that is no UTF-8; readers compare these fields byte by byte.

#include "core/Version.h"
#include "media/Metadata.h"
#include "web/FeedText.h"
#include "web/FeedWriter.h"

#include <map>
#include <memory>

using feed_text::to_utf8;

namespace {

using Source = FeedDocument::Source;

int status_of(const MountStatistics& figures) {
    if (figures.connected) return 1;
    return figures.running ? -1 : 2;
}

void write_time(FeedWriter& out, const char* key, time_t moment) {
    out.Number(key, static_cast<std::int64_t>(moment));
}

void write_tags(FeedWriter& out, const char* key, const METADATA& metadata) {
    if (metadata.extended.empty()) return;
    out.BeginObject(key);
    for (const auto& [name, value] : metadata.extended)
        out.Tag(feed_text::tag_key(name), to_utf8(value));
    out.EndObject();
}

void write_description(FeedWriter& out, const Source& source) {
    const MountDescription& about = source.description;
    out.Text("mount", about.address);
    out.Number("status", std::int64_t{status_of(source.figures)});
    out.Text("name", to_utf8(about.name));
    out.Text("description", to_utf8(about.description));
    out.Text("genre", to_utf8(about.genre));
    out.Text("url", to_utf8(about.website));
    out.Text("bitrate", about.bitrate);
}

void write_song(FeedWriter& out, const METADATA& metadata) {
    out.Text("meta_song", to_utf8(metadata.title));
    out.Text("meta_url", to_utf8(metadata.url));
    write_tags(out, "meta_custom_tags", metadata);
}

void write_limit(FeedWriter& out, std::int32_t most) {
    if (most > 0)
        out.Number("max_nodes", std::int64_t{most});
    else if (out.ShowsEmpty())
        out.Text("max_nodes", "");
}

void write_audience(FeedWriter& out, const MountStatistics& figures) {
    out.Number("nodes", figures.receivers);
    out.Number("peak_nodes", figures.peak_receivers);
    out.Number("unique_nodes", figures.unique_receivers);
    write_limit(out, figures.max_receivers);
    out.Number("average_connect_time", figures.avg_connect);
    out.Number("tuneins", figures.tune_ins);
    out.Number("extended_tuneins", figures.ex_tune_ins);
}

void write_figures_for_managers(FeedWriter& out, const Source& source) {
    out.Number("average_quarter_hour", source.figures.avg_quarter_hour);
    write_time(out, "connect_time", source.description.connect_time);
    out.Number("bytes_recv", source.figures.bytes_received);
    out.Number("bytes_sent", source.figures.bytes_sent);
}

void write_audio(FeedWriter& out, const Source& source) {
    out.Text("content_type", source.description.content_type);
    out.Text("audio_info", source.description.audio_info);
    out.Text("sub_type", source.figures.metadata->codec);
}

void write_played(FeedWriter& out, const SongHistory& songs) {
    if (songs.empty() && !out.ShowsEmpty()) return;
    out.BeginList("played");
    for (const auto& [ended, song] : songs) {
        out.BeginEntry("song_event");
        out.Text("song_title", to_utf8(song->title));
        write_time(out, "entry_time", ended);
        out.Number("entry_hits", song->tune_ins.load());
        write_tags(out, "custom_tags", *song);
        out.EndEntry();
    }
    out.EndList();
}

void write_peers(FeedWriter& out, const std::vector<FeedDocument::Peer>& peers) {
    if (peers.empty() && !out.ShowsEmpty()) return;
    out.BeginList("peers");
    for (const FeedDocument::Peer& peer : peers) {
        out.BeginEntry("peer");
        out.Id(peer.uuid);
        out.Text("ip", peer.ip);
        out.Text("user", to_utf8(peer.user));
        out.Text("user_agent", to_utf8(peer.user_agent));
        write_time(out, "pconnect_time", peer.connect_time);
        write_time(out, "lservice_time", peer.last_service);
        out.Number("pbytes_sent", peer.bytes_sent);
        out.EndEntry();
    }
    out.EndList();
}

void write_source(FeedWriter& out, const Source& source, const FeedDocument& document) {
    out.BeginEntry("source");
    out.Id(source.description.id);
    write_description(out, source);
    write_song(out, *source.figures.metadata);
    write_audience(out, source.figures);
    if (document.for_managers) write_figures_for_managers(out, source);
    write_audio(out, source);
    if (document.in_full) {
        write_played(out, source.figures.song_history);
        write_peers(out, source.peers);
    }
    out.EndEntry();
}

} // namespace

void write_feed(FeedWriter& out, const FeedDocument& document) {
    out.Text("version", QUILLWAVE_VERSION QUILLWAVE_CODE_NAME);
    out.Number("total_nodes", document.total_nodes);
    out.Number("total_unique_nodes", document.total_unique_nodes);
    out.Number("total_peak_nodes", document.total_peak_nodes);
    write_time(out, "startup_time", document.startup_time);
    write_time(out, "system_time", document.system_time);
    out.Number("active_sources", std::uint64_t{document.active_sources});
    if (document.active_sources == 0 && !out.ShowsEmpty()) return;
    out.BeginList("sources");
    for (const Source& source : document.sources)
        write_source(out, source, document);
    out.EndList();
}
