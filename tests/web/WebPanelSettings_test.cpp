// The pages of settings, and what a post of them changes.

#include "config/Config.h"
#include "config/ConfigNode.h"
#include "support/FormPost.h"
#include "support/SettingsTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string ADMIN = "root:secret";
const std::string MANAGER = "manager:secret";
using Node = std::shared_ptr<ConfigNode>;

std::string id_of(const Node& section, const std::string& key) {
    return std::to_string(section->GetChild(key, false)->GetId());
}

std::string text_box(const std::string& label, const std::string& id, const std::string& value) {
    const std::string attribute = value.empty() ? "" : " value=\"" + value + "\"";
    return R"(<tr class="tableViewCol"><td class="tableViewIndex">)" + label +
           R"(</td><td><input type="text" name=")" + id + "\"" + attribute +
           R"( style="width:100%" /></td></tr>)";
}

std::string option(const std::string& key) {
    return "<option value=\"" + key + "\">" + key + "</option>";
}

struct SettingsPages : testing::Test {
    SettingsPages() {
        make_account("root", "secret", User::ADMINISTRATOR);
        make_account("manager", "secret", User::MOUNT_MANAGER, 1);
        section = air.mount->GetConfigNode();
        for (const char* key : {"UserMax", "Mount", "User", "Pass"})
            section->AddChild(std::make_shared<ConfigNode>(key, ""));
        section->GetChild("UserMax", false)->SetValue("5");
        section->GetChild("Mount", false)->SetValue("/live");
    }

    // A page in answer to a post of these fields. The server's is that of no stream.
    enum Page : int { SERVER = -2, DEFAULTS = -1, STREAM = 1 };
    static std::string post(Page page, FormPost::Fields fields, const std::string& login = ADMIN) {
        fields.try_emplace("action", "Save");
        return shown(page, fields, login);
    }
    static std::string shown(Page page, const FormPost::Fields& fields = {},
                             const std::string& login = ADMIN) {
        FormPost visit(login, fields);
        return (page == SERVER ? visit.panel.create_root_config()
                               : visit.panel.create_mount_config(page))
            .str();
    }

    OnAir air{"/live"};
    Node section;
    Node root = Config::GetRoot();
    Node defaults = Config::Get("default", false);
};

// ---- What is shown ------------------------------------------------------------------------------

TEST_F(SettingsPages, ThePageOfAMount) {
    section->AddChild(std::make_shared<ConfigNode>("Auth", "<Needs a login>"));
    EXPECT_EQ(
        shown(STREAM),
        R"(<form method="post"><table class="tableView" id="configForm">)"
        R"(<tr class="tableViewHead"><td colspan="2">Configuration for live</td></tr>)" +
            text_box("UserMax", id_of(section, "UserMax"), "5") +
            text_box("&lt;Needs a login&gt;", id_of(section, "Auth"), "") +
            R"(<tr class="tableViewCol"><td colspan="2" id="submit_options"><input type="submit" )"
            R"(id="saveButton" name="action" value="Save" /><input type="button" name="" )"
            R"_(value="Add Entry" onclick="actionQuery()" /></td></tr></table></form>)_");
}

TEST_F(SettingsPages, TheServersKeysAreSortedAndAMountsAreNot) {
    root->GetChild("Zebra", true)->SetValue("z");
    root->GetChild("Apple", true)->SetValue("a");
    const std::string page = shown(SERVER);
    EXPECT_THAT(page, HasSubstr(R"(<td colspan="2">Server Configuration</td>)"));
    EXPECT_LT(page.find(">Apple<"), page.find(">Zebra<"));
    section->AddChild(std::make_shared<ConfigNode>("Auth", ""));
    const std::string stream = shown(STREAM);
    EXPECT_LT(stream.find(">UserMax<"), stream.find(">Auth<"));
}

TEST_F(SettingsPages, TheDefaultsAreForAdministrators) {
    EXPECT_THAT(shown(DEFAULTS), HasSubstr(R"(<td colspan="2">Configuration for Default</td>)"));
    EXPECT_EQ(shown(DEFAULTS, {}, MANAGER), "Stream ID: -1 is not a configured stream id.");
}

TEST_F(SettingsPages, AMountThatIsNoneOfTheUsersIsNotConfigured) {
    OnAir foreign("/foreign", 2);
    FormPost manager(MANAGER);
    EXPECT_EQ(manager.panel.create_mount_config(2).str(),
              "Stream ID: 2 is not a configured stream id.");
    EXPECT_EQ(FormPost(ADMIN).panel.create_mount_config(9).str(),
              "Stream ID: 9 is not a configured stream id.");
    EXPECT_THAT(shown(STREAM, {}, MANAGER), HasSubstr("Configuration for live"));
}

TEST_F(SettingsPages, HiddenKeysHaveNoRow) {
    for (const char* key : {"AdminUser", "AdminPass"})
        root->GetChild(key, true)->SetValue("hush");
    const std::string server = shown(SERVER);
    for (const char* key : {"AdminUser", "AdminPass", "Source", "Default", "hush"})
        EXPECT_THAT(server, Not(HasSubstr(std::string(">") + key))) << key;
    defaults->GetChild("Pass", true)->SetValue("hush");
    for (const std::string& page : {shown(STREAM), shown(DEFAULTS)})
        for (const char* key : {">Mount<", ">User<", ">Pass<", "hush"})
            EXPECT_THAT(page, Not(HasSubstr(key))) << key;
}

TEST_F(SettingsPages, ValuesAreEncoded) {
    section->GetChild("UserMax", false)->SetValue("\"><b>");
    EXPECT_THAT(shown(STREAM), HasSubstr(R"(value="&quot;&gt;&lt;b&gt;")"));
}

// ---- What may be added --------------------------------------------------------------------------

std::string script_of(const std::string& login, int page) {
    FormPost visit(login, {});
    visit.panel.create_mount_config(page);
    return visit.panel.get_page_header("").str();
}

TEST_F(SettingsPages, TheComboOffersTheKeysThatHaveNoRow) {
    section->GetChild("Relay", true)->SetValue("http://a/");
    const std::string head = script_of(ADMIN, 1);
    EXPECT_THAT(head, HasSubstr("'<select id=\"newVariableName\"><option value=\"0\">"
                                "-- Select Name --</option>" +
                                option("Auth")));
    EXPECT_THAT(head, HasSubstr(R"(</select><input type="button" name="" value="Add Field" )"
                                R"_(onclick="addRow()" />)_"));
    EXPECT_THAT(head, Not(HasSubstr(option("UserMax"))));
    for (const char* key : {"Relay", "Directory", "IP", "Port", "IsDefault"})
        EXPECT_THAT(head, HasSubstr(option(key)));
}

TEST_F(SettingsPages, ThereIsNoDefaultForWhatTellsMountsApart) {
    defaults->GetChild("usermax", true)->SetValue("5");
    const std::string head = script_of(ADMIN, -1);
    for (const char* key : {"Relay", "IP", "Port", "IsDefault", "UserMax"})
        EXPECT_THAT(head, Not(HasSubstr(option(key)))) << key;
    EXPECT_THAT(head, HasSubstr(option("Directory")));
}

TEST_F(SettingsPages, AnotherPortMayAlwaysBeAdded) {
    root->GetChild("PortBase", true)->SetValue("8000");
    root->GetChild("Debug", true)->SetValue("no");
    FormPost visit(ADMIN);
    visit.panel.create_root_config();
    const std::string head = visit.panel.get_page_header("").str();
    EXPECT_THAT(head, HasSubstr(option("PortBase")));
    EXPECT_THAT(head, HasSubstr(option("WebLog")));
    EXPECT_THAT(head, Not(HasSubstr(option("Debug"))));
}

TEST_F(SettingsPages, TheHeadHasTheScriptThatAddsARow) {
    const std::string head = script_of(ADMIN, 1);
    EXPECT_THAT(head, HasSubstr("function addRow() {"));
    EXPECT_THAT(head, HasSubstr("alert(\"You must select a key from the combo box!\");"));
}

// ---- Saving -------------------------------------------------------------------------------------

TEST_F(SettingsPages, ASavedValueIsInForceAndOnThePage) {
    EXPECT_THAT(post(STREAM, {{id_of(section, "UserMax"), "7"}}, MANAGER),
                HasSubstr(text_box("UserMax", id_of(section, "UserMax"), "7")));
    EXPECT_EQ(air.mount->MaxReceivers(), 7);
}

TEST_F(SettingsPages, OnlySaveSaves) {
    shown(STREAM, {{id_of(section, "UserMax"), "7"}});
    shown(STREAM, {{id_of(section, "UserMax"), "7"}, {"action", "save"}});
    EXPECT_EQ(air.mount->MaxReceivers(), 5);
}

TEST_F(SettingsPages, AnEmptiedBoxDeletesTheKey) {
    defaults->GetChild("UserMax", true)->SetValue("9");
    EXPECT_THAT(post(STREAM, {{id_of(section, "UserMax"), ""}}), Not(HasSubstr(">UserMax<")));
    EXPECT_FALSE(section->ChildExists("UserMax"));
    EXPECT_EQ(air.mount->MaxReceivers(), 9);
}

TEST_F(SettingsPages, ANewKeyIsAddedOnce) {
    EXPECT_THAT(post(STREAM, {{"IPUserMax", "2"}}), HasSubstr(">IPUserMax<"));
    EXPECT_EQ(air.mount->IPMaxReceivers(), 2);
    post(STREAM, {{id_of(section, "IPUserMax"), "3"}});
    EXPECT_EQ(section->GetChildren("IPUserMax").size(), 1U);
    EXPECT_EQ(air.mount->IPMaxReceivers(), 3);
    EXPECT_THAT(script_of(ADMIN, 1), Not(HasSubstr(option("IPUserMax"))));
}

TEST_F(SettingsPages, ANewKeyWithoutAValueIsNotAdded) {
    post(STREAM, {{"IPUserMax", ""}, {"Note", "\nx"}});
    EXPECT_FALSE(section->ChildExists("IPUserMax"));
    EXPECT_FALSE(section->ChildExists("Note"));
}

TEST_F(SettingsPages, ADefaultReachesTheMountsThatHaveNoValueOfTheirOwn) {
    post(DEFAULTS, {{"IPUserMax", "4"}, {"UserMax", "4"}});
    EXPECT_EQ(air.mount->IPMaxReceivers(), 4);
    EXPECT_EQ(air.mount->MaxReceivers(), 5);
}

TEST_F(SettingsPages, UnknownIdsChangeNothing) {
    const auto before = Lines(section);
    post(STREAM, {{"99999999", "x"}, {"99999999999999999999999", "x"}, {"-", "x"}, {"-1", "x"}});
    EXPECT_EQ(Lines(section), before);
}

TEST_F(SettingsPages, OnlyChildrenOfTheSectionCanBeChanged) {
    OnAir foreign("/foreign", 2, {{"UserMax", "1"}});
    const Node theirs = foreign.mount->GetConfigNode();
    root->GetChild("Debug", true)->SetValue("no");
    post(STREAM, {{id_of(theirs, "UserMax"), "7"}, {id_of(root, "Debug"), "yes"}}, MANAGER);
    EXPECT_EQ(foreign.mount->MaxReceivers(), 1);
    EXPECT_EQ(root->GetChild("Debug", false)->GetValue(""), "no");
}

// ---- What the file could not hold, and what is not for this page --------------------------------

TEST_F(SettingsPages, NamesAndValuesEndAtTheFirstLineEnd) {
    post(STREAM, {{id_of(section, "UserMax"), "7\r\nAdminUser=e"},
                  {"Note", "x\nAdminUser=e"},
                  {"Public\r", "never"},
                  {std::string("IPUserMax\0x", 11), std::string("3\0x", 3)}});
    EXPECT_THAT(Lines(section), ElementsAre("UserMax=7", "Mount=/live", "User=", "Pass=",
                                            "IPUserMax=3", "Note=x", "Public=never"));
}

TEST_F(SettingsPages, NamesThatTheFileWouldReadAsSomethingElseAreRefused) {
    const auto before = Lines(section);
    post(STREAM, {{"a=b", "x"},
                  {";a", "x"},
                  {" a", "x"},
                  {"\ta", "x"},
                  {"\nNote", "x"},
                  {"UserMax2", "x"},
                  {"a1b", "x"}});
    EXPECT_EQ(Lines(section), before);
    const auto keys = Keys(root);
    post(SERVER,
         {{"a=b", "x"}, {";a", "x"}, {" a", "x"}, {"\ta", "x"}, {"\rNote", "x"}, {"Include", "x"}});
    EXPECT_EQ(Keys(root), keys);
    post(SERVER, {{"W3CLogFile", "x.log"}});
    EXPECT_THAT(Keys(root), Contains("W3CLogFile"));
}

TEST_F(SettingsPages, ANumberIsNoKeyWhateverFollowsItsLine) {
    const auto keys = Keys(root);
    post(SERVER, {{"7777777\n", "x"}, {std::string("7777777\0x", 9), "x"}});
    EXPECT_EQ(Keys(root), keys);
}

TEST_F(SettingsPages, HiddenKeysCannotBeChangedByTheirIds) {
    for (const char* key : {"AdminUser", "AdminPass"})
        root->GetChild(key, true)->SetValue("hush");
    post(SERVER, {{id_of(root, "AdminUser"), "e"},
                  {id_of(root, "AdminPass"), "e"},
                  {id_of(root, "Source"), "e"},
                  {id_of(root, "Default"), "e"}});
    EXPECT_EQ(root->GetChild("AdminUser", false)->GetValue(""), "hush");
    EXPECT_EQ(root->GetChild("AdminPass", false)->GetValue(""), "hush");
    EXPECT_EQ(root->GetChild("Source", false)->GetValue(""), "");
    EXPECT_EQ(root->GetChild("Default", false)->GetValue(""), "");
    post(STREAM, {{id_of(section, "Mount"), "/x"},
                  {id_of(section, "User"), "e"},
                  {id_of(section, "Pass"), "e"}});
    EXPECT_THAT(Lines(section), ElementsAre("UserMax=5", "Mount=/live", "User=", "Pass="));
}

TEST_F(SettingsPages, HiddenKeysCannotBeAdded) {
    const auto keys = Keys(root);
    post(SERVER, {{"adminuser", "e"}, {"AdminPass", "e"}, {"SOURCE", "e"}, {"Default", "e"}});
    EXPECT_EQ(Keys(root), keys);
    post(STREAM, {{"mount", "/x"}, {"User", "e"}, {"PASS\n", "e"}});
    EXPECT_THAT(Lines(section), ElementsAre("UserMax=5", "Mount=/live", "User=", "Pass="));
    post(DEFAULTS, {{"mount", "/x"}, {"User", "e"}, {"PASS", "e"}});
    EXPECT_THAT(Lines(defaults), IsEmpty());
    EXPECT_EQ(UserList::Get("e", ""), UserList::GetAnonymousUser());
}

} // namespace
