// What the buttons of the listener table do to the listeners that are ticked.

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverList.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace {

using Mounts = std::vector<std::shared_ptr<Mount>>;

// One post of the table.
struct Post {
    bool by_admin = false;
    int page = User::EVERY_MOUNT; // the mount of the page
    const Mounts& mounts;         // those of the user who posts
    std::shared_ptr<Mount> destination = {};
    bool accounts_changed = false;
};

bool is_among(const Mounts& mounts, const std::shared_ptr<Mount>& mount) {
    return mount && std::ranges::find(mounts, mount) != mounts.end();
}

// An administrator's filter counts where the page is, any other manager's on all mounts of his.
void add_filter(Post& post, User& list, const std::string& filter, User::RequestProperty type) {
    if (post.by_admin)
        list.AddProperty(post.page, filter, type);
    else
        for (const auto& mount : post.mounts)
            list.AddProperty(mount->GetID(), filter, type);
    post.accounts_changed = true;
}

void kick(Post&, Receiver& listener) { listener.Kick(); }

void ban_as(Post& post, Receiver& listener, const std::string& filter, User::RequestProperty type) {
    add_filter(post, *UserList::GetBanUser(), filter, type);
    listener.Kick();
}

void ban(Post& post, Receiver& listener) { ban_as(post, listener, listener.GetIP(), User::IP); }

void ban_net(Post& post, Receiver& listener) {
    ban_as(post, listener, listener.GetIP(), User::SUBNET);
}

// An agent that the user file cannot hold as it is makes no filter: after the next start it would
// bar others, or nobody.
void ban_user_agent(Post& post, Receiver& listener) {
    const std::string agent = listener.GetRequest()->GetHeader("User-Agent");
    if (one_line(agent) == agent)
        ban_as(post, listener, agent, User::USER_AGENT);
    else
        listener.Kick();
}

// The listener account of these credentials, made if there is none of that name. Null when the name
// is another account's, whose rights a click on a listener must not change, or when the user file
// could not hold it.
std::shared_ptr<User> listener_account(const std::string& name, const std::string& password) {
    if (one_line(name) != name || one_line(password) != password) return nullptr;
    const auto nobody = UserList::GetAnonymousUser();
    std::shared_ptr<User> account = UserList::Get(name, password);
    if (account == nobody) {
        account = UserList::Add(name, password);
        if (account == nobody) return nullptr;
        account->SetGroup(User::LISTENER);
    }
    return account->GetGroup() == User::LISTENER ? account : nullptr;
}

// One with a login gets an account, any other a reserve for the address.
void make_vip(Post& post, Receiver& listener) {
    const auto request = listener.GetRequest();
    if (request->User().empty() || request->Pass().empty()) {
        add_filter(post, *UserList::GetReserveUser(), listener.GetIP(), User::IP);
        return;
    }
    const auto account = listener_account(request->User(), request->Pass());
    if (!account) return;
    for (const auto& mount : post.mounts)
        account->AddProperty(mount->GetID(), "*", User::ALL);
    post.accounts_changed = true;
}

void move(Post& post, Receiver& listener) {
    const auto former = listener.GetMount();
    if (!post.destination || !former) return;
    LogWrite(2) << "<" << listener.GetIP() << "> Moving from " << former->Address() << " to "
                << post.destination->Address() << std::endl;
    listener.SetMount(post.destination);
}

// The value of each button.
struct Action {
    const char* name;
    void (*run)(Post& post, Receiver& listener);
};
const Action ACTIONS[] = {
    {"Kick", kick},    {"Ban", ban},       {"Ban Net", ban_net}, {"Ban User Agent", ban_user_agent},
    {"VIP", make_vip}, {"Move To:", move},
};

// Null when nothing, or no mount of the user's, was chosen.
std::shared_ptr<Mount> chosen_mount(const Mounts& mounts, const std::string& text) {
    int id = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (fault != std::errc() || end != text.data() + text.size() || id <= 0) return nullptr;
    const auto mount = MountList::GetMount(id);
    return is_among(mounts, mount) ? mount : nullptr;
}

} // namespace

// Only those who listen to a mount of the user's: any other connection's identifier is ignored, the
// one of the page itself among them.
void WebPanel::act_on_listeners(int id) {
    if (panel_mounts.empty()) return;
    const std::string name = request->GetFormField("action");
    const auto action =
        std::ranges::find_if(ACTIONS, [&](const Action& known) { return known.name == name; });
    if (action == std::end(ACTIONS)) return;

    Post post = {.by_admin = is_admin(), .page = id, .mounts = panel_mounts};
    post.destination = chosen_mount(panel_mounts, request->GetFormField("destStationId"));
    for (const std::string& field : request->GetAllFormFields()) {
        if (request->GetFormField(field).empty()) continue;
        const auto receiver = ReceiverList::GetReceiver(field);
        if (receiver && is_among(panel_mounts, receiver->GetMount())) action->run(post, *receiver);
    }
    if (post.accounts_changed) UserList::Serialize();
}
