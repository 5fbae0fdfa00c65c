#include "web/WebPanel.h"

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "http/Request.h"
#include "http/Response.h"
#include "http/StatusText.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"

#include <algorithm>
#include <utility>

using html::Markup;

namespace {

bool is_pseudo_user(const std::shared_ptr<User>& user) {
    return user == UserList::GetAnonymousUser() || user == UserList::GetBanUser() ||
           user == UserList::GetReserveUser();
}

std::vector<std::shared_ptr<Mount>> mounts_managed_by(const std::shared_ptr<User>& user) {
    if (is_pseudo_user(user)) return {};
    std::vector<std::shared_ptr<Mount>> mounts = MountList::GetAllMountsByCredentials(user, false);
    std::erase_if(mounts,
                  [&](const auto& mount) { return !user->IsMountSourceUser(mount->GetID()); });
    return mounts;
}

} // namespace

WebPanel::WebPanel(std::shared_ptr<Request> request_to_answer) { SetRequest(request_to_answer); }

WebPanel::~WebPanel() {
    if (log_receiver_id >= 0) Log::RemoveLogReceiver(log_receiver_id, Log::EVENT_LOG);
}

void WebPanel::SetRequest(const std::shared_ptr<Request>& request_to_answer) {
    request = request_to_answer;
    user = request ? UserList::Get(request) : UserList::GetAnonymousUser();
    panel_mounts = mounts_managed_by(user);
    panel_time = now();
}

bool WebPanel::is_admin() const { return user->GetGroup() == User::ADMINISTRATOR; }

// No path is the panel's own yet: every request goes on to the mounts.
int WebPanel::ProcessRequest() { return NOT_A_PAGE; }

bool WebPanel::HasNews() const { return true; }

std::string WebPanel::BuildErrorPage(int code, const std::string& title,
                                     const html::Markup& message) {
    const std::string heading = title.empty() ? StatusText(code) : title;
    const Markup words = message.empty() ? Markup(StatusText(code)) : message;
    return (get_page_header(heading) + create_mb(words, heading) + get_page_footer()).str();
}

std::shared_ptr<Mount> WebPanel::get_mount_by_address(const std::string& address) const {
    const auto place = std::find_if(panel_mounts.begin(), panel_mounts.end(),
                                    [&](const auto& mount) { return mount->Address() == address; });
    return place == panel_mounts.end() ? nullptr : *place;
}

std::shared_ptr<Mount> WebPanel::get_mount_by_id(int id) const {
    const auto place = std::find_if(panel_mounts.begin(), panel_mounts.end(),
                                    [id](const auto& mount) { return mount->GetID() == id; });
    return place == panel_mounts.end() ? nullptr : *place;
}
