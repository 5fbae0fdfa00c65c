#pragma once

#include <memory>
#include <string>

class ConfigNode;

// Hears of changes of a node and of everything below it. Called on the thread that made the change,
// with no lock held; a listener that waits makes the changer wait. The tree does not own listeners:
// one takes itself off with ConfigNode::RemoveListener before it goes.
class ConfigNodeListener {
public:
    // node is the one that changed, which may lie below the node of the registration; old_value is
    // what it held, empty for a new child. True: the change is handled, nobody further up hears of
    // it, and the node stays even when its value became empty.
    virtual bool OnConfigNodeChanged(std::shared_ptr<ConfigNode> node, std::string old_value) = 0;

protected:
    ~ConfigNodeListener() = default;
};
