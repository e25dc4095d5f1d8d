// Files that another program changed.
#include <sqlite3.h>

#include <memory>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class DamageTest : public DataSourceTest {
  protected:
    DamageTest() {
        const auto source = DataSource::created(file());
        EXPECT_EQ(0U, source.put(QAR_C_NUCLNAME, "Cs-137"));
        EXPECT_EQ(0U, source.put(QAR_D_LINEENERGY, 661.657));
        EXPECT_EQ(0U, source.putSpectrum(std::vector<std::int32_t>(4096, 1)));
    }
    // Changes the file as another program would.
    void change(const std::string& sql) const {
        sqlite3* opened = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(file().c_str(), &opened));
        const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database(opened, sqlite3_close);
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(opened, sql.c_str(), nullptr, nullptr, nullptr)) << sql;
    }
};

class BrokenContent : public DamageTest, public testing::WithParamInterface<const char*> {};

TEST_P(BrokenContent, IsRefusedAsDamaged) {
    change(GetParam());
    const DataSource source;
    EXPECT_EQ(codes::openedWithRemark, source.open(file(), writing));
    EXPECT_EQ(0x200U, source.openingState());
    EXPECT_EQ(-1, OrvDataSourceOpening(source.context(), file().c_str(), 1, 0x81, 0, nullptr));
    // What was refused is released: a sound file opens on the same context.
    EXPECT_EQ(0U, source.create(file("sound.qar")));
}

INSTANTIATE_TEST_SUITE_P(
    Damage, BrokenContent,
    testing::Values("PRAGMA user_version = 2", "DROP TABLE value",
                    "ALTER TABLE value RENAME COLUMN bytes TO octets",
                    "UPDATE block SET content = x'010203' WHERE class = 0x2005",
                    "UPDATE block SET content = zeroblob(4 * 65536) WHERE class = 0x2005",
                    "UPDATE block SET class = 0x3000 WHERE class = 0x2004",
                    "DELETE FROM block WHERE class = 0x2004",
                    "UPDATE value SET bytes = x'01' WHERE code = 0x20040010",
                    "UPDATE value SET bytes = zeroblob(300) WHERE code = 0x20040001",
                    "UPDATE value SET bytes = x'430043' WHERE code = 0x20040001",
                    "UPDATE value SET entry = 1 WHERE code = 0x20040001",
                    "UPDATE value SET entry = 2 WHERE code = 0x20040010",
                    "UPDATE value SET record = 65536",
                    "UPDATE value SET code = -1 WHERE code = 0x20040001",
                    "INSERT INTO place VALUES(0x2004, 3, 0)",
                    "INSERT INTO place VALUES(0x2004, 1, 3)",
                    "INSERT INTO place VALUES(0x2005, 1, 0)", "DELETE FROM place"));

TEST_F(DamageTest, ValuesThatTheDictionaryDoesNotKnowAreKept) {
    change("INSERT INTO value VALUES(0x2004FFFF, 1, 0, x'0102')");
    {
        const auto source = DataSource::opened(file(), writing);
        EXPECT_EQ(codes::unknownParameter, source.put(0x2004FFFF, 1.0));
        ASSERT_EQ(0U, source.put(QAR_D_HALFLIFE, 1.0));
    }
    // Fails unless the value is still there.
    change("INSERT INTO block SELECT 0x4006, bytes FROM value WHERE code = 0x2004FFFF");
    EXPECT_EQ(1, DataSource::opened(file(), reading).recordCount(0x4006));
}

TEST_F(DamageTest, WhatAFileBringsAlongIsNotRun) {
    change("CREATE TRIGGER intruder AFTER INSERT ON value BEGIN DELETE FROM block; END");
    { ASSERT_EQ(0U, DataSource::opened(file(), writing).put(QAR_D_HALFLIFE, 1.0)); }
    EXPECT_EQ(4096U, DataSource::opened(file(), reading).getSpectrum().size());
}

TEST_F(DamageTest, VerifyingNoticesDamageWhileTheFileIsOpen) {
    const auto source = DataSource::opened(file(), reading);
    EXPECT_EQ(0U, SOrvReVerify(source.context()));
    change("UPDATE value SET bytes = x'01' WHERE code = 0x20040010");
    EXPECT_EQ(codes::damaged, SOrvReVerify(source.context()));
    EXPECT_EQ(codes::damaged, SOrvControlDSC(source.context(), 3, 0));
    EXPECT_EQ(661.657, source.get<double>(QAR_D_LINEENERGY));
}

}  // namespace
}  // namespace testing_support
