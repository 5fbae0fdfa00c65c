#pragma once

#include "web/FormFields.h"
#include "web/Html.h"
#include "web/ListenerRow.h"

#include <atomic>
#include <ctime>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class Mount;
class Request;
class Response;
class User;
struct FeedDocument;
struct SettingsForm;

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
    explicit WebPanel(const std::shared_ptr<Request>& request_to_answer);
    ~WebPanel();
    WebPanel(const WebPanel&) = delete;
    WebPanel& operator=(const WebPanel&) = delete;

    void SetRequest(const std::shared_ptr<Request>& request_to_answer);

    // ---- Routing (WebPanel.cpp, WebPanelAdmin.cpp) ----
    int ProcessRequest();
    // Of an answer in progress: whether ProcessRequest may have something to do. Cheap; any thread,
    // as long as no other is inside ProcessRequest.
    bool HasNews() const;
    // A number that changes whenever HasNews may become true; null when that may be at any time.
    using NewsNumber = std::uint64_t (*)();
    NewsNumber GetNewsNumber() const;
    // Whether the panel keeps the path for itself, so that a mount there is never reached.
    static bool Shadows(const std::string& path);
    // The answer last made, or null. It may still have bytes to send; the Receiver sees to that.
    std::shared_ptr<Response> GetResponse() const { return response; }

    // A whole page about a refusal, not sent. An empty title or message is replaced by the reason
    // text of `code`; throws std::out_of_range for a code that has none.
    std::string BuildErrorPage(int code, const std::string& title, const html::Markup& message);

    // ---- Answers (WebPanelAnswers.cpp) ----
    // A whole page; nothing after a redirect of the same pass, nor behind an answer that is stuck.
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

    // ---- Stream pages (WebPanelStreams.cpp, WebPanelMountStats.cpp, WebPanelSongHistory.cpp,
    // WebPanelPublications.cpp). With `admin`, for who manages the stream ----
    html::Markup create_overall_stats();
    html::Markup create_mount_stats(int id, bool admin);
    html::Markup create_mount_last_played(int id);
    html::Markup create_publication_list(int id);

    // ---- Listener pages (WebPanelListeners.cpp, WebPanelListenerActions.cpp,
    // WebPanelReceiver.cpp). An id of -1: all mounts of the user ----
    using sort_hostname = sort_listener_by<&ListenerRow::hostname>;
    using sort_user = sort_listener_by<&ListenerRow::user>;
    using sort_useragent = sort_listener_by<&ListenerRow::user_agent>;
    using sort_connecttime = sort_listener_by<&ListenerRow::connect_time>;
    using sort_datasent = sort_listener_by<&ListenerRow::bytes_sent>;
    using sort_bitrate = sort_listener_by<&ListenerRow::bitrate>;
    using sort_mount = sort_listener_by<&ListenerRow::address>;

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
    // ---- Routes. A handler answers, or leaves the path to the next route (GO_ON) ----
    static constexpr int GO_ON = -1;
    enum class Match { IS, STARTS_WITH };
    enum class Access { ANYONE, ADMINISTRATORS };
    struct Route {
        Match match;
        std::string_view path;
        int (WebPanel::*answer)();
        Access access = Access::ANYONE;
    };
    static const Route ROUTES[];
    static const Route ADMIN_STEPS[];
    int answer_by(std::span<const Route> routes);
    static bool matches(const Route& route, std::string_view path);

    // Public routes (WebPanel.cpp, WebPanelStreamRoutes.cpp).
    int show_home_unless_mount();
    int show_view();
    int show_tunein();
    bool waits_for_change();
    std::shared_ptr<Mount> mount_to_watch() const; // WebPanelPolls.cpp
    int show_xml_feed();
    int show_json_feed();
    int show_comma_feed();
    FeedDocument feed_document(const std::shared_ptr<Mount>& only) const; // WebPanelFeeds.cpp
    // Public pages and assets (WebPanelPublic.cpp).
    int send_robots();
    int send_crossdomain();
    int send_home_page();
    int send_about_page();
    int send_tunein(); // the playlist of query `mnt`
    int send_asset();  // the embedded file of this path, be it picture, movie or style sheet

    // The steps of /admin (WebPanelAdmin.cpp, WebPanelTitles.cpp, WebPanelLog.cpp).
    int show_admin();
    int take_title_from_source();
    int ask_for_login();
    int take_title_from_manager();
    int show_log();
    int tail_log();
    int continue_log_tail();
    int send_log_lines();
    int show_admin_xml();
    int show_admin_json();
    int show_receiver();
    int show_users();
    int show_stream();
    int show_only_stream();
    int refuse_manager_of_few();
    int show_listeners();
    int show_settings();
    int show_defaults();
    int show_overview();
    int show_missing_page();
    int page_of_panel(const html::Markup& content);
    int not_found(const std::string& heading, const html::Markup& words);

    // Stream pages (WebPanelStreamRoutes.cpp).
    struct StreamAddress;
    struct StreamPage;
    static const StreamPage STREAM_PAGES[];
    StreamAddress stream_asked_for() const;
    int show_stream_page(int id, const std::string& page);
    int show_public_stream(int id, bool played);
    bool may_view(int id) const;

    bool is_still_answering() const;

    // The table of streams (WebPanelStreams.cpp).
    bool manages_streams() const;
    html::Markup public_streams();
    html::Markup managed_streams();
    html::Markup list_actions();

    html::Markup site_menu() const;
    std::string selected_section() const;
    html::Markup page_bar() const;
    bool has_player() const;
    bool is_admin() const;
    void act_on_listeners(int id);
    ListenerRows shown_listeners(int id) const;
    std::string listener_sort_key() const;
    html::Markup listener_form(const html::Markup& rows) const;
    html::Markup settings_page(const SettingsForm& form);

    bool player_enabled = false; // the page carries the player
    std::shared_ptr<Request> request;
    std::shared_ptr<Response> response;
    time_t panel_time = 0;                            // of this pass
    html::Markup head_extra;                          // what the content wants in the page's head
    std::shared_ptr<User> user;                       // who asks; never null
    std::vector<std::shared_ptr<Mount>> panel_mounts; // that the user may manage

    // A long poll: what it watches, and how that looked at the first pass.
    std::shared_ptr<Mount> watch_mount; // null: all that are shown
    std::string watch_snapshot;

    int log_receiver_id = -1; // of the log tail
    bool redirected = false;  // in this pass: a page would be taken for the next answer
};
