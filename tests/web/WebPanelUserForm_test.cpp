#include "support/AccountStation.h"
#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

constexpr int ALL_STREAMS = -1;
const std::string PATH = "/admin/users";

// The form of `account`, or of a new one, and where its answer leads.
struct Outcome {
    std::string page;
    std::string redirect;
};

Outcome form(const std::string& as, int id, const std::shared_ptr<User>& target,
             const FormPost::Fields& fields = {}) {
    FormPost post(as + ":secret", fields, PATH + "?u=x");
    std::string page = post.panel.create_user_form(target, id).str();
    return {std::move(page), redirect_of(post)};
}

Outcome save(const std::string& as, int id, const std::string& name, FormPost::Fields fields) {
    fields.emplace("action", "Save");
    fields.emplace("password", "*******");
    fields.emplace("password-confirm", fields["password"]);
    return form(as, id, account(name), fields);
}

Outcome create(const std::string& as, int id, FormPost::Fields fields) {
    fields.emplace("action", "Create");
    fields.emplace("username", "newcomer");
    fields.emplace("password", "word");
    fields.emplace("password-confirm", fields["password"]);
    fields.emplace("group", "6");
    return form(as, id, nullptr, fields);
}

// ---- What is shown ------------------------------------------------------------------------------

const std::string COLUMN = R"(<tr class="tableViewCol"><td class="tableViewIndex">)";

TEST(UserForm, OfANewAccountIsEmpty) {
    AccountStation station;
    EXPECT_EQ(
        form("first", 1, nullptr).page,
        R"(<form method="post" autocomplete="off"><table class="tableView">)" + COLUMN +
            R"(<label for="username">Username:</label></td>)"
            R"(<td><input type="text" id="username" name="username" /></td></tr>)" +
            COLUMN +
            R"(<label for="password">Password:</label></td>)"
            R"(<td><input type="password" id="password" name="password" /></td></tr>)" +
            COLUMN +
            R"(<label for="password-confirm">Confirm Password:</label></td><td>)"
            R"(<input type="password" id="password-confirm" name="password-confirm" /></td></tr>)" +
            COLUMN +
            R"(<label for="group">Group:</label></td><td><select id="group" name="group">)"
            R"(<option value="4">Mount Manager</option><option value="5">Mount Source</option>)"
            R"(<option value="6">Listener</option></select></td></tr>)"
            R"(<tr class="tableViewCol"><td colspan="2">)"
            R"(<input type="submit" name="action" value="Cancel" /> )"
            R"(<input type="reset" name="" value="Reset" /> )"
            R"(<input type="submit" name="action" value="Create" /></td></tr></table></form>)");
}

TEST(UserForm, OfAnAccountTellsItsNameAndGroupButNoPassword) {
    AccountStation station;
    const std::string page = form("first", 1, account("encoder")).page;
    EXPECT_TRUE(holds(page, COLUMN + "Username:</td><td>encoder</td></tr>"));
    EXPECT_FALSE(holds(page, "name=\"username\""));
    EXPECT_EQ(count_of(page, "value=\"*******\" />"), 2);
    EXPECT_FALSE(holds(page, "secret"));
    EXPECT_TRUE(holds(page, "<option value=\"5\" selected>Mount Source</option>"));
    EXPECT_TRUE(holds(page, R"(<input type="submit" name="action" value="Save" />)"));
    EXPECT_FALSE(holds(page, "disabled"));
}

TEST(UserForm, NamesAreEncoded) {
    AccountStation station;
    const auto target = make_account("<i>&", "secret", User::LISTENER, 1);
    EXPECT_TRUE(holds(form("root", 1, target).page, "<td>&lt;i&gt;&amp;</td>"));
}

TEST(UserForm, ATypedNameIsStillThereWhenTheFormIsShownAgain) {
    AccountStation station;
    const auto outcome = create("root", ALL_STREAMS, {{"username", "\"<i>"}, {"password", ""}});
    EXPECT_TRUE(holds(outcome.page, R"(name="username" value="&quot;&lt;i&gt;" />)"));
}

TEST(UserForm, AdministratorsChooseAmongAllGroups) {
    AccountStation station;
    const std::string page = form("root", ALL_STREAMS, nullptr).page;
    EXPECT_EQ(count_of(page, "<option "), 5);
    EXPECT_TRUE(holds(page, "<option value=\"2\">Administrator</option>"));
}

TEST(UserForm, AccessCountsThePropertiesOfEachMount) {
    AccountStation station;
    const auto target = account("guest");
    target->AddProperty(2, "1.2.3.4", User::IP);
    EXPECT_TRUE(holds(form("root", ALL_STREAMS, target).page,
                      R"(<select id="property_list" name="property_list">)"
                      R"(<option value="-1" selected>All Resources (0)</option>)"
                      R"(<option value="1">/one (1)</option><option value="2">/two (2)</option>)"
                      R"(</select> <input type="submit" name="action" value="Edit Access" />)"));
}

TEST(UserForm, AccessOfAStreamIsFixed) {
    AccountStation station;
    const std::string page = form("root", 1, account("guest")).page;
    EXPECT_TRUE(holds(page, R"(<select id="property_list" name="property_list" disabled>)"));
    EXPECT_TRUE(holds(page, R"(<option value="1" selected>/one (1)</option>)"));
}

TEST(UserForm, OnlyAdministratorsSeeTheAccessOfAnAccount) {
    AccountStation station;
    EXPECT_FALSE(holds(form("first", 1, account("hearer")).page, "Access"));
    EXPECT_FALSE(holds(form("root", 1, nullptr).page, "Access"));
}

TEST(UserForm, WhoCannotBeReachedIsForReadingOnly) {
    AccountStation station;
    for (const char* name : {"guest", "member", "stranger"}) {
        const std::string page = form("first", 1, account(name)).page;
        EXPECT_EQ(count_of(page, "value=\"*******\" disabled />"), 2) << name;
        EXPECT_TRUE(holds(page, R"(<input type="reset" name="" value="Reset" disabled />)"));
        EXPECT_TRUE(holds(page, R"(name="action" value="Save" disabled />)"));
        EXPECT_TRUE(holds(page, R"(name="action" value="Cancel" />)"));
    }
}

// ---- Save ---------------------------------------------------------------------------------------

TEST(UserForm, SavesPasswordAndGroupAndReturnsToTheList) {
    AccountStation station;
    EXPECT_EQ(save("root", ALL_STREAMS, "hearer", {{"password", "new"}, {"group", "5"}}).redirect,
              PATH);
    EXPECT_EQ(account("hearer")->Password(), "new");
    EXPECT_EQ(account("hearer")->GetGroup(), User::MOUNT_SOURCE);
    EXPECT_TRUE(holds(station.File(), "<password encryption=\"None\">new</password>"));
}

TEST(UserForm, APasswordThatWasNotTouchedStays) {
    AccountStation station;
    EXPECT_EQ(save("root", ALL_STREAMS, "hearer", {{"group", "4"}}).redirect, PATH);
    EXPECT_EQ(account("hearer")->Password(), "secret");
    EXPECT_EQ(account("hearer")->GetGroup(), User::MOUNT_MANAGER);
}

TEST(UserForm, APasswordThatWasClearedStays) {
    AccountStation station;
    EXPECT_EQ(save("root", ALL_STREAMS, "hearer", {{"password", ""}, {"group", "4"}}).redirect,
              PATH);
    EXPECT_EQ(account("hearer")->Password(), "secret");
}

void expect_left_alone(const AccountStation& station, const Outcome& outcome) {
    EXPECT_EQ(outcome.redirect, "");
    EXPECT_TRUE(holds(outcome.page, "password-confirm"));
    EXPECT_EQ(account("hearer")->Password(), "secret");
    EXPECT_EQ(account("hearer")->GetGroup(), User::LISTENER);
    EXPECT_EQ(station.File(), "");
}

TEST(UserForm, PasswordsThatDifferChangeNothing) {
    AccountStation station;
    expect_left_alone(station,
                      save("root", ALL_STREAMS, "hearer",
                           {{"password", "a"}, {"password-confirm", "b"}, {"group", "5"}}));
}

TEST(UserForm, AGroupThatIsNoneChangesNothing) {
    AccountStation station;
    for (const char* group : {"", "0", "1", "7", "99", "-", "x", "2147483648"})
        expect_left_alone(
            station, save("root", ALL_STREAMS, "hearer", {{"password", "new"}, {"group", group}}));
}

TEST(UserForm, NobodyIsRaisedAboveOnesOwnRank) {
    AccountStation station;
    for (const char* group : {"2", "3"})
        expect_left_alone(station,
                          save("first", 1, "hearer", {{"password", "new"}, {"group", group}}));
    EXPECT_EQ(save("first", 1, "hearer", {{"group", "4"}}).redirect, PATH);
    EXPECT_EQ(account("hearer")->GetGroup(), User::MOUNT_MANAGER);
}

TEST(UserForm, WhoCannotBeReachedIsNotSaved) {
    AccountStation station;
    for (const char* name : {"guest", "member", "stranger"}) {
        EXPECT_EQ(save("first", 1, name, {{"password", "new"}, {"group", "6"}}).redirect, "");
        EXPECT_EQ(account(name)->Password(), "secret") << name;
    }
    EXPECT_EQ(station.File(), "");
}

TEST(UserForm, TheAnonymousUserIsNotSaved) {
    AccountStation station;
    EXPECT_EQ(save("root", ALL_STREAMS, "", {{"password", "new"}, {"group", "2"}}).redirect, "");
    EXPECT_EQ(UserList::GetAnonymousUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_EQ(UserList::GetAnonymousUser()->Password(), "");
}

TEST(UserForm, ASaveWithoutAnAccountDoesNothing) {
    AccountStation station;
    EXPECT_EQ(form("root", ALL_STREAMS, nullptr, {{"action", "Save"}, {"group", "2"}}).redirect,
              "");
}

// ---- Create -------------------------------------------------------------------------------------

TEST(UserForm, CreatesAnAccountWithoutRights) {
    AccountStation station;
    EXPECT_EQ(create("root", ALL_STREAMS, {{"group", "2"}}).redirect, PATH);
    const auto newcomer = UserList::Get("newcomer", "word");
    EXPECT_EQ(newcomer->GetGroup(), User::ADMINISTRATOR);
    EXPECT_TRUE(newcomer->GetAllProperties(-1, false).empty());
    EXPECT_TRUE(holds(station.File(), "<username>newcomer</username>"));
}

TEST(UserForm, WhoIsMadeForAStreamHasThatStream) {
    AccountStation station;
    create("first", 1, {{"group", "5"}});
    const auto properties = account("newcomer")->GetAllProperties(-1, false);
    EXPECT_EQ(properties, (User::Properties{{1, {{"*", User::ALL}}}}));
    EXPECT_EQ(account("newcomer")->GetGroup(), User::MOUNT_SOURCE);
}

TEST(UserForm, RanksAboveManagersAreMadeForNoStream) {
    AccountStation station;
    create("root", 1, {{"group", "3"}});
    EXPECT_TRUE(account("newcomer")->GetAllProperties(-1, false).empty());
}

TEST(UserForm, NobodyIsMadeAboveOnesOwnRank) {
    AccountStation station;
    EXPECT_EQ(create("first", 1, {{"group", "3"}}).redirect, "");
    EXPECT_EQ(create("encoder", 1, {{"group", "4"}}).redirect, "");
    EXPECT_FALSE(exists("newcomer"));
    EXPECT_EQ(create("encoder", 1, {{"group", "5"}}).redirect, PATH);
    EXPECT_TRUE(exists("newcomer"));
}

TEST(UserForm, NothingIsMadeOfIncompleteWords) {
    AccountStation station;
    const FormPost::Fields INCOMPLETE[] = {
        {{"password", ""}},        {{"password", "a"}, {"password-confirm", "b"}},
        {{"password", "*******"}}, {{"group", "7"}},
        {{"group", "-"}},          {{"group", ""}},
        {{"username", ""}},
    };
    for (const auto& fields : INCOMPLETE) {
        const Outcome outcome = create("root", ALL_STREAMS, fields);
        EXPECT_EQ(outcome.redirect, "");
        EXPECT_TRUE(holds(outcome.page, "password-confirm"));
    }
    EXPECT_FALSE(exists("newcomer"));
    EXPECT_EQ(station.File(), "");
}

TEST(UserForm, ANameThatIsTakenChangesNobody) {
    AccountStation station;
    EXPECT_EQ(create("root", ALL_STREAMS, {{"username", "hearer"}, {"group", "2"}}).redirect, "");
    EXPECT_EQ(account("hearer")->GetGroup(), User::LISTENER);
    EXPECT_EQ(account("hearer")->Password(), "secret");
    EXPECT_EQ(UserList::GetAnonymousUser()->GetGroup(), User::ANONYMOUS);
    EXPECT_TRUE(UserList::GetAnonymousUser()->GetAllProperties(-1, false).empty());
}

TEST(UserForm, NamesEndWithTheirLine) {
    AccountStation station;
    create("root", ALL_STREAMS, {{"username", "one\r\ntwo"}});
    EXPECT_TRUE(exists("one"));
    create("root", ALL_STREAMS, {{"username", std::string("three\0four", 10)}});
    EXPECT_TRUE(exists("three"));
}

TEST(UserForm, CancelReturnsToTheListAndKeepsEverything) {
    AccountStation station;
    EXPECT_EQ(form("root", ALL_STREAMS, account("hearer"),
                   {{"action", "Cancel"}, {"password", "a"}, {"group", "2"}})
                  .redirect,
              PATH);
    EXPECT_EQ(account("hearer")->GetGroup(), User::LISTENER);
    EXPECT_EQ(station.File(), "");
}

// ---- The way to the properties ------------------------------------------------------------------

TEST(UserForm, LeadsToThePropertiesOfTheChosenMount) {
    AccountStation station;
    const std::string page = form("root", ALL_STREAMS, account("guest"),
                                  {{"action", "Edit Access"}, {"property_list", "2"}})
                                 .page;
    EXPECT_TRUE(holds(page, R"(name="property_list_subform" value="list")"));
    EXPECT_TRUE(holds(page, R"(name="property_list" value="2")"));
}

TEST(UserForm, PassesOnWhatThePropertyPagesPost) {
    AccountStation station;
    form("root", ALL_STREAMS, account("hearer"),
         {{"action", "Create"},
          {"property_list_subform", "form"},
          {"property_list", "2"},
          {"target", "1.2.3.4"},
          {"type", "1"}});
    EXPECT_TRUE(has_rights("hearer", 2));
}

} // namespace
