#include "web/WebPanel.h"

#include "core/OSTools.h"
#include "streaming/MountList.h"
#include "support/OnAir.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

bool holds(const std::string& page, const std::string& text) {
    return page.find(text) != std::string::npos;
}

std::string error_page(const std::shared_ptr<Request>& request = nullptr) {
    return WebPanel(request).BuildErrorPage(404, "Title", "Words");
}

std::shared_ptr<Request> request_of(LoopbackPair& pair, const std::string& head) {
    pair.Send(head);
    auto request = std::make_shared<Request>(pair.server);
    comes_true([&] { return request->ReadRequest() > 0; });
    return request;
}

TEST(WebPanel, WithoutARequestThereIsNoPage) {
    EXPECT_EQ(WebPanel(nullptr).ProcessRequest(), WebPanel::NOT_A_PAGE);
}

TEST(ErrorPage, TheTitleStandsInTheHeadAndOverTheWords) {
    const std::string page = error_page();
    EXPECT_TRUE(holds(page, "<title>Quillwave Multimedia Server - Title</title>"));
    EXPECT_TRUE(holds(page, "<div class=\"messageBox\"><h2 style=\"border-bottom: solid 1px "
                            "#202066;\">Title</h2><div class=\"valueDisplay\">Words</div></div>"));
}

TEST(ErrorPage, MarkupGetsAPlainBox) {
    EXPECT_TRUE(holds(WebPanel(nullptr).BuildErrorPage(404, "Title", html::raw("<p>Words</p>")),
                      "<div class=\"messageBox\"><h2>Title</h2><p>Words</p></div>"));
}

TEST(ErrorPage, TitlesAreEncoded) {
    const std::string page = WebPanel(nullptr).BuildErrorPage(404, "<b>", "Words");
    EXPECT_TRUE(holds(page, "- &lt;b&gt;</title>"));
    EXPECT_FALSE(holds(page, "<b>"));
}

TEST(ErrorPage, WhatIsEmptyIsTheCodesOwnText) {
    const std::string page = WebPanel(nullptr).BuildErrorPage(507, "", "");
    EXPECT_TRUE(holds(page, "- Insufficient Storage</title>"));
    EXPECT_TRUE(holds(page, "<div class=\"valueDisplay\">Insufficient Storage</div>"));
}

TEST(ErrorPage, ACodeWithoutATextIsOutOfRange) {
    EXPECT_THROW(WebPanel(nullptr).BuildErrorPage(299, "", "Words"), std::out_of_range);
}

TEST(ErrorPage, ThePartsOfTheFrameStandInTheirOrder) {
    const std::string page = error_page();
    std::size_t position = 0;
    for (const char* part : {"<!DOCTYPE html>",
                             "<html xmlns=\"http://www.w3.org/1999/xhtml\" lang=\"en\">",
                             "<head>",
                             "charset=\"UTF-8\"",
                             "/favicon.ico",
                             "/stylesheets/main.css",
                             "function toggle(alertString, level)",
                             "\n</head><body>",
                             "<div class=\"pageBackground\">",
                             "<div class=\"headerBar\">",
                             "/images/logo.png",
                             "/images/quillwave.png",
                             "class=\"siteMenu\"",
                             "id=\"pageAlert\"",
                             "id=\"innerAlert\"",
                             "class=\"pageBar\"",
                             "id=\"displayArea\"",
                             "class=\"messageBox\"",
                             "class=\"push\"",
                             "class=\"footerBar\"",
                             "class=\"footerSiteMap\"",
                             "class=\"footerTermsCW\"",
                             "</html>"}) {
        const std::size_t found = page.find(part, position);
        ASSERT_NE(found, std::string::npos) << part;
        position = found;
    }
}

TEST(ErrorPage, EveryTagThatOpensCloses) {
    const std::string page = error_page();
    for (const char* name : {"div", "ul", "li", "a", "span", "h2", "body", "html"}) {
        const auto count = [&page](const std::string& text) {
            int hits = 0;
            for (std::size_t at = page.find(text); at != std::string::npos;
                 at = page.find(text, at + 1))
                ++hits;
            return hits;
        };
        const std::string tag = name;
        EXPECT_EQ(count("<" + tag + " ") + count("<" + tag + ">"), count("</" + tag + ">")) << tag;
    }
}

TEST(ErrorPage, TheBarCountsSourcesAndListeners) {
    EXPECT_TRUE(holds(error_page(), "Currently there is <span id=\"activeSources\">0 active sources"
                                    "</span> with <span id=\"totalNodes\">0 listeners</span>!"));
    MountList::IncTotalActiveMounts(1);
    MountList::IncTotalReceivers(1);
    EXPECT_TRUE(holds(error_page(), "Currently there is <span id=\"activeSources\">1 active source"
                                    "</span> with <span id=\"totalNodes\">1 listener</span>!"));
}

TEST(ErrorPage, TheSectionOfThePathIsSelected) {
    const auto selects = [](const std::string& path, const std::string& name) {
        LoopbackPair pair;
        const std::string page = error_page(request_of(pair, "GET " + path + " HTTP/1.0\r\n\r\n"));
        const std::size_t mark = page.find("siteMenuItemSelected");
        return page.substr(mark, page.find("</a>", mark) - mark).ends_with(">" + name);
    };
    EXPECT_TRUE(selects("/nothing", "Home"));
    EXPECT_TRUE(selects("/admin/x", "Admin"));
    EXPECT_TRUE(selects("/about", "About"));
}

TEST(ErrorPage, WhoHasLoggedInIsWelcomed) {
    LoopbackPair pair;
    make_account("<root>", "secret", User::ADMINISTRATOR);
    const std::string page =
        error_page(request_of(pair, "GET / HTTP/1.0\r\n" + basic("<root>:secret") + "\r\n"));
    EXPECT_TRUE(holds(page, "Welcome &lt;root&gt;! &nbsp;Currently"));
    EXPECT_TRUE(holds(page, "<a href=\"/admin/users\">Users</a>"));
    EXPECT_FALSE(holds(error_page(), "Welcome"));
    EXPECT_FALSE(holds(error_page(), "/admin/users"));
}

} // namespace
