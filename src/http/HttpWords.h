#pragma once

// The words of a first line, by number. Request::MethodString and the listener log go by these.
class HttpWords {
public:
    enum RequestProtocol : int {
        PROTOCOL_UNKNOWN = 0,
        PROTOCOL_ICY = 1,
        PROTOCOL_HTTP = 2,
        PROTOCOL_ICE = 3,
    };
    enum RequestMethod : int {
        METHOD_UNKNOWN = 0,
        METHOD_OPTIONS = 1,
        METHOD_GET = 2,
        METHOD_HEAD = 3,
        METHOD_POST = 4,
        METHOD_PUT = 5,
        METHOD_DELETE = 6,
        METHOD_TRACE = 7,
        METHOD_CONNECT = 8,
        METHOD_SOURCE = 9,
        METHOD_ICY_LOGIN = 10, // a first line without a space: an ICY source's password
    };

    static constexpr const char* PROTOCOL_STRINGS[] = {"UNKNOWN", "ICY", "HTTP", "ICE"};
    // The ICY login has no word.
    static constexpr const char* HTTP_METHOD_STRINGS[] = {
        "UNKNOWN", "OPTIONS", "GET", "HEAD", "POST", "PUT", "DELETE", "TRACE", "CONNECT", "SOURCE"};

protected:
    HttpWords() = default;
    ~HttpWords() = default;
};
