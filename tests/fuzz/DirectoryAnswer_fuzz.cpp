#include "core/Clock.h"
#include "directory/IcecastYP.h"
#include "directory/ShoutcastYP.h"
#include "support/CalledServer.h"
#include "support/OnAir.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

// A directory of each kind, and a page on it of a mount that is on the air.
struct Directories {
    CalledServer server;
    OnAir station{"/live", 1, {{"UserMax", "9"}}};
    std::shared_ptr<YellowPage> pages[2];

    Directories() {
        station.Connect("audio/mpeg");
        pages[0] = std::make_shared<IcecastYP>(nullptr, server.Address());
        pages[1] = std::make_shared<ShoutcastYP>(nullptr, "yp.example",
                                                 "127.0.0.1:" + std::to_string(server.Port()));
        for (const auto& page : pages)
            page->Start(station.mount);
        Clock::Hold(now());
    }
};

TakenCall call_of(YellowPage& page, const CalledServer& server) {
    for (int slice = 0; slice < 100000 && !server.IsCalled(); ++slice)
        page.Process();
    if (!server.IsCalled()) std::abort();
    return server.Take();
}

// Some slices, which stand for as many cycles of the pool.
void process(YellowPage& page) {
    for (int slice = 0; slice < 3; ++slice)
        page.Process();
}

} // namespace

// The first byte says which directory answers, and after how many bytes the rest of the answer
// arrives. Whatever comes, the page can be shown, and its exchange is over by the time-out.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto* const directories = new Directories; // never taken down
    constexpr std::size_t MOST = 65536; // what the connection takes without a reader
    if (size == 0 || size > MOST) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t first = std::min<std::size_t>(data[0] >> 1, bytes.size());

    YellowPage& page = *directories->pages[data[0] & 1];
    page.Reset();
    TakenCall call = call_of(page, directories->server);
    process(page);
    call.Send(bytes.substr(0, first));
    page.Process();
    call.Send(bytes.substr(first));
    call.EndSending();
    page.Process();
    Clock::Advance(6);
    page.Process();
    if (page.Status() == "Initialized") std::abort();
    page.Interval();
    page.Poll(0);
    call.Reset(); // so that no port stays taken
    page.Reset();
    while (directories->server.IsCalled()) // a touch that was on its way
        directories->server.Take().Reset();
    return 0;
}
