#pragma once

#include "config/Config.h"
#include "core/Clock.h"
#include "core/ThreadPool.h"
#include "directory/YellowPage.h"
#include "support/CalledServer.h"
#include "support/LogLines.h"
#include "support/OnAir.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

// A public mount on the air, and a directory on loopback that the test itself answers for. No pool
// runs: the page does a slice when the test says so. The clock stands still.
class DirectoryTest : public testing::Test {
protected:
    static constexpr time_t MOMENT = 1'700'000'000;
    static constexpr const char* PROPERTIES =
        "icy-name: A & B\r\nicy-genre: Pop/Rock\r\nicy-br: 128\r\nicy-url: http://x/?a=1\r\n"
        "ice-description: So: yes\r\nice-audio-info: bitrate=128;channels=2;odd;x=y=z\r\n";

    explicit DirectoryTest(const OnAir::Settings& settings = {}, const char* type = "audio/mpeg")
        : station("/live", 1, settings) {
        Clock::Hold(MOMENT);
        Config::Get("PortBase", true)->SetValue("8000");
        station.Connect(type, PROPERTIES);
    }
    ~DirectoryTest() override {
        ThreadPool::WaitForStop(); // what waits for a pool is let go
        Clock::Release();
    }

    std::shared_ptr<Mount> mount() const { return station.mount; }

    template <typename Kind, typename... More> void make_page(const More&... more) {
        page = std::make_shared<Kind>(nullptr, more...);
        page->Start(mount());
    }

    // Slices until the directory has been called and knows all. Its side of the call.
    TakenCall called() {
        for (int i = 0; i < 5000 && !directory.IsCalled(); ++i) {
            page->Process();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        TakenCall call = directory.Take();
        std::thread reader([&] { sent = call.Receive(); });
        for (int i = 0; i < 10; ++i) {
            page->Process();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        reader.join();
        return call;
    }
    // One exchange, up to the slice that reads this answer and no further.
    void exchange(const std::string& answer) {
        TakenCall call = called();
        call.Send(answer);
        call.EndSending();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        page->Process();
    }
    // One that the directory never answers.
    void exchange_without_answer() {
        const TakenCall call = called();
        Clock::Advance(6);
        page->Process();
    }
    // Whether the pool would give it a slice; asked once, as it then counts as queued.
    bool is_due() { return page->Poll(50) == ThreadPool::LOW; }

    CalledServer directory;
    OnAir station;
    LogLines log;
    std::shared_ptr<YellowPage> page;
    std::string sent; // the last call, head and body
};
