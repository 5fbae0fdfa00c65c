#include "media/FLVWriter.h"

#include "media/FlvTag.h"
#include "support/Frames.h"
#include "support/ResponsePipe.h"

#include <gtest/gtest.h>

using frames::adts;
using frames::bytes;
using frames::mp3;
using namespace std::string_literals;

namespace {
constexpr const char* CREATED_BY =
    "Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)";
const std::string FILE_HEADER = "FLV\x01\x04\0\0\0\x09\0\0\0\0"s;

std::string audio_tag(std::uint32_t timestamp, const std::string& data) {
    return flv::create_tag(flv::FLVTagType::AUDIO, timestamp, "", data);
}

// One MPEG frame header and some payload; the writer does not look at the length.
std::string mpeg(unsigned b1, unsigned b2, unsigned b3 = 0) {
    return bytes({0xFF, b1, b2, b3}) + "payload";
}

struct FlvListener {
    explicit FlvListener(FLVSoundFormat format)
        : writer(pipe.response, format, FLVSoundRate::HZ_44100, FLVSoundSize::BITS_16,
                 FLVSoundType::STEREO) {}

    unsigned long Write(const std::string& frame) {
        return writer.Write(std::make_shared<const std::vector<char>>(frame.begin(), frame.end()),
                            0, frame.size());
    }

    ResponsePipe pipe;
    FLVWriter writer;
};
struct Mp3Listener : FlvListener {
    Mp3Listener() : FlvListener(FLVSoundFormat::MP3) {}
};
struct AacListener : FlvListener {
    AacListener() : FlvListener(FLVSoundFormat::AAC) {}
};

// The timestamp of the second tag, after a first frame: the step of one frame.
std::uint32_t step_after(FlvListener& listener, const std::string& frame) {
    listener.Write(frame);
    listener.pipe.Sent();
    listener.Write(frame);
    const std::string tag = listener.pipe.Sent();
    const auto at = [&tag](std::size_t i) { return static_cast<unsigned char>(tag[i]); };
    return static_cast<std::uint32_t>(at(4) << 16 | at(5) << 8 | at(6)) |
           static_cast<std::uint32_t>(at(7)) << 24;
}

// The first byte of the data of the first audio tag.
unsigned char first_byte(const std::string& frame) {
    Mp3Listener listener;
    listener.Write(frame);
    return static_cast<unsigned char>(listener.pipe.Sent()[FILE_HEADER.size() + 11]);
}

std::string text(const std::string& value) {
    return "\x02"s +
           bytes({static_cast<unsigned>(value.size() >> 8),
                  static_cast<unsigned>(value.size() & 0xFF)}) +
           value;
}
std::string key(const std::string& name) { return text(name).substr(1); }
} // namespace

TEST(FLVWriter, Mp3StreamIsHeaderAndOneTagForEachFrame) {
    Mp3Listener listener;
    EXPECT_EQ(listener.Write(mp3('1')), FILE_HEADER.size() + audio_tag(0, "\x2f" + mp3()).size());
    EXPECT_EQ(listener.Write(mp3('2')), audio_tag(0, "\x2f" + mp3()).size());
    EXPECT_EQ(listener.pipe.Sent(),
              FILE_HEADER + audio_tag(0, "\x2f" + mp3('1')) + audio_tag(25, "\x2f" + mp3('2')));
}

TEST(FLVWriter, AacStreamBeginsWithHeaderConfigAndFrame) {
    AacListener listener;
    EXPECT_EQ(listener.Write(adts(100, '1')), FILE_HEADER.size() + 15 + 4 + 15 + 2 + 93);
    listener.Write(adts(50, '2'));
    // Profile 1, 44100 Hz (4), 2 channels; the object type is the profile as read.
    EXPECT_EQ(listener.pipe.Sent(), FILE_HEADER + audio_tag(0, "\xaf\0\x0a\x10"s) +
                                        audio_tag(23, "\xaf\x01" + std::string(93, '1')) +
                                        audio_tag(46, "\xaf\x01" + std::string(43, '2')));
}

TEST(FLVWriter, AacConfigHoldsProfileRateAndChannels) {
    AacListener listener;
    listener.Write(adts(100, 'a', {.rate_index = 7, .channels = 6, .profile = 3}));
    EXPECT_EQ(listener.pipe.Sent().substr(FILE_HEADER.size() + 11, 4), "\xaf\0\x1b\xb0"s);
}

TEST(FLVWriter, AacHeaderWithACrcIsCutInFull) {
    AacListener listener;
    listener.Write(adts(100, 'a', {.crc = true}));
    EXPECT_TRUE(listener.pipe.Sent().ends_with(audio_tag(23, "\xaf\x01" + std::string(91, 'a'))));
}

TEST(FLVWriter, MonoStreamAt22050HzHasFirstByte2A) {
    EXPECT_EQ(first_byte(mpeg(0xF3, 0x80, 0xC0)), 0x2A);
}

TEST(FLVWriter, FirstByteNamesRateAndChannels) {
    EXPECT_EQ(first_byte(mpeg(0xFB, 0x90)), 0x2F);       // 44100
    EXPECT_EQ(first_byte(mpeg(0xFB, 0x90, 0xC0)), 0x2E); // 44100, mono
    EXPECT_EQ(first_byte(mpeg(0xFB, 0x94)), 0x23);       // 48000
    EXPECT_EQ(first_byte(mpeg(0xFB, 0x98)), 0x23);       // 32000
    EXPECT_EQ(first_byte(mpeg(0xF3, 0x80)), 0x2B);       // 22050
    EXPECT_EQ(first_byte(mpeg(0xF3, 0x84)), 0x23);       // 24000
    EXPECT_EQ(first_byte(mpeg(0xE3, 0x80)), 0x27);       // 11025
    EXPECT_EQ(first_byte(mpeg(0xE3, 0x88)), 0x23);       // 8000
}

TEST(FLVWriter, Mp3StepIsTheFrameTimeCutAndLoweredByOne) {
    const struct {
        unsigned b1, b2;
        std::uint32_t step;
    } ROWS[] = {
        {0xFB, 0x90, 25}, {0xFB, 0x94, 23}, {0xFB, 0x98, 35}, // Layer III, MPEG-1
        {0xF3, 0x80, 25}, {0xF3, 0x84, 23}, {0xF3, 0x88, 35}, // MPEG-2
        {0xE3, 0x80, 51}, {0xE3, 0x84, 47}, {0xE3, 0x88, 71}, // MPEG-2.5
        {0xFF, 0x90, 7},  {0xFF, 0x94, 7},  {0xFF, 0x98, 11}, // Layer I, MPEG-1
        {0xFD, 0x90, 25}, {0xF5, 0x80, 51}, {0xE5, 0x88, 143},
    };
    for (const auto& row : ROWS) {
        Mp3Listener listener;
        EXPECT_EQ(step_after(listener, mpeg(row.b1, row.b2)), row.step) << row.b1 << " " << row.b2;
    }
}

TEST(FLVWriter, AacStepIsTheFrameTimeCut) {
    constexpr std::uint32_t STEPS[] = {10, 11, 16, 21,  23,  32,    42,   46,
                                       64, 85, 92, 128, 139, 56888, 56888};
    for (unsigned index = 0; index < std::size(STEPS); ++index) {
        AacListener listener;
        // The config moves the timestamp too.
        EXPECT_EQ(step_after(listener, adts(100, 'a', {.rate_index = index})), 2 * STEPS[index]);
    }
}

TEST(FLVWriter, UnknownRateLeavesTheTimestampAlone) {
    AacListener aac;
    EXPECT_EQ(step_after(aac, adts(100, 'a', {.rate_index = 15})), 0U);
    Mp3Listener mp3_listener;
    EXPECT_EQ(step_after(mp3_listener, mpeg(0xFB, 0x9C)), 0U);
}

TEST(FLVWriter, TimestampAbove24BitsGoesOn) {
    AacListener listener;
    const std::string frame = adts(8, 'a', {.rate_index = 13}); // 56888 ms a frame
    for (int i = 0; i < 296; ++i) {
        listener.Write(frame);
        listener.pipe.Sent();
    }
    listener.Write(frame);
    const std::string tag = listener.pipe.Sent();
    ASSERT_EQ(297U * 56888, 0x101CEF8U); // the config counts as well
    EXPECT_EQ(tag.substr(4, 4), "\x01\xce\xf8\x01");
}

TEST(FLVWriter, FormatIsThatOfTheFirstFrame) {
    Mp3Listener listener;
    listener.Write(mpeg(0xF3, 0x80, 0xC0));
    listener.pipe.Sent();
    listener.Write(mp3());
    EXPECT_EQ(listener.pipe.Sent(), audio_tag(25, "\x2a" + mp3()));
}

TEST(FLVWriter, OffsetAndLengthAreIgnored) {
    Mp3Listener listener;
    const std::string frame = mp3();
    listener.writer.Write(std::make_shared<const std::vector<char>>(frame.begin(), frame.end()),
                          100, 5);
    EXPECT_EQ(listener.pipe.Sent(), FILE_HEADER + audio_tag(0, "\x2f" + frame));
}

TEST(FLVWriter, PacketThatIsNoFrameIsPassedOver) {
    Mp3Listener listener;
    EXPECT_EQ(listener.Write("\xFF"), 1U);
    EXPECT_EQ(listener.Write(mp3().substr(0, 3)), 3U);
    EXPECT_EQ(listener.pipe.Sent(), "");
    listener.Write(mp3());
    EXPECT_EQ(listener.pipe.Sent(), FILE_HEADER + audio_tag(0, "\x2f" + mp3()));
    EXPECT_EQ(listener.Write("\xFF"), 1U);
    EXPECT_EQ(listener.pipe.Sent(), "");
}

TEST(FLVWriter, AacFrameNotLongerThanItsHeaderIsPassedOver) {
    AacListener listener;
    EXPECT_EQ(listener.Write(adts(7).substr(0, 6)), 6U);
    EXPECT_EQ(listener.Write(adts(7)), 7U);
    EXPECT_EQ(listener.Write(adts(9, 'a', {.crc = true})), 9U);
    EXPECT_EQ(listener.pipe.Sent(), "");
    listener.Write(adts(100));
    EXPECT_TRUE(listener.pipe.Sent().starts_with(FILE_HEADER));
    EXPECT_EQ(listener.Write(adts(7)), 7U);
    EXPECT_EQ(listener.pipe.Sent(), "");
}

TEST(FLVWriter, NoScriptTagsWithoutTitleOrAddress) {
    Mp3Listener listener;
    auto record = std::make_shared<METADATA>();
    record->artist = "somebody";
    listener.writer.SetMetadata(record);
    listener.Write(mp3());
    EXPECT_EQ(listener.pipe.Sent(), FILE_HEADER + audio_tag(0, "\x2f" + mp3()));
}

TEST(FLVWriter, MetadataBecomesTwoScriptTagsBehindTheFrameOnce) {
    Mp3Listener listener;
    auto record = std::make_shared<METADATA>();
    record->title = "Song";
    record->url = "http://x/";
    record->extended = {{"B", "2"}, {"A", "1"}};
    listener.writer.SetMetadata(record);
    const unsigned long first = listener.Write(mp3('1'));
    const unsigned long second = listener.Write(mp3('2'));

    const std::string on_meta_data =
        text("onMetaData") + "\x08\0\0\0\x07"s + key("audiochannels") + "\0\x40\0\0\0\0\0\0\0"s +
        key("audiocodecid") + "\0\x40\0\0\0\0\0\0\0"s + key("audiosamplerate") +
        "\0\x40\xe5\x88\x80\0\0\0\0"s + key("createdby") + text(CREATED_BY) + key("stereo") +
        "\x01\x01" + key("title") + text("Song") + key("url") + text("http://x/") + "\0\0\x09"s;
    const std::string on_cue_point = text("onCuePoint") + "\x08\0\0\0\x02"s + key("A") + text("1") +
                                     key("B") + text("2") + "\0\0\x09"s;
    const std::string expected =
        FILE_HEADER + audio_tag(0, "\x2f" + mp3('1')) +
        flv::create_tag(flv::FLVTagType::SCRIPT_DATA, 25, "", on_meta_data) +
        flv::create_tag(flv::FLVTagType::SCRIPT_DATA, 25, "", on_cue_point) +
        audio_tag(25, "\x2f" + mp3('2'));
    EXPECT_EQ(listener.pipe.Sent(), expected);
    EXPECT_EQ(first + second, expected.size());
}

TEST(FLVWriter, MonoStreamSaysSoInItsMetadata) {
    Mp3Listener listener;
    auto record = std::make_shared<METADATA>();
    record->url = "u";
    listener.writer.SetMetadata(record);
    listener.Write(mpeg(0xFB, 0x90, 0xC0));
    const std::string sent = listener.pipe.Sent();
    EXPECT_NE(sent.find(key("audiochannels") + "\0\x3f\xf0\0\0\0\0\0\0"s), std::string::npos);
    EXPECT_NE(sent.find(key("stereo") + "\x01\0"s), std::string::npos);
}

TEST(FLVWriter, EightChannelsOfAacAreConfigurationSeven) {
    AacListener listener;
    auto record = std::make_shared<METADATA>();
    record->title = "t";
    listener.writer.SetMetadata(record);
    listener.Write(adts(100, 'a', {.channels = 7}));
    const std::string sent = listener.pipe.Sent();
    EXPECT_NE(sent.find(key("audiochannels") + "\0\x40\x20\0\0\0\0\0\0"s), std::string::npos);
    EXPECT_NE(sent.find(key("audiocodecid") + "\0\x40\x24\0\0\0\0\0\0"s), std::string::npos);
}

TEST(FLVWriter, TitleOf128BytesHasAWrongLength) {
    Mp3Listener listener;
    auto record = std::make_shared<METADATA>();
    record->title = std::string(128, 't');
    listener.writer.SetMetadata(record);
    listener.Write(mp3());
    EXPECT_NE(listener.pipe.Sent().find(key("title") + "\x02\xff\x80" + record->title),
              std::string::npos);
}

TEST(FLVWriter, TagsAreOneChunkEach) {
    Mp3Listener listener;
    listener.pipe.BeginChunks();
    EXPECT_EQ(listener.Write(mp3()), FILE_HEADER.size() + 433);
    EXPECT_EQ(listener.pipe.Sent(),
              "d\r\n" + FILE_HEADER + "\r\n1b1\r\n" + audio_tag(0, "\x2f" + mp3()) + "\r\n");
}
