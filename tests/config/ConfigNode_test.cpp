#include "config/ConfigNode.h"

#include "config/Config.h"
#include "config/ConfigNodeListener.h"
#include "support/SettingsTree.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::shared_ptr<ConfigNode> node(const std::string& key) {
    return std::make_shared<ConfigNode>(key, "");
}

std::shared_ptr<ConfigNode> node_with_value(const std::string& text) {
    auto made = node("Key");
    made->SetValue(text);
    return made;
}

// Writes down what it hears as "name: key=value, was old".
class Witness final : public ConfigNodeListener {
public:
    explicit Witness(std::vector<std::string>& book, std::string own_name = "w",
                     bool handles = false)
        : heard(book), name(std::move(own_name)), result(handles) {}

    bool OnConfigNodeChanged(std::shared_ptr<ConfigNode> changed, std::string old_value) override {
        heard.push_back(name + ": " + changed->GetKey(true) + "=" + changed->GetValue("") +
                        ", was " + old_value);
        if (then) then();
        return result;
    }

    std::function<void()> then;

private:
    std::vector<std::string>& heard;
    const std::string name;
    const bool result;
};

} // namespace

TEST(ConfigNode, PlaceholderHasNoTextsAndIdZero) {
    const auto placeholder = std::make_shared<ConfigNode>();
    EXPECT_EQ(placeholder->GetId(), 0U);
    EXPECT_EQ(placeholder->GetKey(true), "");
    EXPECT_EQ(placeholder->GetFriendlyName(), "");
    EXPECT_EQ(placeholder->GetValue("none"), "none");
}

TEST(ConfigNode, FriendlyNameIsTheKeyUnlessGiven) {
    EXPECT_EQ(ConfigNode("PortBase", "").GetFriendlyName(), "PortBase");
    EXPECT_EQ(ConfigNode("Source", "Sources").GetFriendlyName(), "Sources");
    const auto renamed = node("PortBase");
    renamed->SetFriendlyName("Port");
    EXPECT_EQ(renamed->GetFriendlyName(), "Port");
    renamed->SetFriendlyName("");
    EXPECT_EQ(renamed->GetFriendlyName(), "PortBase");
}

TEST(ConfigNode, IdsGoUpFromZero) {
    const auto first = node("a");
    const auto second = node("b");
    EXPECT_EQ(first->GetId(), 0U);
    EXPECT_EQ(second->GetId(), 1U);
}

TEST(ConfigNode, KeyIsGivenInItsCaseOrLowered) {
    EXPECT_EQ(node("PortBase")->GetKey(true), "PortBase");
    EXPECT_EQ(node("PortBase")->GetKey(false), "portbase");
}

TEST(ConfigNode, TextIsTheDefaultOnlyWhenEmpty) {
    EXPECT_EQ(node_with_value("x")->GetValue("default"), "x");
    EXPECT_EQ(node_with_value("")->GetValue("default"), "default");
    EXPECT_EQ(node_with_value("")->GetValue(std::string("default")), "default");
    EXPECT_EQ(node_with_value("x")->GetValue(std::string("default")), "x");
}

TEST(ConfigNode, NumbersAreLeadingDigitsAndNeverTheDefaultUnlessEmpty) {
    EXPECT_EQ(node_with_value("abc")->GetValue(8000), 0);
    EXPECT_EQ(node_with_value("12abc")->GetValue(8000), 12);
    EXPECT_EQ(node_with_value(" -7")->GetValue(8000), -7);
    EXPECT_EQ(node_with_value("")->GetValue(8000), 8000);
}

TEST(ConfigNode, OnlyOneYesAndTrueAreTrue) {
    for (const char* yes : {"1", "yes", "YES", "True", "true"})
        EXPECT_TRUE(node_with_value(yes)->GetValue(false)) << yes;
    for (const char* no : {"on", "0", "no", "2", " 1"})
        EXPECT_FALSE(node_with_value(no)->GetValue(true)) << no;
    EXPECT_TRUE(node_with_value("")->GetValue(true));
    EXPECT_FALSE(node_with_value("")->GetValue(false));
}

TEST(ConfigNode, NumbersAndBooleansAreStoredAsText) {
    const auto key = node("Key");
    key->SetValue(-12);
    EXPECT_EQ(key->GetValue(""), "-12");
    key->SetValue(true);
    EXPECT_EQ(key->GetValue(""), "True");
    key->SetValue(false);
    EXPECT_EQ(key->GetValue(""), "False");
}

TEST(ConfigNode, RootIsItsOwnParent) {
    const auto root = OwnTree("root", "");
    const auto child = root->GetChild("child", true);
    EXPECT_EQ(root->GetParent(), root);
    EXPECT_EQ(child->GetParent(), root);
}

TEST(ConfigNode, MissingKeyGivesEachTimeAnotherPlaceholder) {
    const auto root = OwnTree("root", "");
    const auto first = root->GetChild("MimeFile", false);
    const auto second = root->GetChild("MimeFile", false);
    EXPECT_EQ(first->GetValue("mime.types"), "mime.types");
    EXPECT_NE(first, second);
    first->SetValue("elsewhere");
    EXPECT_THAT(root->GetAllChildren(false), IsEmpty());
}

TEST(ConfigNode, LookupHasNoRegardToCaseAndKeepsTheFirstCase) {
    const auto root = OwnTree("root", "");
    const auto port = root->GetChild("port", true);
    EXPECT_EQ(root->GetChild("PORT", true), port);
    EXPECT_EQ(port->GetKey(true), "port");
    EXPECT_TRUE(root->ChildExists("Port"));
    EXPECT_FALSE(root->ChildExists("Ports"));
}

TEST(ConfigNode, ChildrenAreFoundById) {
    const auto root = OwnTree("root", "");
    const auto child = root->GetChild("a", true);
    EXPECT_TRUE(root->ChildExists(child->GetId()));
    EXPECT_EQ(root->GetChild(child->GetId()), child);
    EXPECT_FALSE(root->ChildExists(child->GetId() + 1));
    EXPECT_EQ(root->GetChild(child->GetId() + 1)->GetKey(true), "");
}

TEST(ConfigNode, CreatingALookedUpKeyTellsNobody) {
    std::vector<std::string> heard;
    Witness witness(heard);
    const auto root = OwnTree("root", "");
    root->AddListener(&witness);
    root->GetChild("new", true);
    EXPECT_THAT(heard, IsEmpty());
}

TEST(ConfigNode, SameObjectIsAddedOnceAndSameKeyTwice) {
    const auto root = OwnTree("root", "");
    const auto first = node("ServIP");
    const auto second = node("servip");
    EXPECT_EQ(root->AddChild(first), first);
    EXPECT_EQ(root->AddChild(first), first);
    EXPECT_EQ(root->AddChild(second), second);
    EXPECT_THAT(root->GetChildren("SERVIP"), ElementsAre(first, second));
    EXPECT_EQ(root->GetChild("servip", false), first);
}

TEST(ConfigNode, NodeWithoutAKeyIsNotAdded) {
    std::vector<std::string> heard;
    Witness witness(heard);
    const auto root = OwnTree("root", "");
    root->AddListener(&witness);
    const auto nameless = std::make_shared<ConfigNode>();
    EXPECT_EQ(root->AddChild(nameless), nameless);
    EXPECT_EQ(nameless->GetParent(), nameless);
    EXPECT_THAT(root->GetAllChildren(false), IsEmpty());
    EXPECT_THAT(heard, IsEmpty());
}

TEST(ConfigNode, NewChildIsToldAboveItWithAnEmptyOldValue) {
    std::vector<std::string> heard;
    Witness above(heard, "above");
    Witness own(heard, "own");
    const auto root = OwnTree("root", "");
    const auto child = node_with_value("1");
    root->AddListener(&above);
    child->AddListener(&own);
    root->AddChild(child);
    EXPECT_THAT(heard, ElementsAre("above: Key=1, was "));
}

TEST(ConfigNode, RemovedChildHasNoParentAndNobodyHears) {
    std::vector<std::string> heard;
    Witness witness(heard);
    const auto root = OwnTree("root", "");
    const auto child = root->GetChild("a", true);
    root->AddListener(&witness);
    root->RemoveChild(child);
    EXPECT_EQ(child->GetParent(), child);
    EXPECT_FALSE(root->ChildExists("a"));
    EXPECT_THAT(heard, IsEmpty());
}

TEST(ConfigNode, SortsByLoweredKeyWithTheShorterFirst) {
    const auto root = OwnTree("root", "");
    for (const char* key : {"beta", "Alpha2", "alpha", "ALPHA10"})
        root->GetChild(key, true);
    std::vector<std::string> keys;
    for (const auto& child : root->GetAllChildren(true))
        keys.push_back(child->GetKey(true));
    EXPECT_THAT(keys, ElementsAre("alpha", "ALPHA10", "Alpha2", "beta"));
    EXPECT_TRUE(ConfigNode::sort_key()(node("Port"), node("PORTBASE")));
    EXPECT_FALSE(ConfigNode::sort_key()(node("a"), node("A")));
    EXPECT_FALSE(ConfigNode::sort_key()(node("A"), node("a")));
}

TEST(ConfigNode, SettingAKeyGivesAnIdToANodeWithoutOne) {
    const auto earlier = node("earlier"); // has the id 0 of the counter
    const auto nameless = std::make_shared<ConfigNode>();
    nameless->SetKey("");
    EXPECT_EQ(nameless->GetId(), 0U);
    nameless->SetKey("7");
    EXPECT_EQ(nameless->GetKey(true), "7");
    EXPECT_EQ(nameless->GetId(), 1U);
    nameless->SetKey("8");
    EXPECT_EQ(nameless->GetId(), 1U);
}

TEST(ConfigNode, ChangeClimbsNearestFirstInOrderOfRegistration) {
    std::vector<std::string> heard;
    Witness first(heard, "first");
    Witness second(heard, "second");
    Witness above(heard, "above");
    const auto root = OwnTree("root", "");
    const auto child = root->GetChild("k", true);
    root->AddListener(&above);
    child->AddListener(&first);
    child->AddListener(&second);
    child->AddListener(&first);
    child->SetValue("new");
    EXPECT_THAT(heard,
                ElementsAre("first: k=new, was ", "second: k=new, was ", "above: k=new, was "));
}

TEST(ConfigNode, SameTextTellsNobodyAndAnotherCaseDoes) {
    std::vector<std::string> heard;
    Witness witness(heard);
    const auto key = node_with_value("true");
    key->AddListener(&witness);
    key->SetValue("true");
    EXPECT_THAT(heard, IsEmpty());
    key->SetValue(true);
    EXPECT_THAT(heard, ElementsAre("w: Key=True, was true"));
}

TEST(ConfigNode, EmptiedLeafLeavesTheTreeAfterEverybodyHeard) {
    std::vector<std::string> heard;
    Witness witness(heard);
    bool was_there = false;
    const auto root = OwnTree("root", "");
    const auto leaf = root->GetChild("k", true);
    leaf->SetValue("x");
    root->AddListener(&witness);
    witness.then = [&] { was_there = root->ChildExists("k"); };
    leaf->SetValue("");
    EXPECT_THAT(heard, ElementsAre("w: k=, was x"));
    EXPECT_TRUE(was_there);
    EXPECT_FALSE(root->ChildExists("k"));
    EXPECT_EQ(leaf->GetParent(), leaf);
    EXPECT_EQ(leaf->GetKey(true), "k");
}

TEST(ConfigNode, EmptiedNodeWithChildrenStays) {
    const auto root = OwnTree("root", "");
    const auto section = root->GetChild("section", true);
    section->GetChild("k", true);
    section->SetValue("x");
    section->SetValue("");
    EXPECT_TRUE(root->ChildExists("section"));
}

TEST(ConfigNode, LeafThatIsEmptyAlreadyStays) {
    const auto root = OwnTree("root", "");
    root->GetChild("k", true)->SetValue("");
    EXPECT_TRUE(root->ChildExists("k"));
}

TEST(ConfigNode, DeletedSectionLosesItsChildrenAndStaysEmpty) {
    const auto root = OwnTree("root", "");
    const auto section = root->GetChild("2", true);
    section->GetChild("Mount", true)->SetValue("/a");
    section->GetChild("Name", true)->SetValue("A");
    section->Delete();
    EXPECT_THAT(section->GetAllChildren(false), IsEmpty());
    EXPECT_TRUE(root->ChildExists("2"));
}

TEST(ConfigNode, HandledChangeGoesNoFurtherAndPrunesNothing) {
    std::vector<std::string> heard;
    Witness handles(heard, "handles", true);
    Witness later(heard, "later");
    Witness above(heard, "above");
    const auto root = OwnTree("root", "");
    const auto leaf = root->GetChild("k", true);
    leaf->SetValue("x");
    leaf->AddListener(&handles);
    leaf->AddListener(&later);
    root->AddListener(&above);
    leaf->SetValue("");
    EXPECT_THAT(heard, ElementsAre("handles: k=, was x"));
    EXPECT_TRUE(root->ChildExists("k"));
}

TEST(ConfigNode, ChangeHandledFurtherUpPrunesNothingEither) {
    std::vector<std::string> heard;
    Witness handles(heard, "handles", true);
    const auto root = OwnTree("root", "");
    const auto leaf = root->GetChild("k", true);
    leaf->SetValue("x");
    root->AddListener(&handles);
    leaf->SetValue("");
    EXPECT_TRUE(root->ChildExists("k"));
}

TEST(ConfigNode, ListenerMayTakeOffItselfAndOthersDuringARun) {
    std::vector<std::string> heard;
    Witness first(heard, "first");
    Witness second(heard, "second");
    const auto key = node("k");
    key->AddListener(&first);
    key->AddListener(&second);
    first.then = [&] {
        key->RemoveListener(&first);
        key->RemoveListener(&second);
    };
    key->SetValue("1");
    key->SetValue("2");
    EXPECT_THAT(heard, ElementsAre("first: k=1, was "));
}

TEST(ConfigNode, ListenerMayAddAnotherDuringARun) {
    std::vector<std::string> heard;
    Witness first(heard, "first");
    Witness second(heard, "second");
    const auto key = node("k");
    key->AddListener(&first);
    first.then = [&] { key->AddListener(&second); };
    key->SetValue("1");
    EXPECT_THAT(heard, ElementsAre("first: k=1, was "));
    key->SetValue("2");
    EXPECT_THAT(heard, ElementsAre("first: k=1, was ", "first: k=2, was 1", "second: k=2, was 1"));
}

TEST(ConfigNode, TakingAListenerOffWaitsForTheCallOfAnotherThread) {
    std::vector<std::string> heard;
    std::atomic<bool> inside{false};
    std::atomic<bool> left{false};
    Witness witness(heard);
    witness.then = [&] {
        inside = true;
        inside.notify_all();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        left = true;
    };
    const auto key = node("k");
    key->AddListener(&witness);
    std::thread changer([&] { key->SetValue("1"); });
    inside.wait(false);
    key->RemoveListener(&witness);
    EXPECT_TRUE(left);
    changer.join();
}

TEST(ConfigNode, ListenerMayChangeOtherSettings) {
    std::vector<std::string> heard;
    Witness witness(heard);
    const auto root = OwnTree("root", "");
    const auto key = root->GetChild("k", true);
    key->AddListener(&witness);
    witness.then = [&] { root->GetChild("other", true)->SetValue("set"); };
    key->SetValue("1");
    EXPECT_EQ(root->GetChild("other", false)->GetValue(""), "set");
}

TEST(ConfigNode, NodeOutsideASharedPointerCannotNotify) {
    ConfigNode on_stack("k", "");
    EXPECT_THROW(on_stack.SetValue("1"), std::bad_weak_ptr);
}

TEST(ConfigNode, PruningAndReadingOnManyThreadsGoOn) {
    const auto root = OwnTree("root", "");
    std::atomic<bool> done{false};
    const auto prune = [&](const std::string& key) {
        for (int i = 0; i < 3000; ++i) {
            root->GetChild(key, true)->SetValue(i + 1);
            root->GetChild(key, true)->SetValue("");
        }
    };
    const auto read = [&] {
        while (!done) {
            root->GetChild("first", false)->GetValue(1);
            root->ChildExists("second");
            root->GetAllChildren(true);
        }
    };
    std::thread reader(read);
    std::thread one(prune, "first");
    std::thread two(prune, "second");
    one.join();
    two.join();
    done = true;
    reader.join();
    for (const auto& left : root->GetAllChildren(false))
        EXPECT_EQ(left->GetValue("empty"), "empty");
}
