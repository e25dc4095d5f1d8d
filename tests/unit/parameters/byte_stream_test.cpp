#include "parameters/byte_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using Tarsel::Utility::ByteStream;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

std::vector<int> bytesOf(const ByteStream& stream) {
    return {stream.data(), stream.data() + stream.size()};
}

TEST(ByteStream, GrowAppendsZerosAndAllocateClears) {
    ByteStream stream(2);
    EXPECT_THAT(bytesOf(stream), ElementsAre(0, 0));
    std::memcpy(stream.data(), "ab", 2);
    stream.grow(1);
    EXPECT_THAT(bytesOf(stream), ElementsAre('a', 'b'));
    stream.grow(4);
    EXPECT_THAT(bytesOf(stream), ElementsAre('a', 'b', 0, 0));
    for (const std::uint32_t size : {4U, 1U, 5U, 0U}) {
        std::memset(stream.data(), 0xFF, stream.size());
        EXPECT_EQ(size, stream.allocate(size));
        EXPECT_THAT(bytesOf(stream), AllOf(SizeIs(size), Each(0)));
    }
    EXPECT_EQ(nullptr, stream.data());
}

}  // namespace
