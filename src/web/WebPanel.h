#pragma once

#include <memory>
#include <string>

class Request;
class Response;

// The web site of the server, as one request meets it.
// Made by a Receiver for a request, and used by its worker only.
class WebPanel {
public:
    static constexpr int ANSWERED = 0;
    static constexpr int NOT_A_PAGE = 1;
    static constexpr int IN_PROGRESS = 2; // to be called again with every slice

    // An empty request is allowed.
    explicit WebPanel(std::shared_ptr<Request> request_to_answer);

    int ProcessRequest();
    // The answer last made, or null. It may still have bytes to send; the Receiver sees to that.
    std::shared_ptr<Response> GetResponse() const { return response; }

    // A whole page about a refusal, not sent. An empty title or message is replaced by the reason
    // text of `code`; throws std::out_of_range for a code that has none.
    std::string BuildErrorPage(int code, const std::string& title, const std::string& message);

private:
    // WebPanelFrame.cpp: the page around every content.
    std::string get_page_header(const std::string& title) const;
    std::string get_page_footer() const;
    std::string site_menu() const;
    std::string selected_section() const;
    std::string page_bar() const;
    std::string create_admin_menu() const;
    std::string create_about_menu() const;
    std::string create_mb(const std::string& markup, const std::string& title) const;

    std::shared_ptr<Request> request;
    std::shared_ptr<Response> response;
};
