#include "media/Metadata.h"
#include "media/PacketBuffer.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "streaming/Receiver.h"
#include "support/Admit.h"
#include "support/Broadcaster.h"
#include "support/Sections.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {
// Runs each of these again and again on a thread of its own until `rounds` of the first are over.
void run_together(int rounds, const std::vector<std::function<void()>>& steps) {
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (std::size_t other = 1; other < steps.size(); ++other)
        threads.emplace_back([&, other] {
            while (!done)
                steps[other]();
        });
    for (int round = 0; round < rounds; ++round)
        steps.front()();
    done = true;
    for (std::thread& thread : threads)
        thread.join();
}

void read_everything(Mount& mount) {
    mount.GetMountDescription();
    mount.GetMountStatistics();
    mount.ToString();
    mount.GetFallbackMount();
    mount.GetSourceAccount();
    for (int index = 0; mount.HasNextPacketBuffer(index);)
        if (!mount.GetNextPacketBuffer(index)) break;
    if (const auto buffer = mount.GetPacketBuffer()) buffer->GetBufferSnapShot();
    MountList::TotalReceiverBitrate();
    MountList::TotalSourceBitrate();
}
} // namespace

TEST(MountStress, SourcesListenersSettingsAndReadersAtOnce) {
    const auto mount = std::make_shared<Mount>("/live", 1, AddSection("1", {}));
    MountList::Add(mount);
    const std::string types[] = {"audio/mpeg", "application/test"};
    int round = 0;
    run_together(20, {[&] {
                          Broadcaster source("Content-Type: " + types[round++ / 2 % 2] + "\r\n");
                          mount->SetRequest(source.request);
                          source.Send(std::string(8192, 'a'));
                          if (round % 3 == 0) mount->Kick();
                          source.Leave();
                          Broadcaster::comes_true([&] { return mount->GetRequest() == nullptr; });
                      },
                      [&] {
                          LoopbackPair pair;
                          const auto receiver = std::make_shared<Receiver>(pair.server);
                          admit(*mount, receiver);
                          mount->UnregisterReceiver(receiver);
                      },
                      [&] { read_everything(*mount); },
                      [&] {
                          Set(mount->GetConfigNode(), "Backup", "/live");
                          Set(Defaults(), "NameFormat", "%s (HQ)");
                          Set(Defaults(), "NameFormat", "");
                          Set(mount->GetConfigNode(), "Backup", "");
                          const auto record = std::make_shared<METADATA>();
                          record->title = "Song";
                          mount->SetMetaData(record);
                      }});
    EXPECT_EQ(mount->ReceiverSize(), 0U);
    MountList::Remove(mount);
    EXPECT_EQ(MountList::TotalActiveMounts(), 0U);
    EXPECT_EQ(MountList::TotalReceivers(), 0U);
}

TEST(MountStress, DisablingStoppingAndStartingAtOnceEndsInOrder) {
    const auto mount = std::make_shared<Mount>("/live", 1, AddSection("1", {}));
    MountList::Add(mount);
    run_together(200, {[&] { Set(mount->GetConfigNode(), "Disabled", "1"); },
                       [&] { Set(mount->GetConfigNode(), "Disabled", "0"); },
                       [&] { mount->Kick(); }, [&] { mount->WaitForStop(); }});
    mount->WaitForStop();
    EXPECT_FALSE(mount->IsRunning());
}

TEST(MountStress, MountsAreRemovedWhileDefaultsChange) {
    run_together(50,
                 {[] {
                      const auto mount = std::make_shared<Mount>("/live", 1, AddSection("1", {}));
                      MountList::Add(mount);
                      MountList::Remove(mount);
                  },
                  [] { Set(Defaults(), "UserMax", "5"); }, [] { Set(Defaults(), "Disabled", "0"); },
                  [] { Set(Defaults(), "UserMax", ""); }});
    EXPECT_EQ(MountList::GetMount("/live"), nullptr);
}
