#include "parameters/byte_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using Tarsel::Utility::ByteStream;
using testing::Each;
using testing::ElementsAre;

std::vector<int> bytesOf(const ByteStream& stream) {
    return {stream.data(), stream.data() + stream.size()};
}

TEST(ByteStream, StartsEmptyOrZeroed) {
    EXPECT_EQ(ByteStream().data(), nullptr);
    EXPECT_EQ(ByteStream().size(), 0U);
    EXPECT_THAT(bytesOf(ByteStream(300)), Each(0));
}

TEST(ByteStream, GrowKeepsTheFrontAndZeroesTheRest) {
    ByteStream stream(4);
    std::memcpy(stream.data(), "abcd", 4);
    stream.grow(3);
    EXPECT_THAT(bytesOf(stream), ElementsAre('a', 'b', 'c', 'd'));
    stream.grow(6);
    EXPECT_THAT(bytesOf(stream), ElementsAre('a', 'b', 'c', 'd', 0, 0));
}

TEST(ByteStream, AllocateZeroesAlsoAtTheSameSize) {
    ByteStream stream(2);
    for (const std::uint32_t size : {2U, 1U, 5U, 0U}) {
        if (stream.size() != 0) {
            std::memset(stream.data(), 0xFF, stream.size());
        }
        EXPECT_EQ(stream.allocate(size), size);
        EXPECT_EQ(stream.size(), size);
        EXPECT_THAT(bytesOf(stream), Each(0));
    }
    EXPECT_EQ(stream.data(), nullptr);
}

TEST(ByteStream, ClearFreesTheBytes) {
    ByteStream stream(8);
    stream.clear();
    EXPECT_EQ(stream.size(), 0U);
    EXPECT_EQ(stream.data(), nullptr);
}

}  // namespace
