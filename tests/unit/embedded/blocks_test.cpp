// Spectra and unformatted blocks.
#include <array>
#include <map>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;
using testing::Each;
using testing::ElementsAre;

class BlocksTest : public testing::Test {
  protected:
    [[nodiscard]] OrvResult createBlock(std::uint16_t classCode, std::int32_t size,
                                        std::int32_t option = 0) const {
        return OrvCreateBlock(source_.context(), classCode, size, option);
    }
    [[nodiscard]] OrvResult write(const std::string& bytes) const {
        return OrvWriteUFBlock(source_.context(), QAR_CLS_VORLAGEOM, bytes.data(),
                               static_cast<std::uint32_t>(bytes.size()), 0x40);
    }
    [[nodiscard]] OrvResult read(std::uint32_t offset, std::string& bytes) {
        return OrvReadUFBlock(source_.context(), QAR_CLS_VORLAGEOM, offset, bytes.data(),
                              static_cast<std::uint32_t>(bytes.size()), 0, &chunks_);
    }

    TemporaryFolder folder_;
    std::string path_ = folder_.file("blocks.qar");
    DataSource source_ = DataSource::created(path_);
    std::uint32_t chunks_ = 1;
};

TEST_F(BlocksTest, ANewSpectrumHoldsZerosAndGivesTheChannelCount) {
    EXPECT_EQ(codes::notSet, source_.readStatus(QAR_L_CHANNELS));
    EXPECT_EQ(0, source_.recordCount(QAR_CLS_SPECTRUM));
    ASSERT_EQ(0, createBlock(QAR_CLS_SPECTRUM, 512));
    EXPECT_EQ(512U, source_.getSpectrum().size());
    EXPECT_THAT(source_.getSpectrum(), Each(0));
    EXPECT_EQ(1, source_.recordCount(QAR_CLS_SPECTRUM));
    EXPECT_EQ(512, source_.entryCount(QAR_CLS_SPECTRUM, 1));
}

TEST_F(BlocksTest, CreatingASpectrumAgainKeepsItsContent) {
    ASSERT_EQ(0U, source_.putSpectrum({1, 2, 3, 4}));
    ASSERT_EQ(0, createBlock(QAR_CLS_SPECTRUM, 2));
    ASSERT_EQ(0, createBlock(QAR_CLS_SPECTRUM, 6));
    EXPECT_THAT(source_.getSpectrum(), ElementsAre(1, 2, 3, 4, 0, 0));
}

TEST_F(BlocksTest, TheChannelCountLimitsTheSpectrum) {
    ASSERT_EQ(0U, source_.put(QAR_L_CHANNELS, std::int32_t{4}));
    EXPECT_EQ(codes::sizeRefused, source_.putSpectrum({1, 2, 3, 4, 5}));
    EXPECT_EQ(0, source_.recordCount(QAR_CLS_SPECTRUM));
    EXPECT_THAT(source_.getSpectrum(), ElementsAre(0, 0, 0, 0));
    const std::array<std::int32_t, 2> contents = {7, 8};
    EXPECT_EQ(0U, SOrvPutSpectrum(source_.context(), 3, 2, contents.data()));
    EXPECT_THAT(source_.getSpectrum(), ElementsAre(0, 0, 7, 8));
    EXPECT_EQ(codes::sizeRefused, SOrvPutSpectrum(source_.context(), 4, 2, contents.data()));
    EXPECT_EQ(codes::sizeRefused, SOrvPutSpectrum(source_.context(), 0, 1, contents.data()));
    EXPECT_THAT(source_.getSpectrum(), ElementsAre(0, 0, 7, 8));
}

TEST_F(BlocksTest, NoChannelsAreNothingToDo) {
    std::int32_t channel = 5;
    EXPECT_EQ(0U, SOrvPutSpectrum(source_.context(), 1, 0, &channel));
    EXPECT_EQ(0U, SOrvGetSpectrum(source_.context(), 1, 0, 0, &channel));
    EXPECT_EQ(0, source_.recordCount(QAR_CLS_SPECTRUM));
    EXPECT_EQ(codes::noBlock, SOrvGetSpectrum(source_.context(), 1, 1, 0, &channel));
    EXPECT_EQ(5, channel);
}

TEST_F(BlocksTest, ASpectrumHasAtMost65535Channels) {
    const std::array<std::int32_t, 2> contents = {7, 8};
    EXPECT_EQ(0U, SOrvPutSpectrum(source_.context(), 65534, 2, contents.data()));
    EXPECT_EQ(codes::sizeRefused, SOrvPutSpectrum(source_.context(), 65535, 2, contents.data()));
    EXPECT_EQ(65535, source_.get<std::int32_t>(QAR_L_CHANNELS));
}

TEST_F(BlocksTest, BytesComeBackInChunksAfterClosing) {
    ASSERT_EQ(0, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
    ASSERT_EQ(0, write(std::string(512, 'a')));
    ASSERT_EQ(0, write(std::string(300, 'b')));
    ASSERT_EQ(0U, source_.close());
    ASSERT_EQ(0U, source_.open(path_, Writing));
    std::string chunk(512, '?');
    EXPECT_EQ(0, read(0, chunk));
    EXPECT_EQ(std::string(512, 'a'), chunk);
    EXPECT_EQ(1U, chunks_);
    EXPECT_EQ(0, read(512, chunk));
    EXPECT_EQ(std::string(300, 'b') + std::string(212, '\0'), chunk);
    EXPECT_EQ(0, read(812, chunk));
    EXPECT_EQ(std::string(512, '\0'), chunk);
    EXPECT_EQ(0U, chunks_);
    EXPECT_EQ(-1, read(813, chunk));
    EXPECT_EQ(codes::sizeRefused, source_.lastFailure());
    ASSERT_EQ(0, createBlock(QAR_CLS_VORLAGEOM, 0));
    EXPECT_EQ(0, read(812, chunk));
}

TEST_F(BlocksTest, ABlockCanBeRefilledFromItself) {
    ASSERT_EQ(0, write(std::string(512, 'a') + std::string(512, 'b')));
    std::string chunk(512, '?');
    ASSERT_EQ(0, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
    for (const std::uint32_t offset : {0U, 512U}) {
        ASSERT_EQ(0, read(offset, chunk));
        ASSERT_EQ(0, write(chunk));
    }
    EXPECT_EQ(0, read(512, chunk));
    EXPECT_EQ(std::string(512, 'b'), chunk);
    for (const auto& [written, size] : std::map<std::string, std::uint32_t>{{"", 1024}, {"c", 1}}) {
        ASSERT_EQ(0, createBlock(QAR_CLS_VORLAGEOM, 0, -1));
        ASSERT_EQ(written.empty() ? -1 : 0, write(written));
        ASSERT_EQ(0U, SOrvFlush(source_.context()));
        EXPECT_EQ(0, read(size, chunk)) << written;
        EXPECT_EQ(-1, read(size + 1, chunk)) << written;
    }
}

TEST_F(BlocksTest, AnUnformattedBlockHasABound) {
    const std::string chunk(1U << 20U, 'x');
    for (int megabyte = 0; megabyte < 64; ++megabyte) {
        ASSERT_EQ(0, write(chunk));
    }
    EXPECT_EQ(-1, write("y"));
    EXPECT_EQ(-1, write(chunk + "y"));
    EXPECT_EQ(codes::sizeRefused, source_.lastFailure());
    EXPECT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_VORLAGEOM, 1, 0));
    std::string none(1, '?');
    EXPECT_EQ(-1, read(0, none));
    EXPECT_EQ(codes::noBlock, source_.lastFailure());
}

TEST_F(BlocksTest, BlocksThatCannotBeMadeAreRefused) {
    struct Case {
        std::uint16_t classCode;
        std::int32_t size;
        std::int32_t option;
        std::uint32_t code;
    };
    for (const Case& refused :
         {Case{QAR_CLS_SPECTRUM, -1, 0, codes::sizeRefused},
          Case{QAR_CLS_SPECTRUM, 65536, 0, codes::sizeRefused},
          Case{QAR_CLS_SPECTRUM, 256, -1, codes::unknownItem},
          Case{QAR_CLS_ANALCNTL, -1, 0, codes::sizeRefused},
          Case{QAR_CLS_VORLAGEOM, 0x7FFFFFFF, 0, codes::sizeRefused},
          Case{QAR_CLS_VORLAGEOM, 0, 5, codes::unknownItem}, Case{0, 0, 0, codes::unknownClass},
          Case{0xFFFF, 0, 0, codes::unknownClass}}) {
        EXPECT_EQ(-1, createBlock(refused.classCode, refused.size, refused.option));
        EXPECT_EQ(refused.code, source_.lastFailure()) << std::hex << refused.classCode;
    }
}

TEST_F(BlocksTest, KindsOfClassesAreNotMixed) {
    std::string chunk(8, 'x');
    EXPECT_EQ(-1, OrvWriteUFBlock(source_.context(), QAR_CLS_PEAK, chunk.data(), 8, 0));
    EXPECT_EQ(codes::unknownClass, source_.lastFailure());
    EXPECT_EQ(-1,
              OrvReadUFBlock(source_.context(), QAR_CLS_SPECTRUM, 0, chunk.data(), 8, 0, &chunks_));
    EXPECT_EQ(codes::unknownClass, source_.lastFailure());
    for (const std::uint16_t classCode : {QAR_CLS_SPECTRUM, QAR_CLS_VORLAGEOM}) {
        EXPECT_EQ(codes::unknownClass, SOrvInsertOne(source_.context(), classCode, 1, 0));
    }
}

}  // namespace
}  // namespace testing_support
