// The frame around every page: head, menus, bar and footer.

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "streaming/MountList.h"
#include "web/Html.h"
#include "web/WebPanel.h"

#include <cstdint>

using html::div;
using html::element;
using html::item;
using html::list;

namespace {

// The project's own site, where the directory and the community are.
const std::string OUTSIDE_SITE = "https://quillwave.example";

const std::string DOCTYPE = "<!DOCTYPE html>\n"
                            "<html xmlns=\"http://www.w3.org/1999/xhtml\">";

const std::string HEAD_LINKS = "<meta charset=\"UTF-8\" />"
                               "<link rel=\"shortcut icon\" href=\"/favicon.ico\" />"
                               "<link rel=\"stylesheet\" type=\"text/css\" "
                               "href=\"/stylesheets/main.css\" />";

// toggle(alertString, level) shows the alert box with a text, or hides it again.
const std::string ALERT_SCRIPT = R"(<script type="text/javascript">
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
</script>)";

const std::string ALERT_BOX =
    R"(<div class="pageAlert" id="pageAlert" style="display: none;">)"
    R"(<div class="innerAlert" id="innerAlert">)"
    R"html(<a style="float: right;" href="javascript:toggle()">Close</a></div></div>)html";

const std::string PICTURES =
    R"(<img src="/images/logo.png" width="96" height="87" alt="Quill" />)"
    R"(<img src="/images/quillwave.png" class="ferncrossing" alt="wave" />)";

std::string page_title(const std::string& title) {
    const std::string words = "Quillwave Multimedia Server" + (title.empty() ? "" : " - " + title);
    return element("title", "", html_encode(words));
}

// "a <span>3</span> listeners": a live figure, with its word in the right number.
std::string counted(const std::string& id, std::uint64_t count, const std::string& word) {
    return element("span", "id=\"" + id + "\"", tostring(count)) + " " + word +
           (count == 1 ? "" : "s");
}

std::string build_year() { return tostring(BuildTime().tm_year + 1900); }

} // namespace

std::string WebPanel::get_page_header(const std::string& title) const {
    const std::string head = page_title(title) + HEAD_LINKS + ALERT_SCRIPT + "\n";
    return DOCTYPE + element("head", "", head) + "<body><div class=\"pageBackground\">" +
           div(R"(class="headerBar")", PICTURES + site_menu()) + ALERT_BOX + page_bar() +
           "<div id=\"displayArea\" style=\"overflow: auto;\">";
}

std::string WebPanel::get_page_footer() const {
    const std::string site_map = item("", html::link("/admin", "Admin") + create_admin_menu()) +
                                 item("", html::link(OUTSIDE_SITE + "/?req=dir", "Directory")) +
                                 item("", html::link("/about", "About") + create_about_menu());
    const std::string terms =
        div(R"(class="footerTermsCW")", "Copyright &copy; " + build_year() + " Quillwave");
    return "</div><div class=\"push\"></div></div>" +
           div(R"(class="footerBar")", list(R"(class="footerSiteMap")", site_map) + terms) +
           "</body></html>";
}

std::string WebPanel::site_menu() const {
    struct Entry {
        std::string name;
        std::string address;
        std::string menu = {};
    };
    const Entry entries[] = {{"Home", "/"},
                             {"Admin", "/admin", create_admin_menu()},
                             {"Directory", OUTSIDE_SITE + "/?req=dir"},
                             {"About", "/about", create_about_menu()}};
    const std::string selected = selected_section();
    std::string items;
    for (const Entry& entry : entries) {
        const std::string mark = entry.name == selected ? R"( id="siteMenuItemSelected")" : "";
        items += item(R"(class="siteMenuItem")" + mark,
                      html::link(entry.address, entry.name) + entry.menu);
    }
    return list(R"(class="siteMenu")", items);
}

std::string WebPanel::selected_section() const {
    const std::string path = request ? request->Path() : "";
    if (path.starts_with("/admin")) return "Admin";
    return path.starts_with("/about") ? "About" : "Home";
}

std::string WebPanel::page_bar() const {
    const std::string name = request ? request->User() : "";
    const std::string welcome = name.empty() ? "" : "Welcome " + html_encode(name) + "! &nbsp;";
    return div(R"(class="pageBar")",
               welcome + "Currently there is " +
                   counted("activeSources", MountList::TotalActiveMounts(), "active source") +
                   " with " + counted("totalNodes", MountList::TotalReceivers(), "listener") + "!");
}

// For administrators only.
std::string WebPanel::create_admin_menu() const {
    if (!request || UserList::Get(request)->GetGroup() != User::ADMINISTRATOR) return {};
    return list("", item("", html::link("/admin/users", "Users")) +
                        item("", html::link("/admin/log", "Event Log")));
}

std::string WebPanel::create_about_menu() const {
    return list("", item("", html::link(OUTSIDE_SITE + "/?req=get", "Broadcast")) +
                        item("", html::link(OUTSIDE_SITE + "/?req=community", "Community")));
}

// A titled box around markup, or around plain words, which get a frame of their own.
std::string WebPanel::create_mb(const std::string& markup, const std::string& title) const {
    const std::string heading = html_encode(title);
    if (markup.starts_with("<"))
        return div(R"(class="messageBox")", element("h2", "", heading) + markup);
    return div(R"(class="messageBox")",
               element("h2", R"(style="border-bottom: solid 1px #202066;")", heading) +
                   div(R"(class="valueDisplay")", markup));
}
