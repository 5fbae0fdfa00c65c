#pragma once

#include <cstddef>
#include <string>

// An address taken apart: [protocol://][user[:pass]@]host[:port][/path][?query]. A plain value.
// No text makes it throw: what cannot be read leaves it invalid.
class url {
public:
    url() = default;
    explicit url(const std::string& text);

    // Fields that the text does not have keep what they held, but the port, which is 80 then.
    void parse(const std::string& text);

    std::string Protocol() const { return protocol; }
    std::string User() const { return user; }
    std::string Pass() const { return pass; }
    std::string Host() const { return host; }
    // Decoded, and at least "/".
    std::string Path() const { return path; }
    // What follows the "?", not decoded.
    std::string Query() const { return query; }
    unsigned short Port() const { return port; }

    void SetLogin(std::string with_user, std::string with_pass);
    void DropQuery() { query.clear(); }

    bool IsValid() const { return !host.empty() && port != 0; }
    // True when no character but the first, which is free, is out of place in a name.
    static bool valid_hostname(const char* name);
    std::string to_string() const;

private:
    static constexpr unsigned short DEFAULT_PORT = 80;

    void read_userinfo(const std::string& text);
    void read_address(const std::string& text);
    bool read_authority(const std::string& text, std::size_t slash);
    void set_host(std::string name);
    void read_target(const std::string& target);

    std::string protocol;
    std::string user;
    std::string pass;
    std::string host;
    std::string path = "/";
    std::string query;
    unsigned short port = DEFAULT_PORT;
};
