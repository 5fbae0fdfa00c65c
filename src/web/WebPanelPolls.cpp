// Answers that wait: long polls and the log tail.

#include "core/Log.h"
#include "http/Request.h"
#include "http/Response.h"
#include "streaming/MountList.h"
#include "streaming/PublicState.h"
#include "web/WebPanel.h"

#include <cstdlib>

namespace {

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

} // namespace

bool WebPanel::HasNews() const {
    if (!watch_snapshot.empty()) return public_state::Differs(watch_mount, watch_snapshot);
    if (log_receiver_id >= 0)
        return response->GetBytesBuffered() > 0 || Log::HasLines(log_receiver_id, Log::EVENT_LOG);
    return true;
}

WebPanel::NewsNumber WebPanel::GetNewsNumber() const {
    if (!watch_snapshot.empty()) return public_state::Generation;
    return log_receiver_id >= 0 ? Log::LinesWritten : nullptr;
}

bool WebPanel::stats_changed() {
    const bool first = watch_snapshot.empty();
    if (first) watch_mount = mount_to_watch();
    const std::string state = public_state::Text(watch_mount);
    if (first) watch_snapshot = state;
    if (state == watch_snapshot) return false;
    watch_mount.reset();
    watch_snapshot.clear();
    return true;
}

// Kept: any address that leads to a mount may be watched, also one that the document's filter
// does not know, as "/" or "/stream/3".
std::shared_ptr<Mount> WebPanel::mount_to_watch() const {
    const std::string src = request->GetQuery("src");
    if (src.empty()) return nullptr;
    if (is_digit(src.front()))
        return MountList::GetMount(static_cast<int>(std::strtol(src.c_str(), nullptr, 10)));
    return MountList::GetMount(src, request->GetLocalIP());
}
