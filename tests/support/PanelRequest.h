#pragma once

#include "core/OSTools.h"
#include "http/Request.h"
#include "support/LoopbackPair.h"
#include "support/OnAir.h"
#include "web/WebPanel.h"

#include <map>
#include <memory>
#include <string>

// Somebody who asks for a page of the panel, or posts a form to it.
class PanelRequest {
public:
    using Form = std::map<std::string, std::string>;

    // `login` is "name:password", or empty for nobody. With a form it is a POST.
    explicit PanelRequest(const std::string& target, const std::string& login = {},
                          const Form& form = {}) {
        const std::string body = encoded(form);
        pair.Send((form.empty() ? "GET " : "POST ") + target + " HTTP/1.0\r\n" +
                  (login.empty() ? "" : basic(login)) +
                  "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                  std::to_string(body.size()) + "\r\n\r\n" + body);
        comes_true([&] {
            request->ReadRequest();
            return request->Complete() && request->FormComplete();
        });
    }

    LoopbackPair pair;
    const std::shared_ptr<Request> request = std::make_shared<Request>(pair.server);

private:
    static std::string encoded(const Form& form) {
        std::string body;
        for (const auto& [name, value] : form)
            body +=
                (body.empty() ? "" : "&") + UrlEncode(name, false) + "=" + UrlEncode(value, false);
        return body;
    }
};
