#include "http/Request.h"
#include "http/Sessions.h"
#include "net/Socket.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Everything that a page or a log may ask of a request.
void ask(const Request& request) {
    request.Valid();
    request.GetPreferredProtocol();
    request.Acceptable("video/x-flv");
    request.Host();
    request.Port();
    for (const std::string& key : request.GetAllHeaderKeys())
        request.GetHeader(key);
    for (const std::string& key : request.GetAllQueryKeys())
        request.GetQuery(key);
    for (const std::string& key : request.GetAllCookieKeys())
        request.GetCookie(key);
    for (const std::string& key : request.GetAllFormFields())
        request.GetFormField(key);
}

} // namespace

// The first byte says after how many bytes the rest arrives in a second packet. Whatever comes,
// what was read is the front of it, and never more than the head and the body.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t MOST = 65536; // what the pair takes without a reader
    if (size == 0 || size > MOST) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t first = std::min<std::size_t>(data[0], bytes.size());
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) != 0) return 0;
    {
        const auto connection = std::make_shared<Socket>(ends[0]);
        Request request(connection);
        send(ends[1], bytes.data(), first, MSG_NOSIGNAL);
        int result = request.ReadRequest();
        send(ends[1], bytes.data() + first, bytes.size() - first, MSG_NOSIGNAL);
        close(ends[1]);
        for (int i = 0; i < 64 && result != IO_FAILED; ++i)
            result = request.ReadRequest();
        const std::string raw = request.GetRawRequest();
        if (bytes.compare(0, raw.size(), raw) != 0) std::abort();
        if (connection->BytesRead() != raw.size() + request.PostData().size()) std::abort();
        ask(request);
        request.parse_header(false);
        ask(request);
        SessionList::Remove(request.GetSessionUUID());
    }
    return 0;
}
