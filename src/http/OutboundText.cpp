#include "http/OutboundText.h"

#include "core/OSTools.h"

#include <cmath>

namespace {

constexpr unsigned short DEFAULT_PORT = 80;
constexpr const char* LINE_END = "\r\n";

std::string line(const std::string& name, const std::string& value) {
    return name + ": " + value + LINE_END;
}

// A decoded path goes out as it is, but for the bytes that would break the line.
std::string for_request_line(const std::string& text) {
    std::string safe;
    for (const char byte : text)
        if (byte > 0x20 && byte < 0x7F)
            safe += byte;
        else
            safe += "%" + charToHex(byte);
    return safe;
}

// "1.0": with one decimal, whatever the locale says.
std::string one_decimal(float version) {
    const long tenths = std::lround(static_cast<double>(version) * 10);
    return tostring(tenths / 10) + "." + tostring(tenths % 10);
}

std::string authorization(const url& target) {
    const std::string login = target.User() + ":" + target.Pass();
    return line("Authorization", "Basic " + Base64Encode(login.data(), login.size()));
}

} // namespace

std::string OutboundText::Wire() const {
    std::string text = method + " " + for_request_line(target.Path());
    if (!target.Query().empty()) text += "?" + for_request_line(target.Query());
    text += " " + protocol;
    if (protocol != "ICY") text += "/" + one_decimal(version);
    text += LINE_END;
    const std::string port = tostring(target.Port());
    text += line("Host", target.Host() + (target.Port() == DEFAULT_PORT ? "" : ":" + port));
    if (!form.empty()) {
        text += line("Content-Length", tostring(form.size()));
        text += line("Content-Type", "application/x-www-form-urlencoded");
    }
    for (const auto& [name, value] : fields)
        text += line(name, value);
    if (!target.User().empty() || !target.Pass().empty()) text += authorization(target);
    return text + LINE_END + form;
}
