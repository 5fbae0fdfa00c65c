// Whether and how the stream stands in directories.

#include "config/Config.h"
#include "directory/Publication.h"
#include "streaming/Mount.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace {
std::vector<std::string> directories_of(const ConfigNode& section) {
    std::vector<std::string> urls;
    for (const auto& directory : section.GetChildren("Directory"))
        if (std::string url = directory->GetValue(""); !url.empty()) urls.push_back(std::move(url));
    return urls;
}

bool holds(const std::vector<std::string>& urls, const std::string& url) {
    return std::find(urls.begin(), urls.end(), url) != urls.end();
}
} // namespace

void Mount::start_publication() {
    if (!connected || !Public() || publication->IsRunning()) return;
    publication->SetMount(shared_from_this());
    publication->Start();
    if (connected) return;
    // The source left meanwhile, and may have ended its listing before this began.
    publication->WaitForStop([] { return true; });
    start_publication(); // for one that has come since and found this running
}

// Whoever changes a setting may be on the pool, which does the pages' work: nobody waits here.
void Mount::stop_publication() { publication->SignalStop(); }

void Mount::settle_publication() {
    if (connected && Public())
        start_publication();
    else
        stop_publication();
}

// The directories hear of the new value as of a new stream.
void Mount::SetMaxReceivers(int most) {
    stop_publication();
    max_receivers = most;
    start_publication();
}

void Mount::SetNameFormat(const std::string& format) {
    stop_publication();
    take_text(&Mount::name_format, format);
    start_publication();
}

void Mount::SetPublicState(PublicState state) {
    public_state = state;
    settle_publication();
}

void Mount::add_directories(const ConfigNode& section) {
    for (const std::string& url : directories_of(section))
        publication->AddAddress(url);
}

// One that stands in "Default" as well as in the section stays until it has left both.
void Mount::follow_directory(const std::string& old_url, const std::string& new_url) {
    if (old_url == new_url) return;
    const bool stays = holds(directories_of(*default_node), old_url) ||
                       holds(directories_of(*GetConfigNode()), old_url);
    if (!stays) publication->RemoveAddress(old_url);
    if (!new_url.empty()) publication->AddAddress(new_url);
}
