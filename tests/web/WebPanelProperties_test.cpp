#include "support/AccountStation.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

constexpr int ALL_STREAMS = -1;
const std::string LIST = "/admin/users?m=b";

// A property page, and where its answer leads.
struct Outcome {
    std::string page;
    std::string redirect;
};

Outcome list(const std::string& as, const std::shared_ptr<User>& target, int id,
             const FormPost::Fields& fields = {}) {
    FormPost post(as + ":secret", fields, LIST);
    std::string page = post.panel.create_property_list(target, id).str();
    return {std::move(page), redirect_of(post)};
}

// One ban on every mount, one on each stream.
std::shared_ptr<User> bans() {
    const auto user = UserList::GetBanUser();
    user->AddProperty(-1, "everywhere", User::USER_AGENT);
    user->AddProperty(1, "10.0.0.1", User::IP);
    user->AddProperty(2, "10.0.0.0/8", User::SUBNET);
    return user;
}

void remove(const std::string& as, const std::shared_ptr<User>& target, int id,
            const std::string& context, const std::string& filter) {
    list(as, target, id, {{"action", "Delete"}, {"property_list", context}, {filter, "on"}});
}

bool has_filter(const std::shared_ptr<User>& user, int mount, const std::string& filter) {
    const auto properties = user->GetAllProperties(mount, true);
    return !properties.empty() && properties.begin()->second.contains(filter);
}

std::string row(const std::string& filter, const std::string& type, const std::string& context,
                bool disabled = false) {
    return R"(<tr class="tableViewCol"><td class="tableViewIndex">)"
           R"(<input type="checkbox" id="select_check" name=")" +
           filter + R"(" style="vertical-align: middle;")" + (disabled ? " disabled" : "") +
           " /> " + filter + "</td><td>" + type + "</td><td>" + context + "</td></tr>";
}

// ---- The list -----------------------------------------------------------------------------------

TEST(PropertyListPage, WithoutPropertiesSaysWhoHasNone) {
    AccountStation station;
    EXPECT_EQ(list("root", UserList::GetBanUser(), ALL_STREAMS).page,
              R"(<form method="post">)"
              R"(<input type="hidden" name="property_list_subform" value="list" />)"
              R"(<input type="hidden" name="property_list" value="-1" />)"
              R"(<table class="tableView"><tr class="tableViewCol"><td colspan="3">)"
              "No properties are currently configured for Banned Users.</td></tr>"
              R"(<tr class="tableViewCol"><td colspan="3">)"
              R"(<input type="submit" name="action" value="Create" />)"
              "</td></tr></table></form>");
    const auto nobody = make_account("<u>", "secret", User::LISTENER);
    nobody->RemoveMount(-1);
    EXPECT_TRUE(holds(list("root", nobody, ALL_STREAMS).page, "configured for &lt;u&gt;."));
}

TEST(PropertyListPage, TheFirstRowHeadsTheColumnsAndTheLastHasTheButtons) {
    AccountStation station;
    const std::string page = list("root", bans(), ALL_STREAMS).page;
    EXPECT_TRUE(holds(page, R"(id="master_select_check")"));
    EXPECT_TRUE(holds(page, R"( Target</td><td role="columnheader">Type</td>)"
                            R"(<td role="columnheader">Context</td></tr>)"));
    EXPECT_TRUE(page.ends_with(R"(<input type="submit" name="action" value="Create" /> )"
                               R"(<input type="submit" name="action" value="Delete" />)"
                               "</td></tr></table></form>"));
}

TEST(PropertyListPage, OfAllStreamsShowsTheBansOfEach) {
    AccountStation station;
    const std::string page = list("root", bans(), ALL_STREAMS).page;
    EXPECT_TRUE(holds(page, row("everywhere", "User Agent", "All Resources") +
                                row("10.0.0.1", "IP", "/one") +
                                row("10.0.0.0/8", "Subnet", "/two")));
}

TEST(PropertyListPage, OfAStreamShowsItsOwnBansAndThoseOfEveryStream) {
    AccountStation station;
    EXPECT_TRUE(holds(list("first", bans(), 1).page,
                      row("everywhere", "User Agent", "All Resources", true) +
                          row("10.0.0.1", "IP", "/one") + R"(<tr class="tableViewCol"><td cols)"));
}

TEST(PropertyListPage, AdministratorsTickEverything) {
    AccountStation station;
    EXPECT_FALSE(holds(list("root", bans(), 1).page, "disabled"));
}

TEST(PropertyListPage, ReservesAreShownAsBansAre) {
    AccountStation station;
    UserList::GetReserveUser()->AddProperty(-1, "friend", User::USER_AGENT);
    EXPECT_TRUE(holds(list("first", UserList::GetReserveUser(), 1).page,
                      row("friend", "User Agent", "All Resources", true)));
}

TEST(PropertyListPage, OfAnAccountShowsTheMountItIsAboutAlone) {
    AccountStation station;
    const auto guest = account("guest");
    guest->AddProperty(-1, "anywhere", User::NONE);
    const std::string second =
        list("root", guest, ALL_STREAMS, {{"action", "Edit Access"}, {"property_list", "2"}}).page;
    EXPECT_TRUE(holds(second, row("*", "All", "/two")));
    EXPECT_TRUE(holds(second, R"(name="property_list" value="2")"));
    EXPECT_EQ(count_of(second, "select_check\" name"), 2); // the master's and one
    EXPECT_TRUE(
        holds(list("root", guest, ALL_STREAMS).page, row("anywhere", "None", "All Resources")));
}

TEST(PropertyListPage, OfAStreamIsAboutThatStreamWhateverIsPosted) {
    AccountStation station;
    const std::string page = list("root", account("guest"), 1, {{"property_list", "2"}}).page;
    EXPECT_TRUE(holds(page, R"(name="property_list" value="1")"));
}

TEST(PropertyListPage, WhatIsNoMountIsNoContext) {
    AccountStation station;
    for (const char* text : {"", "-", "x", "\"><i>", "99999999999"})
        EXPECT_TRUE(
            holds(list("root", account("guest"), ALL_STREAMS, {{"property_list", text}}).page,
                  R"(name="property_list" value="-1")"))
            << text;
}

TEST(PropertyListPage, WhatIsLeftOfAMountThatIsGoneSeemsToBeForAll) {
    AccountStation station;
    UserList::GetBanUser()->AddProperty(77, "left", User::USER_AGENT);
    EXPECT_TRUE(holds(list("root", UserList::GetBanUser(), ALL_STREAMS).page,
                      row("left", "User Agent", "All Resources")));
}

TEST(PropertyListPage, FiltersOfStrangersAreEncoded) {
    AccountStation station;
    UserList::GetBanUser()->AddProperty(-1, "\"><script>'&", User::USER_AGENT);
    const std::string page = list("root", UserList::GetBanUser(), ALL_STREAMS).page;
    EXPECT_TRUE(
        holds(page, row("&quot;&gt;&lt;script&gt;&apos;&amp;", "User Agent", "All Resources")));
    EXPECT_FALSE(holds(page, "\"><script>"));
}

// ---- Delete -------------------------------------------------------------------------------------

TEST(PropertyListPage, DeletesTheTickedAndSaves) {
    AccountStation station;
    const auto banned = bans();
    remove("root", banned, ALL_STREAMS, "-1", "everywhere");
    EXPECT_FALSE(has_filter(banned, -1, "everywhere"));
    EXPECT_TRUE(has_filter(banned, 1, "10.0.0.1"));
    EXPECT_FALSE(holds(station.File(), "everywhere"));
    EXPECT_TRUE(holds(station.File(), "10.0.0.1"));
}

TEST(PropertyListPage, DeletesNothingOfOtherMountsThanItIsAbout) {
    AccountStation station;
    const auto banned = bans();
    remove("root", banned, ALL_STREAMS, "-1", "10.0.0.1");
    EXPECT_TRUE(has_filter(banned, 1, "10.0.0.1"));
    remove("root", banned, 1, "1", "everywhere");
    EXPECT_TRUE(has_filter(banned, -1, "everywhere"));
}

TEST(PropertyListPage, AManagerDeletesOnHisStreamOnly) {
    AccountStation station;
    const auto banned = bans();
    banned->AddProperty(1, "everywhere", User::USER_AGENT);
    banned->AddProperty(2, "everywhere", User::USER_AGENT);
    remove("first", banned, 1, "-1", "everywhere");
    EXPECT_TRUE(has_filter(banned, -1, "everywhere"));
    remove("first", banned, 1, "2", "everywhere");
    EXPECT_TRUE(has_filter(banned, 2, "everywhere"));
    EXPECT_EQ(station.File(), "");
    remove("first", banned, 1, "1", "everywhere");
    EXPECT_FALSE(has_filter(banned, 1, "everywhere"));
    EXPECT_TRUE(has_filter(banned, -1, "everywhere"));
}

TEST(PropertyListPage, WithoutANumberOfAMountDeletesNothing) {
    AccountStation station;
    const auto banned = bans();
    for (const char* text : {"", "-", "all", "-2", "99999999999"})
        remove("root", banned, ALL_STREAMS, text, "everywhere");
    EXPECT_TRUE(has_filter(banned, -1, "everywhere"));
}

TEST(PropertyListPage, ItsOwnFieldsAreNoTicks) {
    AccountStation station;
    const auto banned = bans();
    for (const char* name : {"action", "property_list", "property_list_subform"})
        banned->AddProperty(-1, name, User::USER_AGENT);
    list("root", banned, ALL_STREAMS,
         {{"action", "Delete"},
          {"property_list", "-1"},
          {"property_list_subform", "list"},
          {"everywhere", "on"}});
    EXPECT_FALSE(has_filter(banned, -1, "everywhere"));
    for (const char* name : {"action", "property_list", "property_list_subform"})
        EXPECT_TRUE(has_filter(banned, -1, name)) << name;
}

TEST(PropertyListPage, ABoxWithoutAValueIsNotTicked) {
    AccountStation station;
    const auto banned = bans();
    list("root", banned, ALL_STREAMS,
         {{"action", "Delete"}, {"property_list", "-1"}, {"everywhere", ""}});
    EXPECT_TRUE(has_filter(banned, -1, "everywhere"));
    EXPECT_EQ(station.File(), "");
}

// ---- The way to the form ------------------------------------------------------------------------

TEST(PropertyListPage, CreateOpensTheForm) {
    AccountStation station;
    for (const char* as : {"root", "first", "encoder"})
        EXPECT_TRUE(holds(list(as, UserList::GetBanUser(), 1, {{"action", "Create"}}).page,
                          R"(name="target")"))
            << as;
}

TEST(PropertyListPage, OnlyAdministratorsGiveAccountsProperties) {
    AccountStation station;
    const FormPost::Fields fields = {
        {"action", "Create"}, {"property_list_subform", "form"}, {"target", "x"}, {"type", "3"}};
    EXPECT_TRUE(holds(list("first", account("hearer"), 1, fields).page, "value=\"list\""));
    EXPECT_FALSE(has_filter(account("hearer"), 1, "x"));
    list("root", account("hearer"), 1, fields);
    EXPECT_TRUE(has_filter(account("hearer"), 1, "x"));
}

// ---- The form of one property -------------------------------------------------------------------

Outcome property(const std::string& as, int id, FormPost::Fields fields) {
    fields.emplace("action", "Create");
    fields.emplace("property_list_subform", "form");
    return list(as, UserList::GetBanUser(), id, fields);
}

TEST(PropertyForm, AsksForATargetAndItsType) {
    AccountStation station;
    const std::string page =
        list("root", UserList::GetBanUser(), ALL_STREAMS,
             {{"action", "Create"}, {"property_list_subform", "list"}, {"property_list", "-1"}})
            .page;
    EXPECT_TRUE(page.starts_with(
        R"(<form method="post"><input type="hidden" name="property_list_subform" value="form" />)"
        R"(<input type="hidden" name="property_list" value="-1" /><table class="tableView">)"));
    EXPECT_TRUE(holds(page, R"(Target:</label></td><td><input type="text" id="target" )"
                            R"(name="target" /></td>)"));
    EXPECT_TRUE(holds(page, R"(<select id="type" name="type"><option value="0">None</option>)"
                            R"(<option value="1">IP</option><option value="2">Subnet</option>)"
                            R"(<option value="3">User Agent</option>)"
                            R"(<option value="4">All</option></select>)"));
    EXPECT_TRUE(page.ends_with(R"(<input type="submit" name="action" value="Cancel" /> )"
                               R"(<input type="reset" name="" value="Reset" /> )"
                               R"(<input type="submit" name="action" value="Create" /></td></tr>)"
                               "</table></form>"));
}

TEST(PropertyForm, WarnsOfRangesThatMatchEverybody) {
    AccountStation station;
    const std::string page = list("first", UserList::GetBanUser(), 1, {{"action", "Create"}}).page;
    EXPECT_TRUE(holds(page, "/32 or /0"));
}

TEST(PropertyForm, CarriesTheContextEncoded) {
    AccountStation station;
    EXPECT_TRUE(holds(list("root", UserList::GetBanUser(), ALL_STREAMS,
                           {{"action", "Create"}, {"property_list", "\"><i>"}})
                          .page,
                      R"(name="property_list" value="&quot;&gt;&lt;i&gt;" />)"));
}

TEST(PropertyForm, AddsTheFilterSavesAndReturnsToTheList) {
    AccountStation station;
    const auto outcome = property("root", ALL_STREAMS,
                                  {{"property_list", "-1"}, {"target", "1.2.3.4"}, {"type", "1"}});
    EXPECT_EQ(outcome.redirect, LIST);
    EXPECT_TRUE(has_filter(UserList::GetBanUser(), -1, "1.2.3.4"));
    EXPECT_TRUE(holds(station.File(), "<filter type=\"IP\">1.2.3.4</filter>"));
}

TEST(PropertyForm, OnlyAdministratorsOnThePageOfAllStreamsChooseTheMount) {
    AccountStation station;
    property("root", ALL_STREAMS, {{"property_list", "2"}, {"target", "a"}, {"type", "3"}});
    EXPECT_TRUE(has_filter(UserList::GetBanUser(), 2, "a"));
    property("root", 1, {{"property_list", "2"}, {"target", "b"}, {"type", "3"}});
    EXPECT_TRUE(has_filter(UserList::GetBanUser(), 1, "b"));
    property("first", 1, {{"property_list", "-1"}, {"target", "c"}, {"type", "3"}});
    EXPECT_TRUE(has_filter(UserList::GetBanUser(), 1, "c"));
    EXPECT_FALSE(has_filter(UserList::GetBanUser(), -1, "c"));
}

TEST(PropertyForm, WithoutATypeOrAMountIsShownAgain) {
    AccountStation station;
    const FormPost::Fields INCOMPLETE[] = {
        {{"property_list", "-1"}, {"target", "x"}},
        {{"property_list", "-1"}, {"target", "x"}, {"type", "5"}},
        {{"property_list", "-1"}, {"target", "x"}, {"type", "99"}},
        {{"property_list", "-1"}, {"target", "x"}, {"type", "-"}},
        {{"property_list", "-1"}, {"target", "x"}, {"type", "-1"}},
        {{"property_list", "-"}, {"target", "x"}, {"type", "3"}},
        {{"property_list", "no"}, {"target", "x"}, {"type", "3"}},
        {{"target", "x"}, {"type", "3"}},
    };
    for (const auto& fields : INCOMPLETE) {
        const Outcome outcome = property("root", ALL_STREAMS, fields);
        EXPECT_EQ(outcome.redirect, "");
        EXPECT_TRUE(holds(outcome.page, R"(name="target")"));
    }
    EXPECT_TRUE(UserList::GetBanUser()->GetAllProperties(-1, false).empty());
}

TEST(PropertyForm, AnEmptyTargetIsNoFilter) {
    AccountStation station;
    EXPECT_EQ(property("first", 1, {{"type", "3"}}).redirect, LIST);
    EXPECT_TRUE(UserList::GetBanUser()->GetAllProperties(-1, false).empty());
}

TEST(PropertyForm, FiltersEndWithTheirLine) {
    AccountStation station;
    property("first", 1, {{"target", "agent\nother"}, {"type", "3"}});
    EXPECT_TRUE(has_filter(UserList::GetBanUser(), 1, "agent"));
}

TEST(PropertyForm, CancelReturnsToTheList) {
    AccountStation station;
    EXPECT_EQ(property("first", 1, {{"action", "Cancel"}, {"target", "x"}, {"type", "3"}}).redirect,
              LIST);
    EXPECT_TRUE(UserList::GetBanUser()->GetAllProperties(-1, false).empty());
}

} // namespace
