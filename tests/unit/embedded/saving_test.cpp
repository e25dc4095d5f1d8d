// What is saved is what was changed: random changes, looked at again from the file.
#include <array>
#include <random>
#include <sstream>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class SavingTest : public DataSourceTest {
  protected:
    int random(int from, int to) { return std::uniform_int_distribution(from, to)(generator_); }

    // One change in one of two classes; refused ones are as good as others.
    void changeSomething(const DataSource& source) {
        const bool peaks = random(0, 1) == 0;
        const std::uint16_t classCode = peaks ? QAR_CLS_PEAK : QAR_CLS_NUCLIDE;
        const auto record = static_cast<std::uint16_t>(random(1, 7));
        const auto entry = static_cast<std::uint16_t>(random(0, peaks ? 0 : 4));
        const OrvContext c = source.context();
        switch (random(0, 9)) {
            case 0:
                SOrvInsertOne(c, classCode, static_cast<std::int16_t>(record),
                              static_cast<std::int16_t>(entry));
                break;
            case 1:
                SOrvDeleteOne(c, classCode, record, entry);
                break;
            case 2:
                SOrvCopyRecord(c, classCode, record, c, static_cast<std::uint16_t>(random(1, 7)),
                               0);
                break;
            case 3:
                OrvWriteUFBlock(c, QAR_CLS_VORLAGEOM, "bytes", 5, 0);
                break;
            case 4:
                OrvCreateBlock(c, QAR_CLS_VORLAGEOM, 0, -1);
                break;
            case 5:
                SOrvPutSpectrum(c, record, 1, &counter_);
                break;
            case 6:
                changeClasses(source, classCode);
                break;
            default:
                SOrvPutParam(c, valueCode(peaks, entry), record, entry, &value_, sizeof value_);
        }
        ++value_;
        ++counter_;
    }
    void changeClasses(const DataSource& source, std::uint16_t classCode) {
        const OrvContext c = source.context();
        switch (random(0, 5)) {
            case 0:
                SOrvDeleteLevel(c, 1);
                break;
            case 1:
                SOrvDeleteOne(c, QAR_CLS_SPECTRUM, 1, 0);
                break;
            case 2:
                OrvCreateBlock(c, classCode, 0, 0);
                break;
            case 3:
                SOrvClassCopy(c, c, classCode);
                break;
            case 4:
                SOrvSaveAs(c, c);
                break;
            default:
                SOrvSaveAs(other_.context(), c);
        }
    }
    std::uint32_t valueCode(bool peaks, int entry) {
        if (peaks) {
            return random(0, 1) == 0 ? QAR_D_PEAKENERGY : QAR_D_PEAKAREA;
        }
        return entry == 0 ? QAR_D_HALFLIFE : QAR_D_LINEENERGY;
    }

    // Everything that a source holds, as a text.
    static std::string dump(const DataSource& source) {
        std::ostringstream text;
        for (const std::uint16_t classCode : {QAR_CLS_PEAK, QAR_CLS_NUCLIDE}) {
            const int count = source.recordCount(classCode);
            text << " class with " << count;
            for (std::uint16_t record = 1; record <= count; ++record) {
                std::uint16_t entries = 0;
                EXPECT_EQ(0U, SOrvEntryCount(source.context(), classCode, record, &entries));
                text << " record with " << entries;
                for (std::uint16_t entry = 0; entry <= entries; ++entry) {
                    for (const std::uint32_t code :
                         {QAR_D_PEAKENERGY, QAR_D_PEAKAREA, QAR_D_HALFLIFE, QAR_D_LINEENERGY}) {
                        double value = 0;
                        if (SOrvGetParam(source.context(), code, record, entry, &value, 8) == 0) {
                            text << " " << value;
                        }
                    }
                }
            }
        }
        if (source.recordCount(QAR_CLS_SPECTRUM) == 1) {
            for (const std::int32_t channel : source.getSpectrum()) {
                text << " channel " << channel;
            }
        }
        std::array<char, 513> bytes{};
        std::uint32_t chunks = 1;
        OrvReadUFBlock(source.context(), QAR_CLS_VORLAGEOM, 0, bytes.data(), 512, 0, &chunks);
        text << " bytes " << bytes.data();
        return text.str();
    }

    const std::uint32_t seed_ = std::random_device()();
    std::mt19937 generator_{seed_};
    double value_ = 1;
    std::int32_t counter_ = 1;
    DataSource other_ = DataSource::created(file("other.qar"));
};

TEST_F(SavingTest, TheFileHoldsWhatWasInMemory) {
    ASSERT_EQ(0U, other_.put(QAR_D_LINEENERGY, 1.0));
    { static_cast<void>(DataSource::created(file())); }
    for (int round = 0; round < 60; ++round) {
        const auto source = DataSource::opened(file(), writing);
        for (int save = 0; save < 3; ++save) {
            for (int change = random(1, 5); change > 0; --change) {
                changeSomething(source);
            }
            ASSERT_EQ(0U, SOrvFlush(source.context()));
        }
        const std::string inMemory = dump(source);
        ASSERT_EQ(0U, source.close());
        const auto again = DataSource::opened(file(), reading);
        ASSERT_EQ(inMemory, dump(again)) << "seed " << seed_;
        ASSERT_EQ(0U, SOrvReVerify(again.context()));
    }
}

}  // namespace
}  // namespace testing_support
