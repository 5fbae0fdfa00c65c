#include "web/PublicationTable.h"

#include "web/StreamState.h"

using html::cell;
using html::Markup;
using html::row;

namespace {

Markup heading() {
    Markup cells;
    for (const char* words :
         {"Address", "Listed", "Last Touch Attempt", "Touch Interval", "Messages"})
        cells += cell({{"role", "columnheader"}}, words);
    return row({{"class", "tableViewHead"}}, cells);
}

Markup directory_row(const PublicationDetails& directory, time_t moment) {
    return row({{"class", "tableViewCol"}},
               cell(directory.address) + cell(directory.listed ? "Yes" : "No") +
                   cell(time_since(directory.last_touch, moment)) +
                   cell(time_text(directory.interval)) + cell(directory.status));
}

} // namespace

Markup publication_table(const std::vector<PublicationDetails>& directories, time_t moment) {
    Markup rows;
    if (directories.empty())
        rows = row({{"class", "tableViewCol"}},
                   cell({{"colspan", "3"}}, "No directories are available."));
    else
        rows = heading();
    for (const PublicationDetails& directory : directories)
        rows += directory_row(directory, moment);
    return html::table({{"class", "tableView"}}, rows);
}
