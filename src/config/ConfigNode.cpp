#include "config/ConfigNode.h"

#include "config/Config.h"
#include "config/ConfigKey.h"
#include "config/ConfigNodeListener.h"
#include "core/OSTools.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

// A listener on a node, and the threads that are inside it just now. Any thread.
class ConfigNode::Registration {
public:
    explicit Registration(ConfigNodeListener* l) : listener(l) {}

    bool IsFor(const ConfigNodeListener* other) const { return listener == other; }

    // Calls the listener, unless it was taken off since the list of listeners was copied.
    bool Call(const std::shared_ptr<ConfigNode>& node, const std::string& old_value) {
        if (!enter()) return false;
        const Leaving leaving{*this};
        return listener->OnConfigNodeChanged(node, old_value);
    }

    // No call begins from here on, and those of other threads are waited for. A listener may take
    // itself off while it is called.
    void End() {
        std::unique_lock guard(lock);
        ended = true;
        somebody_left.wait(guard, [this] {
            return std::ranges::all_of(
                callers, [](auto caller) { return caller == std::this_thread::get_id(); });
        });
    }

private:
    struct Leaving {
        Registration& registration;
        ~Leaving() { registration.leave(); }
    };

    bool enter() {
        const std::lock_guard guard(lock);
        if (!ended) callers.push_back(std::this_thread::get_id());
        return !ended;
    }

    void leave() {
        const std::lock_guard guard(lock);
        callers.erase(std::ranges::find(callers, std::this_thread::get_id()));
        somebody_left.notify_all();
    }

    ConfigNodeListener* const listener; // owned by others, alive until End has returned
    std::mutex lock;                    // of what follows
    std::condition_variable somebody_left;
    std::vector<std::thread::id> callers; // a thread stands here once for each call
    bool ended = false;
};

namespace {

using Nodes = std::vector<std::shared_ptr<ConfigNode>>;

// Reads each key once: one that changes while it is compared would upset the sorting.
void sort_by_key(Nodes& nodes) {
    std::vector<std::pair<std::string, std::shared_ptr<ConfigNode>>> rows;
    for (auto& node : nodes)
        rows.emplace_back(node->GetKey(false), std::move(node));
    std::ranges::stable_sort(
        rows, {}, [](const auto& row) -> const auto& { return row.first; });
    std::ranges::transform(rows, nodes.begin(), [](auto& row) { return std::move(row.second); });
}

} // namespace

bool ConfigNode::sort_key::operator()(const std::shared_ptr<ConfigNode>& a,
                                      const std::shared_ptr<ConfigNode>& b) const {
    return a->GetKey(false) < b->GetKey(false);
}

ConfigNode::ConfigNode(std::string first_key, std::string name)
    : id(Config::GetNewNodeId()), key(std::move(first_key)),
      friendly_name(name.empty() ? key : std::move(name)) {}

// ---- Reading ------------------------------------------------------------------------------------

unsigned long long ConfigNode::GetId() const {
    spin_guard guard(lock);
    return id;
}

std::string ConfigNode::GetKey(bool case_sensitive) const {
    std::string text;
    {
        spin_guard guard(lock);
        text = key;
    }
    return case_sensitive ? text : tolower(text);
}

std::string ConfigNode::GetFriendlyName() const {
    spin_guard guard(lock);
    return friendly_name.empty() ? key : friendly_name;
}

std::string ConfigNode::GetValue(const char* default_value) const {
    spin_guard guard(lock);
    return value.empty() ? std::string(default_value) : value;
}

std::string ConfigNode::GetValue(const std::string& default_value) const {
    spin_guard guard(lock);
    return value.empty() ? default_value : value;
}

int ConfigNode::GetValue(int default_value) const {
    spin_guard guard(lock);
    return value.empty() ? default_value
                         : static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

bool ConfigNode::GetValue(bool default_value) const {
    spin_guard guard(lock);
    if (value.empty()) return default_value;
    return value == "1" || config_key::same(value, "yes") || config_key::same(value, "true");
}

bool ConfigNode::has_id(unsigned long long wanted) const {
    spin_guard guard(lock);
    return id == wanted;
}

bool ConfigNode::has_key(std::string_view wanted) const {
    spin_guard guard(lock);
    return config_key::same(key, wanted);
}

bool ConfigNode::has_no_key() const {
    spin_guard guard(lock);
    return key.empty();
}

bool ConfigNode::is_deleted() const {
    spin_guard guard(lock);
    return value.empty() && children.empty();
}

// ---- Looking up ---------------------------------------------------------------------------------

bool ConfigNode::ChildExists(unsigned long long wanted) const {
    spin_guard guard(lock);
    return std::ranges::any_of(children, [&](const auto& child) { return child->has_id(wanted); });
}

bool ConfigNode::ChildExists(const std::string& wanted) const {
    spin_guard guard(lock);
    return find_child(wanted) != nullptr;
}

bool ConfigNode::is_child(const std::shared_ptr<ConfigNode>& child) const {
    return std::ranges::find(children, child) != children.end();
}

std::shared_ptr<ConfigNode> ConfigNode::find_child(std::string_view wanted) const {
    const auto found =
        std::ranges::find_if(children, [&](const auto& child) { return child->has_key(wanted); });
    return found == children.end() ? nullptr : *found;
}

std::shared_ptr<ConfigNode> ConfigNode::parent_or_null() const {
    spin_guard guard(lock);
    return parent;
}

std::shared_ptr<ConfigNode> ConfigNode::GetParent() {
    auto above = parent_or_null();
    return above ? above : shared_from_this();
}

std::shared_ptr<ConfigNode> ConfigNode::GetChild(const std::string& wanted, bool create) {
    {
        spin_guard guard(lock);
        if (auto child = find_child(wanted)) return child;
        if (create) {
            auto child = std::make_shared<ConfigNode>(wanted, "");
            child->SetParent(shared_from_this());
            children.push_back(child);
            return child;
        }
    }
    return std::make_shared<ConfigNode>();
}

std::shared_ptr<ConfigNode> ConfigNode::GetChild(unsigned long long wanted) {
    {
        spin_guard guard(lock);
        for (const auto& child : children)
            if (child->has_id(wanted)) return child;
    }
    return std::make_shared<ConfigNode>();
}

std::vector<std::shared_ptr<ConfigNode>> ConfigNode::GetChildren(const std::string& wanted) const {
    std::vector<std::shared_ptr<ConfigNode>> found;
    spin_guard guard(lock);
    std::ranges::copy_if(children, std::back_inserter(found),
                         [&](const auto& child) { return child->has_key(wanted); });
    return found;
}

std::vector<std::shared_ptr<ConfigNode>> ConfigNode::GetAllChildren(bool sorted) const {
    std::vector<std::shared_ptr<ConfigNode>> all;
    {
        spin_guard guard(lock);
        all = children;
    }
    if (sorted) sort_by_key(all);
    return all;
}

// ---- Changing -----------------------------------------------------------------------------------

void ConfigNode::SetKey(const std::string& new_key) {
    if (new_key.empty()) return;
    spin_guard guard(lock);
    key = new_key;
    if (id == 0) id = Config::GetNewNodeId();
}

void ConfigNode::SetFriendlyName(const std::string& name) {
    spin_guard guard(lock);
    friendly_name = name;
}

void ConfigNode::SetValue(const char* new_value) { SetValue(std::string(new_value)); }

void ConfigNode::SetValue(int new_value) { SetValue(tostring(new_value)); }

void ConfigNode::SetValue(bool new_value) { SetValue(std::string(new_value ? "True" : "False")); }

void ConfigNode::SetValue(const std::string& new_value) {
    std::string old_value = new_value;
    {
        spin_guard guard(lock);
        if (value == new_value) return;
        value.swap(old_value);
    }
    TriggerListeners(shared_from_this(), old_value);
}

std::shared_ptr<ConfigNode> ConfigNode::AddChild(std::shared_ptr<ConfigNode> child) {
    {
        spin_guard guard(lock);
        if (child->has_no_key() || is_child(child)) return child;
        child->SetParent(shared_from_this());
        children.push_back(child);
    }
    TriggerListeners(child, "");
    return child;
}

void ConfigNode::take_out(const std::shared_ptr<ConfigNode>& child) {
    const auto place = std::ranges::find(children, child);
    if (place == children.end()) return;
    child->SetParent(child);
    children.erase(place);
}

void ConfigNode::RemoveChild(const std::shared_ptr<ConfigNode>& child) {
    spin_guard guard(lock);
    take_out(child);
}

// Looks again with the parent's lock held: the child may have got a value or children since.
void ConfigNode::prune_child(const std::shared_ptr<ConfigNode>& child) {
    spin_guard guard(lock);
    if (child->is_deleted()) take_out(child);
}

void ConfigNode::SetParent(std::shared_ptr<ConfigNode> new_parent) {
    if (new_parent.get() == this) new_parent.reset();
    spin_guard guard(lock);
    parent.swap(new_parent);
}

void ConfigNode::Delete() {
    for (const auto& child : GetAllChildren(false))
        child->Delete();
    SetValue("");
}

// ---- Listeners ----------------------------------------------------------------------------------

void ConfigNode::AddListener(ConfigNodeListener* listener) {
    spin_guard guard(lock);
    if (std::ranges::none_of(listeners, [&](const auto& known) { return known->IsFor(listener); }))
        listeners.push_back(std::make_shared<Registration>(listener));
}

void ConfigNode::RemoveListener(const ConfigNodeListener* listener) {
    std::shared_ptr<Registration> registration;
    {
        spin_guard guard(lock);
        const auto place = std::ranges::find_if(
            listeners, [&](const auto& known) { return known->IsFor(listener); });
        if (place == listeners.end()) return;
        registration = *place;
        listeners.erase(place);
    }
    registration->End();
}

std::vector<std::shared_ptr<ConfigNode::Registration>> ConfigNode::copy_listeners() const {
    spin_guard guard(lock);
    return listeners;
}

bool ConfigNode::tell(const std::shared_ptr<ConfigNode>& node, const std::string& old_value) {
    for (const auto& registration : copy_listeners())
        if (registration->Call(node, old_value)) return true;
    const auto above = parent_or_null();
    return above && above->tell(node, old_value);
}

void ConfigNode::TriggerListeners(const std::shared_ptr<ConfigNode>& node,
                                  const std::string& old_value) {
    if (tell(node, old_value)) return;
    if (node.get() != this || !is_deleted()) return;
    if (const auto above = parent_or_null()) above->prune_child(node);
}
