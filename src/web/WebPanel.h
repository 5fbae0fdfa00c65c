#pragma once

#include "web/FormFields.h"
#include "web/Html.h"

#include <atomic>
#include <ctime>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

class Mount;
class Request;
class Response;
class User;

// The web site of the server, as one request meets it: which page it is, who may see it, and the
// page itself. Made by a Receiver for a request, and used by one worker at a time. Nothing here
// waits; a page works on copies of what it shows, taken under the locks of those it asks.
class WebPanel {
public:
    static constexpr int ANSWERED = 0;
    static constexpr int NOT_A_PAGE = 1;
    static constexpr int IN_PROGRESS = 2; // to be called again, see HasNews

    using FieldType = ::FieldType;
    using FormFieldDescription = ::FormFieldDescription;
    using ComboFieldDescription = ::ComboFieldDescription;
    // A label and where it leads; an empty address marks the tab that is shown.
    using Tabs = std::vector<std::pair<std::string, std::string>>;

    // An empty request is allowed: it is no page.
    explicit WebPanel(std::shared_ptr<Request> request_to_answer);
    ~WebPanel();
    WebPanel(const WebPanel&) = delete;
    WebPanel& operator=(const WebPanel&) = delete;

    void SetRequest(const std::shared_ptr<Request>& request_to_answer);

    // ---- Routing (WebPanel.cpp, WebPanelAdmin.cpp) ----
    int ProcessRequest();
    // Of an answer in progress: whether ProcessRequest may have something to do. Cheap; any thread,
    // as long as no other is inside ProcessRequest.
    bool HasNews() const;
    // The answer last made, or null. It may still have bytes to send; the Receiver sees to that.
    std::shared_ptr<Response> GetResponse() const { return response; }

    // A whole page about a refusal, not sent. An empty title or message is replaced by the reason
    // text of `code`; throws std::out_of_range for a code that has none.
    std::string BuildErrorPage(int code, const std::string& title, const html::Markup& message);

    // ---- Answers (WebPanelAnswers.cpp) ----
    void page_wrap(const html::Markup& content, const std::string& title, unsigned int status);
    void send_final(const std::string& body, const std::string& content_type, unsigned int status,
                    bool cors);
    void send_redirect(const std::string& location);
    void send_authentication_request();
    void send_log_page();

    // ---- The frame and its pieces (WebPanelFrame.cpp, WebPanelPieces.cpp) ----
    html::Markup get_page_header(const std::string& title) const;
    html::Markup get_page_footer() const;
    html::Markup create_admin_menu() const;
    html::Markup create_about_menu() const;
    // A titled box around markup, or around plain words, which get a frame of their own.
    static html::Markup create_mb(const html::Markup& body, const std::string& title);
    static html::Markup create_tab(const Tabs& tabs, const html::Markup& content);
    // These two add a script to the head of the page.
    html::Markup create_master_check(const std::string& id, const std::string& target_id);
    html::Markup create_action_query(const std::string& element_id, const std::string& label,
                                     const html::Markup& markup);
    void create_form_inserter();

    // ---- Public pages (WebPanelPublic.cpp, WebPanelPlayer.cpp) ----
    html::Markup create_player_script() const;
    html::Markup create_swf_player() const;

    // ---- Status feeds (WebPanelFeeds.cpp) ----
    // With a mount, that one alone, with its songs and listeners.
    void send_json_stats(const std::shared_ptr<Mount>& only = nullptr);
    void send_xml_stats(const std::shared_ptr<Mount>& only = nullptr);
    void send_comma_delimited_stats();
    // Whether what a long poll watches has changed since its first pass, which never reports it.
    bool stats_changed();

    // ---- Stream pages (WebPanelStreams.cpp) ----
    html::Markup create_overall_stats();
    html::Markup create_mount_stats(int id, bool admin);
    html::Markup create_mount_last_played(int id);
    html::Markup create_publication_list(int id);

    // ---- Listener pages (WebPanelListeners.cpp). An id of -1: all mounts of the user ----
    html::Markup create_listener_stats(int id);
    html::Markup create_receiver_stats(const std::string& uuid);

    // ---- Settings (WebPanelSettings.cpp). An id of -1: the defaults ----
    html::Markup create_root_config();
    html::Markup create_mount_config(int id);

    // ---- Accounts (WebPanelUsers.cpp). An id of -1: all streams ----
    html::Markup create_user_list(int id);
    html::Markup create_user_form(const std::shared_ptr<User>& target, int id);
    html::Markup create_property_list(const std::shared_ptr<User>& target, int id);
    html::Markup create_property_form(const std::shared_ptr<User>& target, int id);

    // Among the mounts that the user may manage; null when it is none of them.
    std::shared_ptr<Mount> get_mount_by_address(const std::string& address) const;
    std::shared_ptr<Mount> get_mount_by_id(int id) const;

private:
    html::Markup site_menu() const;
    std::string selected_section() const;
    html::Markup page_bar() const;
    bool has_player() const;
    bool is_admin() const;

    bool player_enabled = false; // the page carries the player
    std::shared_ptr<Request> request;
    std::shared_ptr<Response> response;
    time_t panel_time = 0;                            // of this pass
    html::Markup head_extra;                          // what the content wants in the page's head
    std::shared_ptr<User> user;                       // who asks; never null
    std::vector<std::shared_ptr<Mount>> panel_mounts; // that the user may manage

    // A long poll: what it watches, and how that looked at the first pass.
    std::vector<std::shared_ptr<Mount>> watch_mounts;
    std::shared_ptr<Mount> watch_mount;
    std::string watch_snapshot;

    int log_receiver_id = -1; // of the log tail
};
