#pragma once

#include <memory>
#include <string>

class Request;
class Response;

// The web site of the server, as one request meets it: public pages, feeds and the administration.
// Made by a Receiver for every request, and used by its worker only.
class WebPanel {
public:
    static constexpr int ANSWERED = 0;
    static constexpr int NOT_A_PAGE = 1;
    static constexpr int IN_PROGRESS = 2; // to be called again with every slice

    explicit WebPanel(std::shared_ptr<Request> request);

    int ProcessRequest();
    // The answer last made. It may still have bytes to send, which the Receiver sees to.
    std::shared_ptr<Response> GetResponse() const { return response; }

    // A whole page about a refusal, not sent. An empty title or message is replaced by the status
    // text of `code`, which then has to be a code of Response::respMsg: std::out_of_range if not.
    std::string BuildErrorPage(int code, const std::string& title, const std::string& message);

private:
    std::string get_page_header(const std::string& title);
    std::string get_page_footer();
    std::string create_mb(const std::string& body, const std::string& title);

    std::shared_ptr<Request> request;
    std::shared_ptr<Response> response;
};
