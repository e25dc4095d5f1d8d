// Files that another program changed.
#include <filesystem>
#include <fstream>

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
    void change(const std::string& sql) const { program(sql); }
    // Does the work on the file after each of the changes alone.
    void afterEach(const std::vector<std::string>& changes, const std::function<void()>& work) {
        std::filesystem::copy_file(file(), file("sound"));
        for (const std::string& sql : changes) {
            SCOPED_TRACE(sql);
            change(sql);
            work();
            std::filesystem::copy_file(file("sound"), file(),
                                       std::filesystem::copy_options::overwrite_existing);
        }
    }
};

// What is seen at the opening: the schema and the classes.
TEST_F(DamageTest, ABrokenFileIsRefusedAtTheOpening) {
    const std::vector<std::string> changes = {
        "PRAGMA user_version = 2",
        "DROP TABLE value",
        "ALTER TABLE value RENAME COLUMN bytes TO octets",
        "ALTER TABLE block ADD COLUMN size AS (length(content))",
        "DROP TABLE value; CREATE TABLE value(code INTEGER, record INTEGER, entry INTEGER,"
        " bytes BLOBNOT NULL, PRIMARY KEY(code, record, entry)) WITHOUT ROWID",
        "ALTER TABLE value RENAME TO held; CREATE VIEW value AS SELECT * FROM held",
        "CREATE UNIQUE INDEX single ON value(bytes)",
        "CREATE INDEX computed ON value(length(bytes))",
        "CREATE INDEX partial ON value(bytes) WHERE length(bytes) > 1",
        "UPDATE block SET class = 0x3000 WHERE class = 0x2004",
        "UPDATE block SET class = class - 0x100000000 WHERE class = 0x2004"};
    afterEach(changes, [this] {
        const DataSource source;
        EXPECT_EQ(codes::openedWithRemark, source.open(file(), writing));
        EXPECT_EQ(0x200U, source.openingState());
        EXPECT_EQ(-1, OrvDataSourceOpening(source.context(), file().c_str(), 1, 0x81, 0, nullptr));
        // What was refused is released: a sound file opens on the same context.
        EXPECT_EQ(0U, source.open(file("sound"), writing));
    });
}

// What is seen when the class is read for the first time.
TEST_F(DamageTest, ABrokenClassIsRefusedAloneAndMakesTheSourceReadOnly) {
    const std::vector<std::string> changes = {
        "UPDATE value SET bytes = x'01' WHERE code = 0x20040010",
        "UPDATE value SET bytes = printf('%17s', 'no room') WHERE code = 0x20040001",
        "UPDATE value SET bytes = x'430043' WHERE code = 0x20040001",
        "UPDATE value SET entry = 1 WHERE code = 0x20040001",
        "UPDATE value SET entry = 2 WHERE code = 0x20040010",
        "UPDATE value SET record = 65536 WHERE code = 0x20040010",
        "UPDATE value SET record = 'one' WHERE code = 0x20040010",
        "INSERT INTO value VALUES(0x2004FFFF, 1, 0, zeroblob(65536))",
        "INSERT INTO place VALUES(0x2004, 3, 0)",
        "INSERT INTO place VALUES(0x2004, 1, 3)",
        "DELETE FROM place"};
    const auto copy = DataSource::created(file("copy.qar"));
    afterEach(changes, [&] {
        const auto source = DataSource::opened(file(), writing);
        ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
        for (int reading = 0; reading < 2; ++reading) {
            EXPECT_EQ(-1, source.recordCount(QAR_CLS_NUCLIDE));
            EXPECT_EQ(codes::damaged, source.lastFailure());
        }
        EXPECT_EQ(codes::readOnly, source.put(QAR_D_LIVETIME, 2.0));
        EXPECT_EQ(0x7U, source.sourceState());
        EXPECT_EQ(codes::damaged, SOrvReVerify(source.context()));
        ASSERT_EQ(0U, copy.putSpectrum({1}));
        EXPECT_EQ(0U, SOrvClassCopy(source.context(), copy.context(), QAR_CLS_SPECTRUM));
        EXPECT_EQ(4096U, copy.getSpectrum().size());
        EXPECT_EQ(codes::damaged, SOrvSaveAs(source.context(), copy.context()));
        // What was written before is saved.
        EXPECT_EQ(0U, source.close());
        EXPECT_EQ(1.0, DataSource::opened(file(), reading).get<double>(QAR_D_LIVETIME));
        ASSERT_EQ(0U, SOrvDeleteOne(copy.context(), QAR_CLS_SPECTRUM, 1, 0));
    });
}

TEST_F(DamageTest, AClassOfWhichOnlyRowsAreLeftIsRefusedAndNotMadeAnew) {
    change("DELETE FROM block WHERE class = 0x2004");
    const auto source = DataSource::opened(file(), writing);
    EXPECT_EQ(0, source.recordCount(QAR_CLS_PEAK));
    EXPECT_EQ(codes::damaged, source.put(QAR_C_NUCLNAME, "Co-60"));
    EXPECT_EQ(codes::readOnly, source.put(QAR_D_LIVETIME, 1.0));
    change("INSERT INTO block VALUES(0x2004, NULL)");
    EXPECT_EQ(0U, SOrvReVerify(source.context()));
    EXPECT_EQ(0U, source.put(QAR_C_NUCLNAME, "Co-60"));
}

TEST_F(DamageTest, ABrokenSpectrumIsRefused) {
    afterEach({"UPDATE block SET content = x'010203' WHERE class = 0x2005",
               "UPDATE block SET content = zeroblob(4 * 65536) WHERE class = 0x2005",
               "UPDATE block SET content = NULL WHERE class = 0x2005"},
              [this] {
                  const auto source = DataSource::opened(file(), reading);
                  EXPECT_EQ(1, source.recordCount(QAR_CLS_NUCLIDE));
                  EXPECT_EQ(-1, source.recordCount(QAR_CLS_SPECTRUM));
                  EXPECT_EQ(codes::damaged, source.lastFailure());
              });
}

TEST_F(DamageTest, VerifyingFindsWhatNoClassShows) {
    afterEach({"DELETE FROM block WHERE class = 0x2004", "INSERT INTO place VALUES(0x2005, 1, 0)",
               "INSERT INTO value VALUES(-1, 1, 0, x'00')"},
              [this] {
                  const auto source = DataSource::opened(file(), reading);
                  EXPECT_EQ(4096U, source.getSpectrum().size());
                  EXPECT_EQ(codes::damaged, SOrvReVerify(source.context()));
                  EXPECT_EQ(codes::damaged, SOrvControlDSC(source.context(), 3, 0));
              });
    // The count of unused pages, in the header.
    std::fstream(file(), std::ios::in | std::ios::out | std::ios::binary).seekp(39).put(5);
    EXPECT_EQ(codes::damaged, SOrvReVerify(DataSource::opened(file(), reading).context()));
}

TEST_F(DamageTest, WhiteSpaceInTheTablesIsNotDamage) {
    change("DROP TABLE block; CREATE TABLE block (\tclass  INTEGER\nPRIMARY KEY ,content\rBLOB )");
    EXPECT_EQ(0, DataSource::opened(file(), reading).recordCount(QAR_CLS_SPECTRUM));
}

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

TEST_F(DamageTest, WhatAFileBringsAlongIsLetBeAndNotRun) {
    change("CREATE TRIGGER intruder AFTER INSERT ON value BEGIN DELETE FROM block; END");
    change("CREATE TRIGGER intruder2 AFTER DELETE ON value BEGIN DELETE FROM place; END");
    change(
        "CREATE INDEX plain ON value(bytes, code); ANALYZE; CREATE TABLE mine(text, x CHECK(x))");
    { ASSERT_EQ(0U, DataSource::opened(file(), writing).put(QAR_D_HALFLIFE, 1.0)); }
    {
        const auto source = DataSource::opened(file(), writing);
        ASSERT_EQ(0U, SOrvInsertOne(source.context(), QAR_CLS_NUCLIDE, 1, 0));
        ASSERT_EQ(0U, SOrvControlDSC(source.context(), 2, 0));
        ASSERT_EQ(0U, SOrvReVerify(source.context()));
    }
    const auto source = DataSource::opened(file(), reading);
    EXPECT_EQ(4096U, source.getSpectrum().size());
    EXPECT_EQ(661.657, source.get<double>(QAR_D_LINEENERGY, 2));
    change("INSERT INTO mine VALUES(1, 1)");
}

TEST_F(DamageTest, VerifyingNoticesDamageWhileTheFileIsOpen) {
    const auto source = DataSource::opened(file(), reading);
    EXPECT_EQ(661.657, source.get<double>(QAR_D_LINEENERGY));
    EXPECT_EQ(0U, SOrvReVerify(source.context()));
    change("UPDATE value SET bytes = x'01' WHERE code = 0x20040010");
    EXPECT_EQ(codes::damaged, SOrvReVerify(source.context()));
    EXPECT_EQ(661.657, source.get<double>(QAR_D_LINEENERGY));
}

}  // namespace
}  // namespace testing_support
