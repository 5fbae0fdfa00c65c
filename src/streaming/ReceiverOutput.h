#pragma once

#include <memory>
#include <string>

class MediaWriter;
class Mount;
class Request;
class Response;

// What a listener's stream comes in.
enum class StreamStyle {
    FLV,     // a file without end, for Flash players
    ICECAST, // plain HTTP with ice-* fields; metadata in the chunk lines if at all
    ICY,     // icy-* fields; metadata in blocks when asked for
};

// `wants_flv`: the admission or the query asked for it.
StreamStyle choose_stream_style(bool wants_flv, const std::string& content_type,
                                const std::string& path, const std::string& accept_encoding);

// The two ends of a listener's output: what is written to, and where it leaves.
struct ListenerOutput {
    std::shared_ptr<Response> response = {};
    std::shared_ptr<MediaWriter> writer = {};
};

// Sends the header of the stream of `mount`, as `request` wants it. The body is left open.
ListenerOutput open_listener_output(const std::shared_ptr<Request>& request, const Mount& mount,
                                    bool admitted_as_flv);
