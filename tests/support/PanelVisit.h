#pragma once

#include "support/OnAir.h"
#include "web/WebPanel.h"

#include <memory>
#include <string>

// A request to the panel, and what its client hears. The request is read before the panel looks at
// it, as a Receiver does.
class PanelVisit {
public:
    explicit PanelVisit(const std::string& path, const std::string& fields = {},
                        const std::string& method = "GET")
        : request(read_request(pair, method + " " + path + " HTTP/1.0\r\n" + fields + "\r\n")),
          panel(request) {}

    LoopbackPair pair;
    std::shared_ptr<Request> request;
    WebPanel panel;

    int Pass() { return panel.ProcessRequest(); }
    // What has arrived by now; a loopback pair hands over at once what the server has sent.
    std::string Hear() const { return pair.ReceiveWaiting(); }
    // One pass, and what it sent.
    std::string Ask() {
        Pass();
        return Hear();
    }
    // The line behind the version of an answer in one pass, such as "200 OK".
    std::string Status() {
        const std::string answer = Ask();
        return answer.substr(std::min<std::size_t>(answer.size(), 9), answer.find("\r\n") - 9);
    }

private:
    static std::shared_ptr<Request> read_request(const LoopbackPair& pair,
                                                 const std::string& head) {
        pair.Send(head);
        auto request = std::make_shared<Request>(pair.server);
        comes_true([&] { return request->ReadRequest() > 0 && request->Complete(); });
        return request;
    }
};

inline bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// How often `part` stands in the text.
inline int count_of(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// What stands between two marks; empty when one is missing.
inline std::string between(const std::string& text, const std::string& first,
                           const std::string& last) {
    const std::size_t start = text.find(first);
    if (start == std::string::npos) return {};
    const std::size_t end = text.find(last, start + first.size());
    if (end == std::string::npos) return {};
    return text.substr(start + first.size(), end - start - first.size());
}
