// The frame around every page: head, menus, bar and footer.

#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/MountList.h"
#include "web/Html.h"
#include "web/WebPanel.h"

#include <cstdint>

using html::anchor;
using html::div;
using html::element;
using html::item;
using html::list;
using html::Markup;
using html::raw;
using html::single;

namespace {

// The project's own site, where the directory and the community are.
const std::string OUTSIDE_SITE = "https://quillwave.example";

// Up to the head: the end tags stand in the footer.
const std::string DOCTYPE = "<!DOCTYPE html>\n"
                            "<html xmlns=\"http://www.w3.org/1999/xhtml\" lang=\"en\">";

// toggle(alertString, level) shows the alert box with a text, or hides it again.
const std::string ALERT_SCRIPT = R"(
function toggle(alertString, level) {
  var alertBox = document.getElementById("pageAlert");
  var inner = document.getElementById("innerAlert");
  var colours = ["#5F5", "yellow", "#F55"];
  alertBox.style.background = colours[level] || "yellow";
  if (alertBox.style.display == "block") {
    alertBox.style.display = "none";
  } else {
    alertBox.style.display = "block";
    inner.innerHTML = alertString;
  }
}
)";

Markup head_links() {
    return single("meta", {{"charset", "UTF-8"}}) +
           single("link", {{"rel", "shortcut icon"}, {"href", "/favicon.ico"}}) +
           single("link",
                  {{"rel", "stylesheet"}, {"type", "text/css"}, {"href", "/stylesheets/main.css"}});
}

Markup pictures() {
    return single(
               "img",
               {{"src", "/images/logo.png"}, {"width", "96"}, {"height", "87"}, {"alt", "Quill"}}) +
           single("img",
                  {{"src", "/images/quillwave.png"}, {"class", "ferncrossing"}, {"alt", "wave"}});
}

Markup alert_box() {
    const Markup close =
        element("a", {{"style", "float: right;"}, {"href", "javascript:toggle()"}}, "Close");
    return div({{"class", "pageAlert"}, {"id", "pageAlert"}, {"style", "display: none;"}},
               div({{"class", "innerAlert"}, {"id", "innerAlert"}}, close));
}

Markup page_title(const std::string& title) {
    return element("title", "Quillwave Multimedia Server" + (title.empty() ? "" : " - " + title));
}

// "<span>3</span> listeners": a live figure, with its word in the right number.
Markup counted(const std::string& id, std::uint64_t count, const std::string& word) {
    return element("span", {{"id", id}}, tostring(count) + " " + word + (count == 1 ? "" : "s"));
}

std::string build_year() { return tostring(BuildTime().tm_year + 1900); }

} // namespace

Markup WebPanel::get_page_header(const std::string& title) const {
    const Markup player = has_player() ? create_player_script() : Markup();
    const Markup head = page_title(title) + head_links() + player + html::script(ALERT_SCRIPT) +
                        raw("\n") + head_extra;
    return raw(DOCTYPE) + element("head", head) + raw("<body><div class=\"pageBackground\">") +
           div({{"class", "headerBar"}}, pictures() + site_menu()) + alert_box() + page_bar() +
           raw("<div id=\"displayArea\" style=\"overflow: auto;\">");
}

Markup WebPanel::get_page_footer() const {
    const Markup player = has_player() ? create_swf_player() : Markup();
    const Markup site_map = item({}, anchor("/admin", "Admin") + create_admin_menu()) +
                            item({}, anchor(OUTSIDE_SITE + "/?req=dir", "Directory")) +
                            item({}, anchor("/about", "About") + create_about_menu());
    const Markup terms =
        div({{"class", "footerTermsCW"}}, raw("Copyright &copy; ") + build_year() + " Quillwave");
    return player + raw("</div>") + div({{"class", "push"}}, {}) + raw("</div>") +
           div({{"class", "footerBar"}}, list({{"class", "footerSiteMap"}}, site_map) + terms) +
           raw("</body></html>");
}

bool WebPanel::has_player() const {
    return player_enabled && request && request->GetQuery("lp").empty();
}

Markup WebPanel::site_menu() const {
    struct Entry {
        std::string name;
        std::string address;
        Markup menu = {};
    };
    const Entry entries[] = {{"Home", "/"},
                             {"Admin", "/admin", create_admin_menu()},
                             {"Directory", OUTSIDE_SITE + "/?req=dir"},
                             {"About", "/about", create_about_menu()}};
    const std::string selected = selected_section();
    Markup items;
    for (const Entry& entry : entries) {
        html::Attributes attributes = {{"class", "siteMenuItem"}};
        if (entry.name == selected) attributes.push_back({"id", "siteMenuItemSelected"});
        items += item(attributes, anchor(entry.address, entry.name) + entry.menu);
    }
    return list({{"class", "siteMenu"}}, items);
}

std::string WebPanel::selected_section() const {
    const std::string path = request ? request->Path() : "";
    if (path.starts_with("/admin")) return "Admin";
    return path.starts_with("/about") ? "About" : "Home";
}

Markup WebPanel::page_bar() const {
    const std::string name = request ? request->User() : "";
    const Markup welcome = name.empty() ? Markup() : "Welcome " + Markup(name) + raw("! &nbsp;");
    return div({{"class", "pageBar"}},
               welcome + "Currently there is " +
                   counted("activeSources", MountList::TotalActiveMounts(), "active source") +
                   " with " + counted("totalNodes", MountList::TotalReceivers(), "listener") + "!");
}

// For administrators only.
Markup WebPanel::create_admin_menu() const {
    if (!is_admin()) return {};
    return list({}, item({}, anchor("/admin/users", "Users")) +
                        item({}, anchor("/admin/log", "Event Log")));
}

Markup WebPanel::create_about_menu() const {
    return list({}, item({}, anchor(OUTSIDE_SITE + "/?req=get", "Broadcast")) +
                        item({}, anchor(OUTSIDE_SITE + "/?req=community", "Community")));
}
