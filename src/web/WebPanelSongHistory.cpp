// The songs that a stream has played.

#include "core/OSTools.h"
#include "media/Metadata.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/StreamState.h"
#include "web/WebPanel.h"

using html::cell;
using html::Markup;
using html::row;

namespace {

Markup heading(const Mount& mount, std::size_t count) {
    const std::string words =
        "Last " + tostring(count) + " tracks played on " + mount.Address().substr(1);
    return row({{"class", "tableViewHead"}}, cell({{"colspan", "2"}}, words));
}

// Kept: a title stands as its source sent it, in Latin-1 as well.
Markup song_row(time_t ended, const METADATA& song, time_t moment) {
    return html::label_row(time_since(ended, moment) + " ago", song.title);
}

} // namespace

Markup WebPanel::create_mount_last_played(int id) {
    const std::shared_ptr<Mount> mount = MountList::GetMount(id);
    if (!mount) return "Stream ID: " + tostring(id) + " does not exist.";
    const SongHistory songs = mount->GetSongHistory();
    Markup rows;
    if (songs.empty())
        rows = row({{"class", "tableViewCol"}}, cell("There is currently no song history."));
    else
        rows = heading(*mount, songs.size());
    for (const auto& [ended, song] : songs)
        rows += song_row(ended, *song, panel_time);
    return html::table({{"class", "tableView"}}, rows);
}
