// Spectra and unformatted blocks.
#include <array>
#include <map>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;
using testing::ElementsAre;

class BlocksTest : public DataSourceTest {
  protected:
    // These return a failure code, or 0 on success.
    [[nodiscard]] std::uint32_t createBlock(std::uint16_t classCode, std::int32_t size,
                                            std::int32_t option = 0) const {
        return source_.failure(OrvCreateBlock(source_.context(), classCode, size, option));
    }
    [[nodiscard]] std::uint32_t write(const std::string& bytes) const {
        return source_.failure(OrvWriteUFBlock(source_.context(), QAR_CLS_VORLAGEOM, bytes.data(),
                                               static_cast<std::uint32_t>(bytes.size()), 0x40));
    }
    [[nodiscard]] std::uint32_t read(std::uint32_t offset, std::string& bytes) {
        return source_.failure(OrvReadUFBlock(source_.context(), QAR_CLS_VORLAGEOM, offset,
                                              bytes.data(), 512, 0, &chunks_));
    }

    DataSource source_ = DataSource::created(file());
    std::uint32_t chunks_ = 1;
};

TEST_F(BlocksTest, SpectrumBeyondChannelCountIsRefused) {
    const std::array<std::int32_t, 2> contents = {7, 8};
    const auto put = [&](std::uint16_t first, std::uint16_t count) {
        return SOrvPutSpectrum(source_.context(), first, count, contents.data());
    };
    EXPECT_EQ(0U, put(1, 0));
    EXPECT_EQ(0, source_.recordCount(QAR_CLS_SPECTRUM));
    ASSERT_EQ(0U, source_.put(QAR_L_CHANNELS, std::int32_t{4}));
    EXPECT_EQ(codes::sizeRefused, source_.putSpectrum({1, 2, 3, 4, 5}));
    EXPECT_THAT(source_.getSpectrum(), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(0U, put(3, 2));
    EXPECT_EQ(codes::sizeRefused, put(4, 2));
    EXPECT_EQ(codes::sizeRefused, put(0, 1));
    EXPECT_THAT(source_.getSpectrum(), ElementsAre(0, 0, 7, 8));
    ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_SPECTRUM, 1, 0));
    ASSERT_EQ(0U, source_.put(QAR_L_CHANNELS, std::int32_t{65535}));
    EXPECT_EQ(0U, put(65534, 2));
    EXPECT_EQ(codes::sizeRefused, put(65535, 2));
}

TEST_F(BlocksTest, UnformattedBlockIsReadInChunksAfterReopening) {
    ASSERT_EQ(0U, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
    ASSERT_EQ(0U, write(std::string(512, 'a')));
    ASSERT_EQ(0U, write(std::string(300, 'b')));
    ASSERT_EQ(0U, source_.close());
    ASSERT_EQ(0U, source_.open(file(), writing));
    const std::vector<std::string> chunks = {std::string(512, 'a'),
                                             std::string(300, 'b') + std::string(212, '\0')};
    std::string chunk(512, '?');
    for (std::uint32_t number = 0; number < 2; ++number) {
        EXPECT_EQ(0U, read(512 * number, chunk));
        EXPECT_EQ(chunks[number], chunk);
        EXPECT_EQ(1U, chunks_);
    }
    EXPECT_EQ(0U, read(812, chunk));
    EXPECT_EQ(std::string(512, '\0'), chunk);
    EXPECT_EQ(0U, chunks_);
    EXPECT_EQ(codes::sizeRefused, read(813, chunk));
    ASSERT_EQ(0U, createBlock(QAR_CLS_VORLAGEOM, 0));
    EXPECT_EQ(0U, read(812, chunk)) << "creating an existing block keeps its content";
}

TEST_F(BlocksTest, OldContentIsReadableDuringRefilling) {
    ASSERT_EQ(0U, write(std::string(512, 'a') + std::string(512, 'b')));
    std::string chunk(512, '?');
    ASSERT_EQ(0U, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
    for (const std::uint32_t offset : {0U, 512U}) {
        ASSERT_EQ(0U, read(offset, chunk));
        ASSERT_EQ(0U, write(chunk));
    }
    EXPECT_EQ(0U, read(512, chunk));
    EXPECT_EQ(std::string(512, 'b'), chunk);
    for (const auto& [written, size] : std::map<std::string, std::uint32_t>{{"", 1024}, {"c", 1}}) {
        ASSERT_EQ(0U, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
        ASSERT_EQ(written.empty() ? codes::sizeRefused : 0, write(written));
        ASSERT_EQ(0U, source_.close());
        ASSERT_EQ(0U, source_.open(file(), writing));
        EXPECT_EQ(0U, read(size, chunk)) << written;
        EXPECT_EQ(codes::sizeRefused, read(size + 1, chunk)) << written;
    }
}

TEST_F(BlocksTest, RestartedRefillingKeepsBytesOfTheFirstOne) {
    ASSERT_EQ(0U, write(std::string(512, 'a')));
    ASSERT_EQ(0U, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
    ASSERT_EQ(0U, write("first"));
    ASSERT_EQ(0U, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
    std::string chunk(512, '?');
    EXPECT_EQ(0U, read(5, chunk));
    EXPECT_EQ(0U, chunks_);
    EXPECT_EQ(codes::sizeRefused, read(6, chunk));
}

TEST_F(BlocksTest, FailedSaveDoesNotEndRefilling) {
    ASSERT_EQ(0U, write(std::string(20000, 'a')));
    ASSERT_EQ(0U, SOrvFlush(source_.context()));
    ASSERT_EQ(0U, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
    ASSERT_EQ(0U, write(std::string(10000, 'b')));
    onFullDisk([this] { EXPECT_EQ(codes::storageFailed, SOrvFlush(source_.context())); });
    std::string chunk(512, '?');
    ASSERT_EQ(0U, read(19488, chunk));
    EXPECT_EQ(std::string(512, 'a'), chunk);
    ASSERT_EQ(0U, write("end"));
    ASSERT_EQ(0U, source_.close());
    ASSERT_EQ(0U, source_.open(file(), reading));
    ASSERT_EQ(0U, read(10000, chunk));
    EXPECT_EQ(0, chunk.compare(0, 4, "end", 4));
    EXPECT_EQ(codes::sizeRefused, read(10004, chunk));
}

TEST_F(BlocksTest, UnformattedBlockAbove64MebibytesIsRefused) {
    std::string chunk(1U << 20U, 'x');
    for (int megabyte = 0; megabyte < 64; ++megabyte) {
        ASSERT_EQ(0U, write(chunk));
    }
    EXPECT_EQ(codes::sizeRefused, write("y"));
    EXPECT_EQ(0U, SOrvFlush(source_.context()));
    EXPECT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_VORLAGEOM, 1, 0));
    EXPECT_EQ(codes::noBlock, read(0, chunk));
}

TEST_F(BlocksTest, BlockWithInvalidSizeOptionOrClassIsRefused) {
    EXPECT_EQ(codes::sizeRefused, createBlock(QAR_CLS_SPECTRUM, -1));
    EXPECT_EQ(codes::sizeRefused, createBlock(QAR_CLS_SPECTRUM, 65536));
    EXPECT_EQ(0U, createBlock(QAR_CLS_SPECTRUM, 65535));
    EXPECT_EQ(codes::sizeRefused, createBlock(QAR_CLS_ANALCNTL, -1));
    EXPECT_EQ(codes::sizeRefused, createBlock(QAR_CLS_VORLAGEOM, 0x7FFFFFFF));
    EXPECT_EQ(codes::unknownItem, createBlock(QAR_CLS_SPECTRUM, 256, -1));
    EXPECT_EQ(codes::unknownItem, createBlock(QAR_CLS_VORLAGEOM, 0, 5));
    EXPECT_EQ(codes::unknownClass, createBlock(0, 0));
    EXPECT_EQ(codes::unknownClass, createBlock(0xFFFF, 0));
}

}  // namespace
}  // namespace testing_support
