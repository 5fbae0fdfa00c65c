#include "directory/Publication.h"

#include "config/Config.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "directory/IcecastYP.h"
#include "directory/ShoutcastYP.h"
#include "directory/YellowPage.h"
#include "net/url.h"
#include "streaming/Mount.h"

#include <algorithm>

namespace {
constexpr unsigned int LOOK_MS = 1;

auto page_at(const Publication::Pages& pages, const std::string& address) {
    return std::find_if(pages.begin(), pages.end(),
                        [&](const auto& entry) { return entry.first == address; });
}

// Null for what cannot be a directory.
std::shared_ptr<YellowPage> make_page(const std::shared_ptr<Mount>& mount,
                                      const std::string& address) {
    if (ShoutcastYP::IsMeantBy(address)) return std::make_shared<ShoutcastYP>(mount, address);
    if (!address.starts_with("http://") || !url(address).IsValid()) return nullptr;
    return std::make_shared<IcecastYP>(mount, address);
}

bool any_holds_up_stop(const Publication::Pages& pages) {
    return std::any_of(pages.begin(), pages.end(),
                       [](const auto& entry) { return entry.second->HoldsUpStop(); });
}

// A remove exchange and the second by which its whole seconds may be off.
double longest_stop() { return Config::Get("SocketTimeout", false)->GetValue(5) + 1; }
} // namespace

Publication::Publication(std::string of_mount) : mount_address(std::move(of_mount)) {}

void Publication::SetMount(const std::shared_ptr<Mount>& listed_mount) {
    {
        spin_guard guard(lock);
        if (running && !stopping) {
            LogWrite(2) << "Error: Cannot change Publication Mount while its running" << std::endl;
            return;
        }
        mount = listed_mount;
    }
    for (const auto& [address, page] : all_pages())
        page->SetMount(listed_mount);
}

void Publication::AddAddress(const std::string& address) {
    std::shared_ptr<YellowPage> page;
    std::shared_ptr<Mount> listed_mount;
    {
        spin_guard guard(lock);
        if (page_at(pages, address) != pages.end()) {
            LogWrite(2) << "<" << mount_address << "> " << log_text(address)
                        << " is already in the publication list" << std::endl;
            return;
        }
        if (running && !stopping) listed_mount = mount;
        page = make_page(listed_mount, address);
        if (!page) {
            LogWrite(2) << "<" << mount_address << "> " << log_text(address)
                        << " is an invalid publication address" << std::endl;
            return;
        }
        pages.emplace_back(address, page);
    }
    if (!listed_mount) return;
    page->Start(listed_mount);
    if (!runs(page)) page->Remove(); // whoever meant to end it came too early for that
}

void Publication::RemoveAddress(const std::string& address) {
    std::shared_ptr<YellowPage> page;
    {
        spin_guard guard(lock);
        const auto place = page_at(pages, address);
        if (place == pages.end()) return;
        page = place->second;
        pages.erase(place);
    }
    page->Remove();
}

void Publication::Start() {
    std::shared_ptr<Mount> listed_mount;
    {
        spin_guard guard(lock);
        if (!mount) {
            LogWrite(2) << "Error: Publication Thread has no Mount!" << std::endl;
            return;
        }
        if (running && !stopping) {
            LogWrite(2) << "<" << mount_address << "> Publication Thread already started"
                        << std::endl;
            return;
        }
        stopping = false;
        running = true;
        listed_mount = mount;
    }
    for (const auto& [address, page] : all_pages())
        page->Start(listed_mount);
    if (!IsRunning()) SignalStop(); // a stop that came meanwhile may have passed pages by
}

void Publication::SignalStop() {
    {
        spin_guard guard(lock);
        stopping = true;
    }
    for (const auto& [address, page] : all_pages())
        page->Remove();
}

void Publication::WaitForStop(const std::function<bool()>& leaves_early) {
    const time_t since = now();
    do {
        SignalStop();
        while (holds_up_stop(since) && !leaves_early())
            Sleep(LOOK_MS);
    } while (!end());
}

// One look of a stop that began at this moment.
bool Publication::holds_up_stop(time_t since) const {
    const bool waited_enough = difftime(now(), since) > longest_stop();
    return !waited_enough && !IsRunning() && any_holds_up_stop(all_pages());
}

// False when a setting that changed meanwhile has started it again.
bool Publication::end() {
    std::shared_ptr<Mount> released;
    spin_guard guard(lock);
    if (running && !stopping) return false;
    running = false;
    mount.swap(released);
    return true;
}

bool Publication::IsRunning() const {
    spin_guard guard(lock);
    return running && !stopping;
}

Publication::Pages Publication::GetPublicationDetails() const {
    bool shown = false;
    bool ending = false;
    {
        spin_guard guard(lock);
        shown = running;
        ending = stopping;
    }
    Pages all = shown ? all_pages() : Pages();
    if (ending && !any_holds_up_stop(all)) all.clear();
    return all;
}

bool Publication::runs(const std::shared_ptr<YellowPage>& page) const {
    spin_guard guard(lock);
    const bool is_in = std::any_of(pages.begin(), pages.end(),
                                   [&page](const auto& entry) { return entry.second == page; });
    return is_in && running && !stopping;
}

Publication::Pages Publication::all_pages() const {
    spin_guard guard(lock);
    return pages;
}
