#include "http/LeadingNumber.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "support/CalledServer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

// Steps until something other than "again" comes; the peer has said all it will say.
template <typename Step> int until_other(const Request& request, const Step& step) {
    for (;;) {
        const int result = step();
        if (result != IO_AGAIN) return result;
        request.AwaitStep(5);
    }
}

// What relays, directories and applications are asked of their reply.
void ask(const Request& request) {
    for (const std::string& key : request.GetAllHeaderKeys())
        leading_number<std::uint64_t>(request.GetHeader(key));
    request.GetHeader("Content-Type");
    request.Message();
    if (request.Status() < 0) std::abort();
}

} // namespace

// The first byte says after how many bytes the rest of the reply arrives. Whatever comes, an end is
// found, and no more is taken than heads and a body.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CalledServer server;
    constexpr std::size_t MOST = 65536; // what the connection takes without a reader
    if (size == 0 || size > MOST) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t first = std::min<std::size_t>(data[0], bytes.size());

    Request request(server.Address(), Request::METHOD_GET, "", "", Request::PROTOCOL_HTTP, 1.1F);
    if (request.InitiateRequest() == IO_FAILED) return 0;
    TakenCall call = server.Take();
    call.Send(bytes.substr(0, first));
    int result = request.InitiateRequest();
    call.Send(bytes.substr(first));
    call.EndSending();
    if (result == IO_AGAIN)
        result = until_other(request, [&] { return request.InitiateRequest(); });
    ask(request);
    if (result == 1) until_other(request, [&] { return request.ReadReplyBody(); });
    if (request.BytesIn() + request.PostData().size() > bytes.size()) std::abort();
    if (request.Socket()->BytesRead() > bytes.size()) std::abort();
    call.Reset(); // so that no port stays taken
    return 0;
}
