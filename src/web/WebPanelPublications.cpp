// The directories that a stream is listed on.

#include "core/OSTools.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/PublicationTable.h"
#include "web/WebPanel.h"

using html::Markup;

namespace {

// No mount has a publication yet.
std::vector<PublicationDetails> publication_details(const Mount&) { return {}; }

} // namespace

Markup WebPanel::create_publication_list(int id) {
    const std::shared_ptr<Mount> mount = MountList::GetMount(id);
    if (!mount) return "Stream ID: " + tostring(id) + " was not found.";
    return publication_table(publication_details(*mount), panel_time);
}
