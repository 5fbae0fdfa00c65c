#pragma once

#include "core/OSTools.h"
#include "support/OnAir.h"
#include "web/WebPanel.h"

#include <map>
#include <memory>
#include <string>

// A posted form of a user with a login, "name:password", and the panel that it is for. A form
// without fields is posted all the same.
class FormPost {
public:
    using Fields = std::map<std::string, std::string>;

    explicit FormPost(const std::string& login, const Fields& fields = {},
                      const std::string& target = "/admin", const std::string& headers = {})
        : request(read_request(pair, "POST " + target + " HTTP/1.0\r\n" + basic(login) + headers,
                               encoded(fields))),
          panel(request) {}

    LoopbackPair pair;
    std::shared_ptr<Request> request;
    WebPanel panel;

private:
    static std::string encoded(const Fields& fields) {
        std::string body;
        for (const auto& [name, value] : fields)
            body +=
                (body.empty() ? "" : "&") + UrlEncode(name, false) + "=" + UrlEncode(value, false);
        return body;
    }
    static std::shared_ptr<Request> read_request(const LoopbackPair& pair, const std::string& head,
                                                 const std::string& body) {
        pair.Send(head + "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                  std::to_string(body.size()) + "\r\n\r\n" + body);
        auto request = std::make_shared<Request>(pair.server);
        comes_true([&] {
            request->ReadRequest();
            return request->Complete() && request->FormComplete();
        });
        return request;
    }
};
