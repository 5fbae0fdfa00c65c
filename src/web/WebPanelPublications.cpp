// The directories that a stream is listed on.

#include "core/OSTools.h"
#include "directory/Publication.h"
#include "directory/YellowPage.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/PublicationTable.h"
#include "web/WebPanel.h"

using html::Markup;

namespace {

std::vector<PublicationDetails> publication_details(const Mount& mount) {
    std::vector<PublicationDetails> all;
    for (const auto& [address, page] : mount.GetPublication()->GetPublicationDetails())
        all.push_back({.address = page->Address(),
                       .listed = page->Listed(),
                       .last_touch = page->LastTouchTime(),
                       .interval = page->Interval(),
                       .status = page->Status()});
    return all;
}

} // namespace

Markup WebPanel::create_publication_list(int id) {
    const std::shared_ptr<Mount> mount = MountList::GetMount(id);
    if (!mount) return "Stream ID: " + tostring(id) + " was not found.";
    return publication_table(publication_details(*mount), panel_time);
}
