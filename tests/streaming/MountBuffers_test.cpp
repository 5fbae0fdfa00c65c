#include "http/MimeTypes.h"
#include "media/AacBuffer.h"
#include "media/BufferEntry.h"
#include "media/MpegBuffer.h"
#include "media/OggBuffer.h"
#include "media/PacketBuffer.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "support/Broadcaster.h"
#include "support/Frames.h"
#include "support/OggPages.h"
#include "support/Sections.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
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

TEST_F(MountBuffers, TheEndingOfAnIntroDecidesHowItIsCut) {
    directory.Write("types", "audio/mpeg mp3\naudio/aacp aac\napplication/ogg ogg\n");
    Config::Get("MimeFile", true)->SetValue(directory.Path("types"));
    ASSERT_TRUE(MimeTypes::Init());
    const std::string mp3 = frames::mp3();
    const std::string adts = frames::adts(300);
    const std::string ogg = ogg::page({.flags = ogg::FIRST}, {30}, std::string(30, 'o'));
    directory.Write("a.MP3", "junk" + mp3 + mp3 + mp3 + mp3);
    directory.Write("a.aac", "junk" + adts + adts + adts + adts);
    directory.Write("a.ogg", "junk" + ogg + ogg + ogg);
    ASSERT_TRUE(mount->SetIntroFile(directory.Path("a.MP3")));
    EXPECT_NE(dynamic_cast<MpegBuffer*>(first().get()), nullptr);
    EXPECT_EQ(first()->GetBufferSnapShot().front()->data.size(), mp3.size()) << "whole frames";
    ASSERT_TRUE(mount->SetIntroFile(directory.Path("a.aac")));
    EXPECT_NE(dynamic_cast<AacBuffer*>(first().get()), nullptr);
    EXPECT_EQ(first()->GetBufferSnapShot().front()->data.size(), adts.size());
    ASSERT_TRUE(mount->SetIntroFile(directory.Path("a.ogg")));
    EXPECT_NE(dynamic_cast<OggBuffer*>(first().get()), nullptr);
}

// Kept: other types that hold the same words are not framed, and one that no source may send is as
// good as any.
TEST_F(MountBuffers, IntrosOfOtherTypesArePlainBytes) {
    directory.Write("types",
                    "audio/aac aac\naudio/x-mpeg mp3\naudio/ogg ogg\nmisc/ultravox uvox\n");
    Config::Get("MimeFile", true)->SetValue(directory.Path("types"));
    ASSERT_TRUE(MimeTypes::Init());
    for (const std::string name : {"a.aac", "a.mp3", "a.ogg", "a.uvox", "a"}) {
        directory.Write(name, std::string(1001, 'x'));
        ASSERT_TRUE(mount->SetIntroFile(directory.Path(name))) << name;
        EXPECT_EQ(first()->GetBufferSnapShot().front()->data.front(), 'x') << name;
    }
}

TEST_F(MountBuffers, AnIntroWithoutAFrameIsNone) {
    directory.Write("types", "audio/mpeg mp3\n");
    Config::Get("MimeFile", true)->SetValue(directory.Path("types"));
    ASSERT_TRUE(MimeTypes::Init());
    directory.Write("a.mp3", std::string(1001, 'x'));
    EXPECT_FALSE(mount->SetIntroFile(directory.Path("a.mp3")));
    EXPECT_EQ(first(), nullptr);
}

TEST_F(MountBuffers, AnIntroThatIsCutOffEndsWithItsLastWholeFrame) {
    directory.Write("types", "audio/mpeg mp3\n");
    Config::Get("MimeFile", true)->SetValue(directory.Path("types"));
    ASSERT_TRUE(MimeTypes::Init());
    const std::string mp3 = frames::mp3();
    directory.Write("a.mp3", mp3 + mp3 + mp3 + mp3.substr(0, 200));
    ASSERT_TRUE(mount->SetIntroFile(directory.Path("a.mp3")));
    EXPECT_EQ(first()->GetBufferSize(), 3 * mp3.size());
}

TEST_F(MountBuffers, AnEmptyFileOrADirectoryIsNoIntroAndLeavesTheFormerOne) {
    ASSERT_TRUE(mount->SetIntroFile(intro('i')));
    const auto before = first();
    directory.Write("empty", "");
    EXPECT_FALSE(mount->SetIntroFile(directory.Path("empty")));
    EXPECT_FALSE(mount->SetIntroFile(directory.Path("")));
    EXPECT_EQ(first(), before);
}

TEST_F(MountBuffers, AFileThatIsWrittenAnewIsHeardWhenItIsSetAnew) {
    const auto plays = [this] { return first()->GetBufferSnapShot().front()->data.front(); };
    directory.Write("intro", std::string(1001, 'i'));
    ASSERT_TRUE(mount->SetIntroFile(directory.Path("intro")));
    directory.Write("intro", std::string(1001, 'j'));
    EXPECT_EQ(plays(), 'i');
    ASSERT_TRUE(mount->SetIntroFile(directory.Path("intro")));
    EXPECT_EQ(plays(), 'j');
}

TEST_F(MountBuffers, TheFileOfAnIntroIsClosedOnceItIsRead) {
    const std::string path = intro('i');
    ASSERT_TRUE(mount->SetIntroFile(path));
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // as the iterator's own descriptor is by then
        EXPECT_NE(std::filesystem::read_symlink(entry, gone), path);
    }
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
