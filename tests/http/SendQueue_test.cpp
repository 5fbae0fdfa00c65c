#include "http/SendQueue.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

SharedBytes bytes(const std::string& text) {
    return std::make_shared<const std::vector<char>>(text.begin(), text.end());
}

// What a sender would see, at most `count` parts of it.
std::string waiting(const SendQueue& queue, int count = 64) {
    std::vector<iovec> parts(static_cast<std::size_t>(count));
    const int filled = queue.Parts(parts.data(), count);
    std::string text;
    for (int i = 0; i < filled; ++i) {
        const iovec& part = parts[static_cast<std::size_t>(i)];
        text.append(static_cast<const char*>(part.iov_base), part.iov_len);
    }
    return text;
}

} // namespace

TEST(SendQueue, KeepsTheOrderOfReferencesAndTexts) {
    SendQueue queue;
    queue.Push("head ");
    queue.Push(bytes("0123456789"), 2, 5);
    queue.Push(" a text that is too long to stand in the queue itself");
    EXPECT_EQ(waiting(queue), "head 23456 a text that is too long to stand in the queue itself");
    EXPECT_EQ(queue.Bytes(), waiting(queue).size());
}

TEST(SendQueue, PartsAreNoMoreThanAskedFor) {
    SendQueue queue;
    for (const char* text : {"a", "b", "c"})
        queue.Push(text);
    EXPECT_EQ(waiting(queue, 2), "ab");
}

TEST(SendQueue, DropsAtEveryPosition) {
    const std::string all = "one23456and a longer text of its own";
    for (std::size_t first = 0; first <= all.size(); ++first) {
        SendQueue queue;
        queue.Push("one");
        queue.Push(bytes("0123456789"), 2, 5);
        queue.Push("and a longer text of its own");
        queue.Drop(first);
        EXPECT_EQ(waiting(queue), all.substr(first));
        EXPECT_EQ(queue.Bytes(), all.size() - first);
        EXPECT_EQ(queue.Empty(), first == all.size());
    }
}

TEST(SendQueue, NothingIsQueuedForNoBytes) {
    SendQueue queue;
    queue.Push("");
    queue.Push(bytes("abc"), 1, 0);
    EXPECT_TRUE(queue.Empty());
}

TEST(SendQueue, PacketsAreLetGoWhenTheyAreSent) {
    SendQueue queue;
    const SharedBytes first = bytes("abc");
    const SharedBytes second = bytes("def");
    queue.Push(first, 0, 3);
    queue.Push(second, 0, 3);
    EXPECT_EQ(first.use_count(), 2);
    queue.Drop(4);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(second.use_count(), 2);
    queue.Clear();
    EXPECT_EQ(second.use_count(), 1);
    EXPECT_EQ(queue.Bytes(), 0U);
}

TEST(SendQueue, NeverEmptyQueueKeepsItsOrder) {
    SendQueue queue;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string text = std::to_string(i) + ",";
        queue.Push(text);
        expected += text;
        if (i < 3) continue;
        const std::size_t taken = expected.find(',') + 1;
        ASSERT_EQ(waiting(queue, 1), expected.substr(0, taken));
        queue.Drop(taken);
        expected.erase(0, taken);
    }
    EXPECT_EQ(waiting(queue), expected);
}
