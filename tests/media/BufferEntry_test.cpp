#include "media/BufferEntry.h"

#include <gtest/gtest.h>

TEST(BufferEntry, KnowsItsSizeAndIsOrdinaryUnlessToldOtherwise) {
    const BufferEntry entry({'a', 'b', 'c'});
    EXPECT_EQ(entry.size, 3U);
    EXPECT_EQ(entry.header_id, 0U);
    EXPECT_EQ(entry.GetMetaData(), nullptr);
}

TEST(BufferEntry, BeginsTheRecordItIsGiven) {
    const auto record = std::make_shared<METADATA>();
    BufferEntry entry({'a'}, 7, record);
    EXPECT_EQ(entry.header_id, 7U);
    EXPECT_EQ(entry.GetMetaData(), record);
    entry.SetMetaData(nullptr);
    EXPECT_EQ(entry.GetMetaData(), nullptr);
}

TEST(BufferEntry, ItsBytesKeepThePacketAndAreNotCopied) {
    auto entry = std::make_shared<BufferEntry>(std::vector<char>{'a', 'b'});
    const char* data = entry->data.data();
    const SharedBytes bytes = BufferEntry::Bytes(entry);
    entry.reset();
    EXPECT_EQ(bytes->data(), data);
    EXPECT_EQ(bytes->size(), 2U);
}
