#include "support/AccountStation.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

constexpr int ALL_STREAMS = -1;

// The list as a user sees it who has posted these fields to it.
std::string list(const std::string& name, int id, const FormPost::Fields& fields = {},
                 const std::string& target = "/admin/users") {
    FormPost post(name + ":secret", fields, target);
    return post.panel.create_user_list(id).str();
}

void delete_names(const std::string& as, int id, const std::vector<std::string>& names) {
    FormPost::Fields fields = {{"action", "Delete"}};
    for (const std::string& name : names)
        fields[name] = "on";
    list(as, id, fields);
}

const std::string CHECK = R"(<input type="checkbox" id="select_check" name=")";
const std::string STYLE = R"(" style="vertical-align: middle;")";

bool has_box(const std::string& page, const std::string& name) {
    return holds(page, CHECK + name + STYLE + " />");
}

bool has_disabled_box(const std::string& page, const std::string& name) {
    return holds(page, CHECK + name + STYLE + " disabled />");
}

bool has_link(const std::string& page, const std::string& name) {
    return holds(page, "<a href=\"?u=" + name + "\">" + name + "</a>");
}

// ---- What is shown ------------------------------------------------------------------------------

TEST(UserListPage, TheFirstRowHeadsTheColumns) {
    AccountStation station;
    const std::string page = list("root", ALL_STREAMS);
    EXPECT_TRUE(page.starts_with(R"(<form method="post"><table class="tableView">)"
                                 R"(<tr class="tableViewHead">)"));
    EXPECT_TRUE(holds(page, R"(id="master_select_check" name="")"));
    EXPECT_TRUE(holds(page, " Username</td>"));
    EXPECT_TRUE(holds(page, ">Group</td>"));
}

TEST(UserListPage, EveryAccountHasARowWithItsGroup) {
    AccountStation station;
    const std::string page = list("root", ALL_STREAMS);
    EXPECT_EQ(count_of(page, "id=\"select_check\""), 8);
    EXPECT_TRUE(holds(page, R"(<td class="tableViewIndex">)" + CHECK + "hearer" + STYLE +
                                R"( /> <a href="?u=hearer">hearer</a></td><td>Listener</td>)"));
    EXPECT_TRUE(holds(page, R"(<a href="?u=both">both</a></td><td>Mount Manager</td>)"));
    EXPECT_TRUE(holds(page, R"(<a href="?u=encoder">encoder</a></td><td>Mount Source</td>)"));
}

TEST(UserListPage, TheLastRowOffersToCreateAndToDelete) {
    AccountStation station;
    EXPECT_TRUE(list("root", ALL_STREAMS)
                    .ends_with(R"(<input type="submit" name="action" value="Create" /> )"
                               R"(<input type="submit" name="action" value="Delete" />)"
                               "</td></tr></table></form>"));
}

TEST(UserListPage, OnesOwnBoxIsDisabledAndOnesNameIsALink) {
    AccountStation station;
    const std::string page = list("root", ALL_STREAMS);
    EXPECT_TRUE(has_disabled_box(page, "root"));
    EXPECT_TRUE(has_link(page, "root"));
    EXPECT_TRUE(has_disabled_box(list("first", 1), "first"));
}

TEST(UserListPage, OfAStreamShowsWhoHasRightsThereButNoAdministrator) {
    AccountStation station;
    const std::string page = list("root", 1);
    for (const char* name : {"first", "both", "encoder", "hearer", "guest", "member"})
        EXPECT_TRUE(has_box(page, name)) << name;
    EXPECT_FALSE(holds(page, "stranger"));
    EXPECT_FALSE(holds(page, "root"));
}

TEST(UserListPage, AManagerOpensWhoHasNothingElse) {
    AccountStation station;
    const std::string page = list("first", 1);
    EXPECT_TRUE(has_box(page, "hearer") && has_link(page, "hearer"));
    EXPECT_TRUE(has_box(page, "encoder") && has_link(page, "encoder"));
    for (const char* name : {"both", "guest", "member"}) {
        EXPECT_TRUE(has_disabled_box(page, name)) << name;
        EXPECT_FALSE(has_link(page, name)) << name;
    }
}

TEST(UserListPage, ASourceOpensNobody) {
    AccountStation station;
    const std::string page = list("encoder", 1);
    EXPECT_EQ(count_of(page, " disabled />"), count_of(page, "id=\"select_check\""));
    EXPECT_FALSE(holds(page, "?u="));
}

TEST(UserListPage, AccountsThatCannotLogInAreOutOfReach) {
    AccountStation station;
    make_account("shut", "secret", User::BANNED);
    const std::string page = list("root", ALL_STREAMS);
    EXPECT_TRUE(has_disabled_box(page, "shut"));
    EXPECT_TRUE(holds(page, "shut</td><td>Banned</td>"));
}

TEST(UserListPage, WithoutAccountsSaysSoAndOffersToCreateOne) {
    AccountStation station;
    OnAir third("/three", 3);
    UserList::Remove("both");
    UserList::Remove("member");
    EXPECT_EQ(list("root", 3), R"(<form method="post"><table class="tableView">)"
                               R"(<tr class="tableViewCol"><td colspan="2">)"
                               "No users are currently configured.</td></tr>"
                               R"(<tr class="tableViewCol"><td colspan="2">)"
                               R"(<input type="submit" name="action" value="Create" />)"
                               "</td></tr></table></form>");
}

TEST(UserListPage, NamesOfStrangersAreEncodedInTextBoxAndLink) {
    AccountStation station;
    make_account("<b>\"&'+%/ x", "secret", User::LISTENER, 1);
    const std::string page = list("root", ALL_STREAMS);
    EXPECT_TRUE(has_box(page, "&lt;b&gt;&quot;&amp;&apos;+%/ x"));
    EXPECT_TRUE(holds(page, ">&lt;b&gt;&quot;&amp;&apos;+%/ x</a>"));
    EXPECT_FALSE(holds(page, "<b>"));
}

// ---- Opening an account -------------------------------------------------------------------------

bool opens(const std::string& as, int id, const std::string& name) {
    return holds(list(as, id, {}, "/admin/users?u=" + UrlEncode(name, false)), "password-confirm");
}

TEST(UserListPage, OpensTheAccountOfTheQuery) {
    AccountStation station;
    EXPECT_TRUE(opens("root", ALL_STREAMS, "hearer"));
    EXPECT_TRUE(opens("root", ALL_STREAMS, "root"));
    EXPECT_FALSE(opens("root", ALL_STREAMS, "nobody"));
    EXPECT_FALSE(opens("root", ALL_STREAMS, "Anonymous"));
    EXPECT_FALSE(opens("root", ALL_STREAMS, ""));
}

TEST(UserListPage, OpensForAManagerWhoIsWithinReach) {
    AccountStation station;
    make_account("boss", "secret", User::ADMINISTRATOR, 1);
    make_account("rival", "secret", User::MOUNT_MANAGER, 2);
    EXPECT_TRUE(opens("first", 1, "hearer"));
    EXPECT_TRUE(opens("first", 1, "first"));
    for (const char* name : {"boss", "root", "rival", "stranger", "guest", "member", "both"})
        EXPECT_FALSE(opens("first", 1, name)) << name;
    EXPECT_TRUE(opens("both", 1, "stranger")); // of his other stream
    EXPECT_FALSE(opens("encoder", 1, "hearer"));
}

TEST(UserListPage, OpensNamesWithSignsOfAddresses) {
    AccountStation station;
    for (const char* name : {"a+b", "50%", "%41", "a&b=c", "a b", "#?/;"}) {
        make_account(name, "secret", User::LISTENER, 1);
        EXPECT_TRUE(opens("root", ALL_STREAMS, name)) << name;
    }
}

TEST(UserListPage, CreateOpensAnEmptyForm) {
    AccountStation station;
    const std::string page = list("root", ALL_STREAMS, {{"action", "Create"}});
    EXPECT_TRUE(holds(page, R"(name="username" />)"));
}

TEST(UserListPage, ANewAccountHasNoPropertiesToShow) {
    AccountStation station;
    const std::string page =
        list("root", ALL_STREAMS, {{"action", "Create"}, {"property_list_subform", "form"}});
    EXPECT_TRUE(holds(page, R"(name="username")"));
}

// ---- Delete -------------------------------------------------------------------------------------

TEST(UserListPage, DeletesTheTickedAccountsAndSaves) {
    AccountStation station;
    delete_names("root", ALL_STREAMS, {"hearer", "both", "nobody"});
    EXPECT_FALSE(exists("hearer"));
    EXPECT_FALSE(exists("both"));
    EXPECT_TRUE(exists("stranger"));
    EXPECT_FALSE(holds(station.File(), "hearer"));
    EXPECT_TRUE(holds(station.File(), "<username>stranger</username>"));
}

TEST(UserListPage, ABoxWithoutAValueIsNotTicked) {
    AccountStation station;
    list("root", ALL_STREAMS, {{"action", "Delete"}, {"hearer", ""}});
    EXPECT_TRUE(exists("hearer"));
    EXPECT_EQ(station.File(), "");
}

TEST(UserListPage, NobodyDeletesHimself) {
    AccountStation station;
    delete_names("root", ALL_STREAMS, {"root"});
    EXPECT_TRUE(exists("root"));
    delete_names("first", 1, {"first"});
    EXPECT_TRUE(has_rights("first", 1));
    EXPECT_EQ(station.File(), "");
}

TEST(UserListPage, TheFieldOfTheButtonIsNoTick) {
    AccountStation station;
    make_account("action", "secret", User::LISTENER);
    make_account("username", "secret", User::LISTENER);
    delete_names("root", ALL_STREAMS, {"hearer"});
    EXPECT_TRUE(exists("action"));
    EXPECT_TRUE(exists("username"));
    delete_names("root", ALL_STREAMS, {"username"});
    EXPECT_FALSE(exists("username"));
}

TEST(UserListPage, OfAStreamTakesTheRightsOnThatStreamOnly) {
    AccountStation station;
    delete_names("root", 1, {"guest"});
    EXPECT_FALSE(has_rights("guest", 1));
    EXPECT_TRUE(has_rights("guest", 2));
    EXPECT_TRUE(holds(station.File(), "<username>guest</username>"));
}

TEST(UserListPage, OfAStreamDeletesWhoHasNothingLeft) {
    AccountStation station;
    delete_names("root", 1, {"hearer"});
    EXPECT_FALSE(exists("hearer"));
    EXPECT_FALSE(holds(station.File(), "hearer"));
}

TEST(UserListPage, OfAStreamLeavesWhoHasNoRightsOfItsOwnThere) {
    AccountStation station;
    make_account("idle", "secret", User::LISTENER)->RemoveMount(-1);
    delete_names("root", 1, {"member", "stranger", "idle"});
    EXPECT_TRUE(has_rights("member", -1));
    EXPECT_TRUE(has_rights("stranger", 2));
    EXPECT_TRUE(exists("idle"));
    EXPECT_EQ(station.File(), "");
}

TEST(UserListPage, OfAStreamTakesNothingFromAdministrators) {
    AccountStation station;
    make_account("boss", "secret", User::ADMINISTRATOR, 1);
    delete_names("root", 1, {"boss"});
    EXPECT_TRUE(has_rights("boss", 1));
}

TEST(UserListPage, AManagerDeletesWhomHeMayEdit) {
    AccountStation station;
    delete_names("first", 1, {"hearer", "guest", "both", "member", "stranger", "root"});
    EXPECT_FALSE(exists("hearer"));
    for (const char* name : {"guest", "both", "member", "stranger", "root"})
        EXPECT_TRUE(exists(name)) << name;
    EXPECT_TRUE(has_rights("guest", 1));
}

TEST(UserListPage, ASourceDeletesNobody) {
    AccountStation station;
    delete_names("encoder", 1, {"first", "hearer", "guest"});
    EXPECT_TRUE(has_rights("first", 1) && has_rights("hearer", 1) && has_rights("guest", 1));
    EXPECT_EQ(station.File(), "");
}

} // namespace
