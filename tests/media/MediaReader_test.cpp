#include "media/MediaReader.h"

#include "support/ByteReader.h"
#include "support/LoopbackPair.h"

#include <gtest/gtest.h>

namespace {

// Receives from its socket whatever it is asked for.
class PlainReader : public MediaReader {
public:
    using MediaReader::MediaReader;
    int Receive(int length) {
        std::string bytes(static_cast<std::size_t>(length), '\0');
        return receive(bytes.data(), length, 0);
    }
};

} // namespace

TEST(MediaReader, BaseReadFails) {
    char byte = 0;
    EXPECT_EQ(MediaReader().Read(&byte, 0, 1), IO_FAILED);
}

TEST(MediaReader, WithoutASocketThereIsNothingToReadAndNoAddress) {
    PlainReader reader;
    EXPECT_EQ(reader.Receive(1), IO_FAILED);
    EXPECT_EQ(reader.GetIP(), "");
    EXPECT_EQ(reader.GetSocket(), nullptr);
    EXPECT_EQ(reader.GetBytesRead(), 0U);
    EXPECT_EQ(reader.GetMetaData(), nullptr);
    EXPECT_EQ(reader.GetBytesPerSecond(false), 0U);
}

TEST(MediaReader, NamesItsPeer) {
    const LoopbackPair pair;
    EXPECT_EQ(MediaReader(pair.server).GetIP(), "127.0.0.1");
}

TEST(MediaReader, CountsTheBytesOfAllItsSockets) {
    const LoopbackPair first;
    const LoopbackPair second;
    first.Send("12345");
    second.Send("678");
    PlainReader reader(first.server);
    EXPECT_EQ(reader.Receive(5), 5);
    reader.SetSocket(second.server);
    EXPECT_EQ(reader.GetSocket(), second.server);
    EXPECT_EQ(reader.GetBytesRead(), 5U);
    EXPECT_EQ(reader.Receive(3), 3);
    EXPECT_EQ(reader.GetBytesRead(), 8U);
}

TEST(MediaReader, ContinuesTheCountAndTheRecordOfAnother) {
    const LoopbackPair pair;
    pair.Send("12345");
    PlainReader former(pair.server);
    EXPECT_EQ(former.Receive(5), 5);
    ByteReader with_record("");
    with_record.SetMetaData(std::make_shared<METADATA>());
    with_record.Continue(former);
    EXPECT_EQ(with_record.GetBytesRead(), 5U);
    EXPECT_EQ(with_record.GetMetaData(), nullptr);

    const auto record = std::make_shared<METADATA>();
    with_record.SetMetaData(record);
    PlainReader next;
    next.Continue(with_record);
    EXPECT_EQ(next.GetBytesRead(), 5U);
    EXPECT_EQ(next.GetMetaData(), record);
}
