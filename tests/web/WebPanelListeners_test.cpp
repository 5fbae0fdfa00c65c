// The table of listeners, and the page of one of them.

#include "core/Clock.h"
#include "support/FormPost.h"
#include "support/ReceiverProbe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string ADMIN = "root:secret";
const std::string MANAGER = "manager:secret";

struct ListenerPages : testing::Test {
    ListenerPages() {
        Clock::Hold(10000);
        make_account("root", "secret", User::ADMINISTRATOR);
        make_account("manager", "secret", User::MOUNT_MANAGER, 1);
        air.Connect();
        other.Connect();
    }
    ~ListenerPages() override { Clock::Release(); }

    static std::unique_ptr<Visitor> listen(const std::string& target,
                                           const std::string& fields = {}) {
        auto visitor =
            std::make_unique<Visitor>("GET " + target + " HTTP/1.0\r\n" + fields + "\r\n");
        visitor->Slice();
        return visitor;
    }
    static std::string agent(const std::string& name) { return "User-Agent: " + name + "\r\n"; }

    static std::string table(const std::string& login = ADMIN, int id = -1,
                             const std::string& query = {}, const std::string& headers = {}) {
        return FormPost(login, {}, "/admin/listeners" + query, headers)
            .panel.create_listener_stats(id)
            .str();
    }
    static std::string details(const Visitor& visitor, const std::string& login = ADMIN) {
        return FormPost(login).panel.create_receiver_stats(visitor.receiver->GetUUID()).str();
    }
    static std::string row(const std::string& label, const std::string& value) {
        return R"(<tr class="tableViewCol"><td class="tableViewIndex">)" + label + "</td><td>" +
               value + "</td></tr>";
    }

    OnAir air{"/live", 1, {{"UserMax", "100"}}};
    OnAir other{"/other", 2};
};

// ---- The table ----------------------------------------------------------------------------------

TEST_F(ListenerPages, WithoutListenersThereIsOneRowThatSaysSo) {
    EXPECT_EQ(table(), R"(<form method="post"><table class="tableView"><tr class="tableViewCol">)"
                       R"(<td colspan="8">There are currently no listeners connected.</td></tr>)"
                       "</table></form>");
}

TEST_F(ListenerPages, ARowTellsWhoHearsWhat) {
    const auto visitor = listen("/live", agent("Player") + basic("joe:x"));
    const std::string uuid = visitor->receiver->GetUUID();
    Clock::Advance(65);
    const std::string sent = DataSizeToString(visitor->receiver->BytesSent(), false);
    EXPECT_THAT(
        table(),
        HasSubstr(R"(<tr class="tableViewCol"><td style="white-space: nowrap;"><input )"
                  R"(type="checkbox" id="select_check" name=")" +
                  uuid + R"(" style="vertical-align: middle;" /><a href="/admin/receiver/)" + uuid +
                  R"(">127.0.0.1</a></td><td><a href="/admin/stream/1/">/live</a></td>)"
                  "<td>joe</td><td>Player</td><td>1 mins 05 secs</td><td>" +
                  sent + "</td><td>" + DataSizeToString(visitor->receiver->GetBitrate(true), true) +
                  "</td></tr>"));
}

TEST_F(ListenerPages, TheHeadingsSort) {
    const auto visitor = listen("/live");
    EXPECT_THAT(table(),
                HasSubstr(R"(<tr class="tableViewHead"><td><input type="checkbox" )"
                          R"(id="master_select_check" name="" style="vertical-align: middle;" )"
                          R"_(onclick="toggleBox()" /><a href="?m=l&amp;s=h">Address</a></td>)_"
                          R"(<td><a href="?m=l&amp;s=m">Mount</a></td>)"
                          R"(<td><a href="?m=l&amp;s=u">User</a></td>)"
                          R"(<td><a href="?m=l&amp;s=ua">User-Agent</a></td>)"
                          R"(<td><a href="?m=l&amp;s=c">Connect Time</a></td>)"
                          R"(<td><a href="?m=l&amp;s=d">Data Sent</a></td>)"
                          R"(<td><a href="?m=l&amp;s=b">Bitrate</a></td></tr>)"));
}

TEST_F(ListenerPages, TheTableEndsInActionsAndTotals) {
    other.Disconnect();
    air.FeedAndDeliver();
    const auto first = listen("/live");
    const auto second = listen("/live");
    const std::uint64_t sent = first->receiver->BytesSent() + second->receiver->BytesSent();
    const std::uint64_t rate =
        first->receiver->GetBitrate(true) + second->receiver->GetBitrate(true);
    ASSERT_GT(sent, 0U);
    std::string buttons;
    for (const std::string action : {"Kick", "Ban", "Ban Net", "Ban User Agent", "VIP"})
        buttons += R"(<input type="submit" name="action" value=")" + action + R"(" />)";
    EXPECT_THAT(table(),
                HasSubstr(R"(<td colspan="4">)" + buttons + "</td><td><b>Totals:</b></td><td><b>" +
                          DataSizeToString(sent, false) + "</b></td><td><b>" +
                          DataSizeToString(rate, true) + "</b></td></tr></table></form>"));
}

TEST_F(ListenerPages, OnlyAnAdministratorsFormIsEnded) {
    const auto visitor = listen("/live");
    EXPECT_TRUE(table(ADMIN, 1).ends_with("</table></form>"));
    EXPECT_TRUE(table(MANAGER, 1).ends_with("</table>"));
}

TEST_F(ListenerPages, AManagerSeesTheListenersOfHisMountsOnly) {
    const auto mine = listen("/live");
    const auto foreign = listen("/other");
    EXPECT_THAT(table(MANAGER), HasSubstr(mine->receiver->GetUUID()));
    EXPECT_THAT(table(MANAGER), Not(HasSubstr(foreign->receiver->GetUUID())));
    EXPECT_THAT(table(MANAGER, 2), HasSubstr("no listeners connected"));
    EXPECT_THAT(table(ADMIN), HasSubstr(foreign->receiver->GetUUID()));
    EXPECT_THAT(table(ADMIN, 1), Not(HasSubstr(foreign->receiver->GetUUID())));
}

TEST_F(ListenerPages, TheFallbackThatIsPlayedStandsInBrackets) {
    OnAir silent("/silent", 3, {{"Backup", "/other"}});
    const auto visitor = listen("/silent");
    EXPECT_THAT(table(), HasSubstr(R"(<a href="/admin/stream/3/">/silent</a> (/other)</td>)"));
}

TEST_F(ListenerPages, WhatAListenerSendsIsNoMarkup) {
    const auto visitor = listen("/live", agent("\"><script>x</script>") + basic("<b>:x"));
    const std::string page = table();
    EXPECT_THAT(page, Not(HasSubstr("<script>")));
    EXPECT_THAT(page, HasSubstr("&quot;&gt;&lt;script&gt;x&lt;/script&gt;"));
    EXPECT_THAT(page, HasSubstr("<td>&lt;b&gt;</td>"));
}

TEST_F(ListenerPages, AgentsAndUsersAreShownAsUtf8AndAgentsAreCut) {
    const auto visitor = listen("/live", agent("\xE9" + std::string(80, 'a')) + basic("\xE9:x"));
    EXPECT_THAT(table(), HasSubstr("<td>\xC3\xA9</td><td>\xC3\xA9" + std::string(59, 'a') + "..."));
}

TEST_F(ListenerPages, OneWhoCameDuringThePassHasListenedForNoTime) {
    FormPost post(ADMIN);
    Clock::Advance(5);
    const auto visitor = listen("/live");
    EXPECT_THAT(post.panel.create_listener_stats(-1).str(), HasSubstr("<td>0 secs</td>"));
}

TEST_F(ListenerPages, OneConnectedMountIsNoPlaceToMoveTo) {
    const auto visitor = listen("/live");
    EXPECT_THAT(table(), HasSubstr(R"(<input type="submit" name="action" value="Move To:" />)"
                                   R"(<select name="destStationId"><option value="-1">)"
                                   R"(-- Select Mount --</option><option value="1">/live</option>)"
                                   R"(<option value="2">/other</option></select></td>)"));
    EXPECT_THAT(table(MANAGER), Not(HasSubstr("Move To:")));
    other.Disconnect();
    EXPECT_THAT(table(), Not(HasSubstr("Move To:")));
}

// ---- The order ----------------------------------------------------------------------------------

struct ListenerOrder : ListenerPages {
    // Ann on /other, then Bob on /live; each is before the other in some columns.
    ListenerOrder() {
        ann = listen("/other", agent("z") + basic("ann:x"));
        Clock::Advance(10);
        air.FeedAndDeliver();
        bob = listen("/live", agent("a") + basic("bob:x"));
    }

    static std::string order(const std::string& query, const std::string& session = {}) {
        const std::string page = table(ADMIN, -1, query, session);
        return page.find(">ann<") < page.find(">bob<") ? "ann, bob" : "bob, ann";
    }

    std::unique_ptr<Visitor> ann;
    std::unique_ptr<Visitor> bob;
};

TEST_F(ListenerOrder, EveryColumnSortsUpwards) {
    EXPECT_EQ(order("?s=u"), "ann, bob");
    EXPECT_EQ(order("?s=ua"), "bob, ann");
    EXPECT_EQ(order("?s=c"), "ann, bob");
    EXPECT_EQ(order("?s=d"), "ann, bob");
    EXPECT_EQ(order("?s=m"), "bob, ann");
}

TEST_F(ListenerOrder, AnUnknownKeySortsByMount) {
    EXPECT_EQ(order(""), "bob, ann");
    EXPECT_EQ(order("?s=zz"), "bob, ann");
}

TEST_F(ListenerOrder, TheSessionKeepsTheChoice) {
    FormPost first(ADMIN, {}, "/admin/listeners?s=u");
    first.panel.create_listener_stats(-1);
    const std::string session = "Cookie: __quill_sess=" + first.request->GetSessionUUID() + "\r\n";
    EXPECT_EQ(order("", session), "ann, bob");
    EXPECT_EQ(order("?s=zz", session), "bob, ann");
    EXPECT_EQ(
        FormPost(ADMIN, {}, "/", session).request->GetSessionVar("admin_listener_table_sort", ""),
        "zz");
    EXPECT_EQ(order("", session), "bob, ann");
    EXPECT_EQ(order(""), "bob, ann");
}

TEST_F(ListenerPages, TheChoiceOfAnOrderCountsWhileNobodyListens) {
    FormPost post(ADMIN, {}, "/admin/listeners?s=u");
    post.panel.create_listener_stats(-1);
    EXPECT_EQ(post.request->GetSessionVar("admin_listener_table_sort", ""), "u");
}

TEST_F(ListenerOrder, EqualRowsStayInTheOrderOfTheMounts) {
    EXPECT_EQ(order("?s=h"), "bob, ann"); // both from the same address
}

TEST_F(ListenerOrder, EachKeyIsComparedOnItsOwn) {
    ListenerRow less(air.mount, ann->receiver);
    less.hostname = less.user = less.user_agent = less.address = "B";
    less.connect_time = 1;
    less.bytes_sent = less.bitrate = 1;
    const auto more = [&less](auto field, auto value) {
        ListenerRow row = less;
        row.*field = value;
        return row;
    };
    const auto orders = [&less](auto before, const ListenerRow& row) {
        return before(less, row) && !before(row, less) && !before(less, less);
    };
    // As bytes: capital letters before small ones, and these before the bytes above ASCII.
    EXPECT_TRUE(orders(WebPanel::sort_hostname(), more(&ListenerRow::hostname, "a")));
    EXPECT_TRUE(orders(WebPanel::sort_user(), more(&ListenerRow::user, "\xC3\xA4")));
    EXPECT_TRUE(orders(WebPanel::sort_useragent(), more(&ListenerRow::user_agent, "Ba")));
    EXPECT_TRUE(orders(WebPanel::sort_mount(), more(&ListenerRow::address, "C")));
    EXPECT_TRUE(orders(WebPanel::sort_connecttime(), more(&ListenerRow::connect_time, 2)));
    EXPECT_TRUE(orders(WebPanel::sort_datasent(), more(&ListenerRow::bytes_sent, 10U)));
    EXPECT_TRUE(orders(WebPanel::sort_bitrate(), more(&ListenerRow::bitrate, 10U)));
}

TEST_F(ListenerOrder, ARowHoldsTheFiguresOfItsMoment) {
    const ListenerRow row(air.mount, bob->receiver);
    const std::uint64_t sent = bob->receiver->BytesSent();
    EXPECT_EQ(row.bytes_sent, sent);
    EXPECT_EQ(row.bitrate, bob->receiver->GetBitrate(false));
    EXPECT_EQ(row.recent_bitrate, bob->receiver->GetBitrate(true));
    air.FeedAndDeliver();
    bob->Slice();
    EXPECT_GT(bob->receiver->BytesSent(), sent);
    EXPECT_EQ(row.bytes_sent, sent);
}

// ---- One listener -------------------------------------------------------------------------------

TEST_F(ListenerPages, TheDetailsOfAListener) {
    air.FeedAndDeliver();
    const std::string head = "GET /live?a=<b> HTTP/1.0\r\nUser-Agent: P<l>\r\n" + basic("joe:x") +
                             "Cookie: k=<v>; j=w\r\n\r\n";
    Visitor visitor(head);
    visitor.Slice();
    Clock::Advance(3661);
    const Receiver& receiver = *visitor.receiver;
    EXPECT_EQ(details(visitor),
              R"(<table class="tableView"><tr>)" + row("UUID:", receiver.GetUUID()) +
                  row("Method:", "GET") +
                  row("Requested Resource:", R"(/live (<a href="/admin/stream/1/">/live</a>))") +
                  row("Query:", "?a=&lt;b&gt;") + row("Remote Address:", "127.0.0.1") +
                  row("User:", "joe") + row("User-Agent:", "P&lt;l&gt;") +
                  row("Bitrate:", DataSizeToString(receiver.GetBitrate(false), true)) +
                  row("Listening Time:", "1:01:01") +
                  row("Bytes Sent:", DataSizeToString(receiver.BytesSent(), false)) +
                  row("Cookies:", "j = w<br />k = &lt;v&gt;") +
                  row("Raw Request:",
                      "GET /live?a=&lt;b&gt; HTTP/1.0\r\n<br />User-Agent: P&lt;l&gt;\r\n<br />" +
                          basic("joe:x") + "<br />Cookie: k=&lt;v&gt;; j=w\r\n<br />\r\n<br />") +
                  "</table>");
}

TEST_F(ListenerPages, AHostNameIsFollowedByTheAddress) {
    const auto visitor = listen("/live");
    ReceiverProbe{*visitor->receiver}.SetHostname("<h>.example");
    EXPECT_THAT(details(*visitor), HasSubstr(row("Remote Address:", "&lt;h&gt;.example "
                                                                    "(127.0.0.1)")));
    EXPECT_THAT(table(), HasSubstr("\">&lt;h&gt;.example</a></td>"));
}

TEST_F(ListenerPages, AListenerOfAnotherMountIsNotKnown) {
    const auto foreign = listen("/other");
    const std::string unknown = "Receiver ID: " + foreign->receiver->GetUUID() + " does not exist.";
    EXPECT_EQ(details(*foreign, MANAGER), unknown);
    EXPECT_THAT(details(*foreign), HasSubstr(row("UUID:", foreign->receiver->GetUUID())));
}

TEST_F(ListenerPages, AnUnknownIdIsNamedAndIsNoMarkup) {
    EXPECT_EQ(FormPost(ADMIN).panel.create_receiver_stats("<i>").str(),
              "Receiver ID: &lt;i&gt; does not exist.");
    EXPECT_EQ(FormPost(ADMIN).panel.create_receiver_stats("").str(),
              "Receiver ID:  does not exist.");
}

} // namespace
