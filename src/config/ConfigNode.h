#pragma once

#include "core/spinlock.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

class ConfigNodeListener;

// One setting, or one section of settings: a key, a text value and children in the order of their
// arrival. Keys compare without regard to case and keep the case in which they came. Always held by
// a shared_ptr; a parent owns its children, and a child holds its parent until it is taken out.
//
// Setting a value to the empty text deletes the key: once everybody has heard of it, a node with
// an empty value and no children is taken out of its parent.
//
// Any thread may call anything. Each node has a lock of its own, let go before listeners are
// called. When two are held it is the parent's, then the child's, never the other way round.
class ConfigNode : public std::enable_shared_from_this<ConfigNode> {
public:
    // Orders nodes by their lower-cased keys, byte by byte, the shorter first on a tie.
    struct sort_key {
        bool operator()(const std::shared_ptr<ConfigNode>& a,
                        const std::shared_ptr<ConfigNode>& b) const;
    };

    // The placeholder of a failed look-up: all texts empty, id 0, in no tree.
    ConfigNode() = default;
    // A node with a new id. An empty friendly name stands for the key.
    ConfigNode(std::string key, std::string friendly_name);
    ConfigNode(const ConfigNode&) = delete;
    ConfigNode& operator=(const ConfigNode&) = delete;

    // Unique in the process, apart from 0, which placeholders and the very first node have.
    unsigned long long GetId() const EXCLUDES(lock);
    // As it was given, or lower-cased.
    std::string GetKey(bool case_sensitive) const EXCLUDES(lock);
    // The text shown to people; the key when there is none.
    std::string GetFriendlyName() const EXCLUDES(lock);

    // The value, or the default when the value is empty.
    std::string GetValue(const char* default_value) const EXCLUDES(lock);
    std::string GetValue(const std::string& default_value) const EXCLUDES(lock);
    // Leading decimal digits with an optional sign; a text without any gives 0, not the default.
    int GetValue(int default_value) const EXCLUDES(lock);
    // True for "1", "yes" and "true" in any case, false for every other text but the empty one.
    bool GetValue(bool default_value) const EXCLUDES(lock);

    // Whether a direct child has this id or this key.
    bool ChildExists(unsigned long long id) const EXCLUDES(lock);
    bool ChildExists(const std::string& key) const EXCLUDES(lock);
    // The parent, or the node itself when it has none.
    std::shared_ptr<ConfigNode> GetParent() EXCLUDES(lock);

    // The first child of this key. When there is none: a new child with an empty value, of which
    // nobody is told, or with create false a placeholder outside the tree. Never null.
    std::shared_ptr<ConfigNode> GetChild(const std::string& key, bool create) EXCLUDES(lock);
    std::shared_ptr<ConfigNode> GetChild(unsigned long long id) EXCLUDES(lock);
    // All children of this key, in order: keys may repeat.
    std::vector<std::shared_ptr<ConfigNode>> GetChildren(const std::string& key) const
        EXCLUDES(lock);
    // All children, in order or sorted by sort_key.
    std::vector<std::shared_ptr<ConfigNode>> GetAllChildren(bool sorted) const EXCLUDES(lock);

    // An empty key is ignored. A node with the id 0 gets a new id.
    void SetKey(const std::string& new_key) EXCLUDES(lock);
    void SetFriendlyName(const std::string& name) EXCLUDES(lock);
    // Tells the listeners unless the text is exactly what it was. A bool becomes "True" or "False".
    void SetValue(const char* new_value) EXCLUDES(lock);
    void SetValue(const std::string& new_value) EXCLUDES(lock);
    void SetValue(int new_value) EXCLUDES(lock);
    void SetValue(bool new_value) EXCLUDES(lock);

    // Appends the child and tells the listeners of this node and above. A node with an empty key,
    // or one that is a child already, is left alone. Returns the child.
    std::shared_ptr<ConfigNode> AddChild(std::shared_ptr<ConfigNode> child) EXCLUDES(lock);
    // Takes the child out; nobody is told.
    void RemoveChild(const std::shared_ptr<ConfigNode>& child) EXCLUDES(lock);
    // For AddChild, RemoveChild and GetChild of the parent. The node itself stands for none.
    void SetParent(std::shared_ptr<ConfigNode> new_parent) EXCLUDES(lock);
    // Deletes all children, then empties the value. A section that has no value of its own stays
    // in its parent, empty.
    void Delete() EXCLUDES(lock);

    // Listeners are called in the order of their registration, each registered once.
    void AddListener(ConfigNodeListener* listener) EXCLUDES(lock);
    // Returns when no other thread is inside the listener any more; it is not called again. Not
    // with a lock held that the listener takes.
    void RemoveListener(const ConfigNodeListener* listener) EXCLUDES(lock);
    // Tells the listeners of this node and of everything above that node changed.
    void TriggerListeners(const std::shared_ptr<ConfigNode>& node, const std::string& old_value)
        EXCLUDES(lock);

private:
    class Registration;

    bool has_id(unsigned long long wanted) const EXCLUDES(lock);
    bool has_key(std::string_view wanted) const EXCLUDES(lock);
    bool has_no_key() const EXCLUDES(lock);
    bool is_deleted() const EXCLUDES(lock);
    // True when a listener, here or further up, has handled the change.
    bool tell(const std::shared_ptr<ConfigNode>& node, const std::string& old_value) EXCLUDES(lock);
    bool is_child(const std::shared_ptr<ConfigNode>& child) const REQUIRES(lock);
    std::shared_ptr<ConfigNode> find_child(std::string_view wanted) const REQUIRES(lock);
    std::vector<std::shared_ptr<Registration>> copy_listeners() const EXCLUDES(lock);
    std::shared_ptr<ConfigNode> parent_or_null() const EXCLUDES(lock);
    void take_out(const std::shared_ptr<ConfigNode>& child) REQUIRES(lock);
    void prune_child(const std::shared_ptr<ConfigNode>& child) EXCLUDES(lock);

    mutable spinlock lock;
    unsigned long long id GUARDED_BY(lock) = 0;
    std::string key GUARDED_BY(lock);
    std::string friendly_name GUARDED_BY(lock);
    std::string value GUARDED_BY(lock);
    std::shared_ptr<ConfigNode> parent GUARDED_BY(lock);
    std::vector<std::shared_ptr<ConfigNode>> children GUARDED_BY(lock);
    std::vector<std::shared_ptr<Registration>> listeners GUARDED_BY(lock);
};
