// The search for nuclide records.
#include <array>
#include <limits>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

constexpr std::int32_t byName = 2;
constexpr std::int32_t byEnergy = 4;

constexpr std::int32_t after(int record) {
    return record << 16;
}

struct Found {
    OrvStatus status;
    std::uint16_t record;
    std::uint32_t entry;

    bool operator==(const Found&) const = default;
};

class SearchTest : public testing::Test {
  protected:
    SearchTest() {
        source_.putNuclide(1, "Co-60", {1173.2, 1332.5});
        source_.putNuclide(2, "Co-57", {122.1, 136.5});
        source_.putNuclide(3, "Cs-137", {661.657});
        source_.putNuclide(4, "co", {500.0, 511.0});
        source_.putNuclide(5, "Na-22", {1274.5, 511.0});
    }
    [[nodiscard]] Found find(std::int32_t kind, const void* key, std::int32_t option) const {
        Found found{0, 0, 0};
        found.status =
            SOrvFindRecord(source_.context(), kind, key, option, &found.record, &found.entry);
        return found;
    }

    TemporaryFolder folder_;
    DataSource source_ = DataSource::created(folder_.file("nuclides.qar"));
};

TEST_F(SearchTest, NamesMatchExactlyFirstAndThenByTheirBeginning) {
    struct Case {
        const char* name;
        std::int32_t option;
        Found found;
    };
    for (const Case& wanted :
         {Case{"CO-57", 0, {0, 2, 0}}, Case{"Co", 0, {0, 4, 0}}, Case{"cs", 0, {0, 3, 0}},
          Case{"Co", 2, {0, 1, 0}}, Case{"Co", after(1) | 2, {0, 2, 0}},
          Case{"Cs", 1, {codes::notFound, 0, 0}}, Case{"Cs-1370", 0, {codes::notFound, 0, 0}},
          Case{"Co-57", after(2), {codes::notFound, 0, 0}}, Case{"", 0, {codes::notFound, 0, 0}},
          Case{"Co", 3, {codes::unknownItem, 0, 0}}, Case{"Co", 256, {codes::unknownItem, 0, 0}}}) {
        EXPECT_EQ(wanted.found, find(byName, wanted.name, wanted.option))
            << wanted.name << ' ' << wanted.option;
    }
    EXPECT_EQ(codes::notFound, find(byName, std::string(10000, 'n').c_str(), 0).status);
}

TEST_F(SearchTest, EnergiesMatchWithinTheTolerance) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        std::array<float, 2> key;
        std::int32_t option;
        Found found;
    };
    for (const Case& wanted :
         {Case{{661.657F, 0.0F}, 0, {0, 3, 1}}, Case{{1330.0F, 3.0F}, 0, {0, 1, 2}},
          Case{{130.0F, 10.0F}, 0, {0, 2, 2}}, Case{{130.0F, 10.0F}, 1, {0, 2, 1}},
          Case{{511.0F, 1.0F}, 0, {0, 4, 2}}, Case{{511.0F, 1.0F}, after(4), {0, 5, 2}},
          Case{{510.0F, 20.0F}, 1, {0, 4, 1}}, Case{{700.0F, 10.0F}, 0, {codes::notFound, 0, 0}},
          Case{{-1.0F, 5.0F}, 0, {codes::keyRefused, 0, 0}},
          Case{{1.0F, -5.0F}, 0, {codes::keyRefused, 0, 0}},
          Case{{notANumber, 5.0F}, 0, {codes::keyRefused, 0, 0}},
          Case{{1.0F, infinity}, 0, {codes::keyRefused, 0, 0}},
          Case{{1.0F, 5.0F}, 2, {codes::unknownItem, 0, 0}}}) {
        EXPECT_EQ(wanted.found, find(byEnergy, wanted.key.data(), wanted.option))
            << wanted.key[0] << ' ' << wanted.option;
    }
    EXPECT_EQ(codes::unknownItem, find(3, "key that is not read", 0).status);
}

TEST_F(SearchTest, ChangedLinesAreFoundWhereTheyAre) {
    const std::array<float, 2> key = {661.657F, 0.5F};
    EXPECT_EQ(3, find(byEnergy, key.data(), 0).record);
    ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_NUCLIDE, 1, 0));
    EXPECT_EQ(2, find(byEnergy, key.data(), 0).record);
    ASSERT_EQ(0U, source_.put(QAR_D_LINEENERGY, 700.0, 2, 1));
    EXPECT_EQ(codes::notFound, find(byEnergy, key.data(), 0).status);
    ASSERT_EQ(0U, source_.put(QAR_D_LINEENERGY, 661.5, 2, 1));
    EXPECT_EQ(2, find(byEnergy, key.data(), 0).record);
    const auto empty = DataSource::created(folder_.file("empty.qar"));
    ASSERT_EQ(0U, SOrvSaveAs(empty.context(), source_.context()));
    EXPECT_EQ(codes::notFound, find(byEnergy, key.data(), 0).status);
}

}  // namespace
}  // namespace testing_support
