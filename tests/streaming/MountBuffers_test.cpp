#include "media/BufferEntry.h"
#include "media/PacketBuffer.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/Broadcaster.h"
#include "support/Sections.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace {
constexpr const char* PLAIN = "Content-Type: application/test\r\n";

struct MountBuffers : testing::Test {
    TemporaryDirectory directory;
    std::shared_ptr<Mount> mount = std::make_shared<Mount>("/live", 1, AddSection("1", {}));

    ~MountBuffers() override { mount->WaitForStop(); }

    std::string intro(char byte, std::size_t length = 1001) const {
        const std::string name(1, byte);
        directory.Write(name, std::string(length, byte));
        return directory.Path(name);
    }
    std::shared_ptr<PacketBuffer> first() const {
        int index = 0;
        return mount->GetNextPacketBuffer(index);
    }
};
} // namespace

TEST_F(MountBuffers, AMountThatNeverHadASourceHasNothingToPlay) {
    int index = 0;
    EXPECT_FALSE(mount->HasNextPacketBuffer(index));
    EXPECT_EQ(mount->GetNextPacketBuffer(index), nullptr);
    EXPECT_EQ(index, -1);
    EXPECT_FALSE(mount->HasNextPacketBuffer(index));
}

TEST_F(MountBuffers, WithoutASourceTheIntroIsPlayedAndThenNothing) {
    ASSERT_TRUE(mount->SetIntroFile(intro('i')));
    int index = 0;
    const auto buffer = mount->GetNextPacketBuffer(index);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(index, -1);
    EXPECT_FALSE(mount->HasNextPacketBuffer(index));
    EXPECT_EQ(mount->GetNextPacketBuffer(index), buffer);
}

TEST_F(MountBuffers, TheIntroIsHeldInWhole) {
    ASSERT_TRUE(mount->SetIntroFile(intro('i', 2 * 1024 * 1024 + 1)));
    EXPECT_GE(first()->GetBufferSize(), 2U * 1024 * 1024 - 500);
}

TEST_F(MountBuffers, AMissingFileIsNoIntro) {
    EXPECT_FALSE(mount->SetIntroFile(directory.Path("none")));
    EXPECT_EQ(first(), nullptr);
}

TEST_F(MountBuffers, AnEmptyPathChangesNothing) {
    ASSERT_TRUE(mount->SetIntroFile(intro('i')));
    const auto before = first();
    EXPECT_TRUE(mount->SetIntroFile(""));
    EXPECT_EQ(first(), before);
}

TEST_F(MountBuffers, ANewIntroReplacesTheFormerOne) {
    ASSERT_TRUE(mount->SetIntroFile(intro('i')));
    ASSERT_TRUE(mount->SetIntroFile(intro('j')));
    EXPECT_EQ(first()->GetBufferSnapShot().front()->data.front(), 'j');
    int index = 1;
    EXPECT_FALSE(mount->HasNextPacketBuffer(index));
}

TEST_F(MountBuffers, TheSettingIntroIsReadAndFollowed) {
    Set(mount->GetConfigNode(), "Intro", intro('i'));
    EXPECT_EQ(first()->GetBufferSnapShot().front()->data.front(), 'i');
    const auto other = std::make_shared<Mount>("/b", 2, AddSection("2", {{"Intro", intro('j')}}));
    int index = 0;
    EXPECT_NE(other->GetNextPacketBuffer(index), nullptr);
}

TEST_F(MountBuffers, AListenerGoesFromTheIntroToTheLiveStream) {
    ASSERT_TRUE(mount->SetIntroFile(intro('i')));
    mount->Start();
    Broadcaster source(PLAIN);
    mount->SetRequest(source.request);
    ASSERT_TRUE(Broadcaster::comes_true([this] { return mount->IsConnected(); }));
    int index = 0;
    const auto played_first = mount->GetNextPacketBuffer(index);
    EXPECT_NE(played_first, mount->GetPacketBuffer());
    EXPECT_EQ(index, 1);
    EXPECT_TRUE(mount->HasNextPacketBuffer(index));
    EXPECT_EQ(mount->GetNextPacketBuffer(index), mount->GetPacketBuffer());
    EXPECT_EQ(index, 2);
    EXPECT_FALSE(mount->HasNextPacketBuffer(index));
}

TEST_F(MountBuffers, TheIntroStaysWhenTheLiveStreamIsLetGo) {
    ASSERT_TRUE(mount->SetIntroFile(intro('i')));
    const auto intro_buffer = first();
    mount->Start();
    Broadcaster source(PLAIN);
    mount->SetRequest(source.request);
    ASSERT_TRUE(Broadcaster::comes_true([this] { return mount->IsConnected(); }));
    mount->WaitForStop();
    EXPECT_EQ(first(), intro_buffer);
    int index = 1;
    EXPECT_FALSE(mount->HasNextPacketBuffer(index));
}

TEST_F(MountBuffers, AnIntroSetWhileASourceSendsComesFirst) {
    mount->Start();
    Broadcaster source(PLAIN);
    mount->SetRequest(source.request);
    ASSERT_TRUE(Broadcaster::comes_true([this] { return mount->IsConnected(); }));
    ASSERT_TRUE(mount->SetIntroFile(intro('i')));
    int index = 0;
    EXPECT_NE(mount->GetNextPacketBuffer(index), mount->GetPacketBuffer());
    EXPECT_EQ(mount->GetNextPacketBuffer(index), mount->GetPacketBuffer());
}

TEST_F(MountBuffers, TheFallbackIsLookedUpByItsAddress) {
    const auto stand_in = std::make_shared<Mount>("/backup", 2, AddSection("2", {}));
    MountList::Add(stand_in);
    EXPECT_EQ(mount->GetFallbackMount(), nullptr);
    Set(mount->GetConfigNode(), "Backup", "/backup");
    EXPECT_EQ(mount->GetFallbackMount(), stand_in);
    Set(mount->GetConfigNode(), "Backup", "/nowhere");
    EXPECT_EQ(mount->GetFallbackMount(), nullptr);
    MountList::WaitForStop();
}
