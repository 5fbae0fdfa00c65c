#include "streaming/Framers.h"

#include "media/AacBuffer.h"
#include "media/MpegBuffer.h"
#include "media/OggBuffer.h"
#include "support/ByteReader.h"

#include <gtest/gtest.h>

namespace {
std::shared_ptr<PacketBuffer> buffer_for(const std::string& type) {
    return framer_for(type).make(std::make_shared<ByteReader>(""));
}
} // namespace

TEST(Framers, ATypeWithAacIsCutIntoAdtsFrames) {
    EXPECT_STREQ(framer_for("audio/aacp").log_name, "AAC Object");
    EXPECT_NE(std::dynamic_pointer_cast<AacBuffer>(buffer_for("audio/aacp")), nullptr);
}

TEST(Framers, ATypeWithMpegIsCutIntoMpegFrames) {
    EXPECT_STREQ(framer_for("audio/mpeg").log_name, "Mpeg Object");
    EXPECT_NE(std::dynamic_pointer_cast<MpegBuffer>(buffer_for("audio/mpeg")), nullptr);
}

TEST(Framers, ATypeWithOggIsCutIntoPages) {
    EXPECT_STREQ(framer_for("application/ogg").log_name, "Ogg Object");
    EXPECT_NE(std::dynamic_pointer_cast<OggBuffer>(buffer_for("application/ogg")), nullptr);
}

TEST(Framers, AnyOtherTypeIsCutIntoPlainPiecesOfUpToOneMegabyte) {
    EXPECT_STREQ(framer_for("video/nsv").log_name, "Generic Object");
    EXPECT_EQ(buffer_for("video/nsv")->GetPacketBufferSize(), 0x100000U);
    EXPECT_STREQ(framer_for("").log_name, "Generic Object");
}

TEST(Framers, UltravoxCannotBeTaken) { EXPECT_EQ(framer_for("misc/ultravox").make, nullptr); }

TEST(Framers, AacComesBeforeUltravoxAndUltravoxBeforeMpeg) {
    EXPECT_STREQ(framer_for("audio/aac-ultravox").log_name, "AAC Object");
    EXPECT_EQ(framer_for("mpeg/ultravox").make, nullptr);
}

TEST(Framers, WordsAreFoundInTheirOwnCaseOnly) {
    EXPECT_STREQ(framer_for("audio/MPEG").log_name, "Generic Object");
}
