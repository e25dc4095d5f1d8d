// Files with damaged bytes and files that another program has changed.
#include <algorithm>
#include <bit>
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
    // Changes the file like another program, without the library.
    void change(const std::string& sql) const { program(sql); }
    // Calls work once for each change, applied alone to the sound file.
    void afterEach(const std::vector<std::string>& changes, const std::function<void()>& work) {
        std::filesystem::copy_file(file(), file("sound"),
                                   std::filesystem::copy_options::overwrite_existing);
        for (const std::string& sql : changes) {
            SCOPED_TRACE(sql);
            change(sql);
            work();
            std::filesystem::copy_file(file("sound"), file(),
                                       std::filesystem::copy_options::overwrite_existing);
        }
    }
};

TEST_F(DamageTest, FileWithWrongSchemaIsRefusedAtOpening) {
    const std::vector<std::string> changes = {
        "PRAGMA user_version = 3",
        "PRAGMA user_version = 1",
        "PRAGMA user_version = 0",
        "DROP TABLE item",
        "ALTER TABLE item RENAME COLUMN bytes TO octets",
        "ALTER TABLE item ADD COLUMN size AS (length(bytes))",
        "DROP TABLE item; CREATE TABLE item(key INTEGER PRIMARY KEY, checksum INTEGER NOT NULL,"
        " bytes BLOBNOT NULL)",
        "ALTER TABLE item RENAME TO held; CREATE VIEW item AS SELECT * FROM held",
        "CREATE UNIQUE INDEX single ON item(checksum, bytes)",
        "CREATE INDEX computed ON item(length(bytes))",
        "CREATE INDEX partial ON item(bytes) WHERE length(bytes) > 1"};
    afterEach(changes, [this] {
        const DataSource source;
        EXPECT_EQ(codes::openedWithRemark, source.open(file(), writing));
        EXPECT_EQ(0x200U, source.openingState());
        EXPECT_EQ(-1, OrvDataSourceOpening(source.context(), file().c_str(), 1, 0x81, 0, nullptr));
        // The refused file was released: the context can open a sound file.
        EXPECT_EQ(0U, source.open(file("sound"), writing));
    });
}

// The directory has the measurement, the nuclides and the spectrum, 10 bytes each.
TEST_F(DamageTest, ClassesThatMatchDamagedDirectoryAreReadAndOthersAreSalvaged) {
    ASSERT_EQ(0U, DataSource::opened(file(), writing).put(QAR_D_LIVETIME, 1.0));
    const std::string ofDirectory = " WHERE key = 0";
    const auto replaced = [&](int first, const std::string& bytes) {
        return "UPDATE item SET bytes = cast(substr(bytes, 1, " + std::to_string(first - 1) +
               ") || x'" + bytes + "' || substr(bytes, " +
               std::to_string(first + static_cast<int>(bytes.size()) / 2) + ") AS BLOB)" +
               ofDirectory;
    };
    struct Case {
        std::string change;
        bool hasNuclides;  // readable as a class
        bool hasSpectrum;
    };
    const std::vector<Case> cases = {
        {"UPDATE item SET checksum = checksum + 1" + ofDirectory, true, true},
        {replaced(14, "0000"), false, true},
        {replaced(11, "0620"), false, true},
        {replaced(21, "0130"), true, false},
        {"UPDATE item SET bytes = substr(bytes, 1, 19)" + ofDirectory, false, false},
        {"UPDATE item SET checksum = 'one', bytes = x''" + ofDirectory, false, false},
        {"UPDATE item SET key = 1" + ofDirectory, false, false},
        {"DELETE FROM item" + ofDirectory, false, false}};
    std::vector<std::string> changes;
    std::ranges::transform(cases, std::back_inserter(changes), &Case::change);
    auto expected = cases.begin();
    const auto copy = DataSource::created(file("copy.qar"));
    ASSERT_EQ(0U, copy.putSpectrum({1}));
    afterEach(changes, [&] {
        EXPECT_EQ(codes::openedWithRemark, DataSource().open(file(), writing));
        const auto source = DataSource::opened(file(), reading);
        EXPECT_EQ(codes::openedWithRemark, DataSource().open(file(), writing));
        EXPECT_EQ(0x5U, source.sourceState());
        EXPECT_EQ(codes::damaged, SOrvReVerify(source.context()));
        EXPECT_EQ(expected->hasNuclides ? 1 : -1, source.recordCount(QAR_CLS_NUCLIDE));
        EXPECT_EQ(expected->hasSpectrum ? 1 : -1, source.recordCount(QAR_CLS_SPECTRUM));
        EXPECT_EQ(-1, source.recordCount(QAR_CLS_PEAK));
        EXPECT_EQ(codes::damaged, SOrvSaveAs(source.context(), copy.context()));
        ASSERT_EQ(0U, SOrvControlDSC(source.context(), 4, 0));
        const auto copyOf = [&](std::uint16_t classCode, std::uint16_t record) {
            return SOrvCopyRecord(source.context(), classCode, record, copy.context(), 1, 0);
        };
        EXPECT_EQ(0U, copyOf(QAR_CLS_NUCLIDE, 1));
        EXPECT_EQ(661.657, copy.get<double>(QAR_D_LINEENERGY));
        EXPECT_EQ(0U, copyOf(QAR_CLS_SPECTRUM, 1));
        EXPECT_EQ(4096U, copy.getSpectrum().size());
        EXPECT_EQ(codes::noSuchRecord, copyOf(QAR_CLS_NUCLIDE, 2));
        EXPECT_EQ(codes::noSuchRecord, copyOf(QAR_CLS_SPECTRUM, 2));
        EXPECT_EQ(codes::noSuchRecord, copyOf(QAR_CLS_PEAK, 1));
        EXPECT_EQ(codes::noSuchRecord, copyOf(QAR_CLS_VORLAGEOM, 1));
        ++expected;
    });
}

// Otherwise the next save would write the directory without the classes that it lacks.
TEST_F(DamageTest, WriterCannotWriteAfterOtherProgramDamagedDirectory) {
    const auto source = DataSource::opened(file(), writing);
    change("UPDATE item SET checksum = 0 WHERE key = 0");
    EXPECT_EQ(1, source.recordCount(QAR_CLS_NUCLIDE));
    EXPECT_EQ(codes::readOnly, source.put(QAR_D_HALFLIFE, 1.0));
    EXPECT_EQ(0x5U, source.sourceState());
}

TEST_F(DamageTest, OnlyClassWithWrongRowsIsRefusedAndSourceBecomesReadOnly) {
    const std::vector<std::string> changes = {
        "UPDATE item SET bytes = x'0000000000A08440' WHERE key >> 32 = 0x20040010",
        "UPDATE item SET checksum = checksum + 1 WHERE key >> 32 = 0x20040010",
        "UPDATE item SET checksum = 'one' WHERE key >> 32 = 0x20040010",
        "UPDATE item SET key = key + 1 WHERE key >> 32 = 0x20040010",
        "UPDATE item SET key = key + (1 << 32) WHERE key >> 32 = 0x20040010",
        "DELETE FROM item WHERE key >> 32 = 0x20040010",
        "DELETE FROM item WHERE key = 0x20040000 << 32",
        "DELETE FROM item WHERE key = 0x20040000 << 32 | 0x10001",
        "INSERT INTO item SELECT key + 0x10000, checksum, bytes FROM item"
        " WHERE key = 0x20040000 << 32 | 0x10000",
        "DELETE FROM item WHERE key >> 48 = 0x2004",
        "DELETE FROM item WHERE key >> 32 = 0x20040010; INSERT INTO item"
        " SELECT 0x20040010 << 32 | 0x10001, checksum, bytes FROM item"
        " WHERE key >> 32 = 0x20040001"};
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
        // Closing saves the value that was written before the damage was found.
        EXPECT_EQ(0U, source.close());
        EXPECT_EQ(1.0, DataSource::opened(file(), reading).get<double>(QAR_D_LIVETIME));
        ASSERT_EQ(0U, SOrvDeleteOne(copy.context(), QAR_CLS_SPECTRUM, 1, 0));
    });
}

TEST_F(DamageTest, ChangedSpectrumIsRefusedAndNotSalvaged) {
    const auto copy = DataSource::created(file("copy.qar"));
    afterEach({"UPDATE item SET bytes = zeroblob(4 * 4096) WHERE key >> 32 = 0x20050000",
               "UPDATE item SET bytes = x'01000000' WHERE key >> 32 = 0x20050000",
               "UPDATE item SET bytes = zeroblob(4 * 65536) WHERE key >> 32 = 0x20050000",
               "DELETE FROM item WHERE key >> 32 = 0x20050000"},
              [&] {
                  const auto source = DataSource::opened(file(), reading);
                  EXPECT_EQ(1, source.recordCount(QAR_CLS_NUCLIDE));
                  EXPECT_EQ(-1, source.recordCount(QAR_CLS_SPECTRUM));
                  EXPECT_EQ(codes::damaged, source.lastFailure());
                  ASSERT_EQ(0U, SOrvControlDSC(source.context(), 4, 0));
                  EXPECT_NE(0U, SOrvCopyRecord(source.context(), QAR_CLS_SPECTRUM, 1,
                                               copy.context(), 1, 0));
              });
}

TEST_F(DamageTest, ClassWithStrayRowsIsRefusedOnFirstUse) {
    change("INSERT INTO item VALUES(0x20060000 << 32 | 0x10000, 0, x'')");
    const auto source = DataSource::opened(file(), writing);
    EXPECT_EQ(codes::damaged, source.put(QAR_D_PEAKENERGY, 1.0));
    EXPECT_EQ(codes::readOnly, source.put(QAR_D_LIVETIME, 1.0));
    change("DELETE FROM item WHERE key >> 32 = 0x20060000");
    EXPECT_EQ(0U, SOrvReVerify(source.context()));
    EXPECT_EQ(0U, source.put(QAR_D_PEAKENERGY, 1.0));
}

TEST_F(DamageTest, VerificationFindsRowsOutsideOfClasses) {
    afterEach({"INSERT INTO item VALUES(0x20060000 << 32 | 0x10000, 0, x'')",
               "INSERT INTO item VALUES(-1, 0, x'00')", "INSERT INTO item VALUES(1, 0, x'00')"},
              [this] {
                  const auto source = DataSource::opened(file(), reading);
                  EXPECT_EQ(4096U, source.getSpectrum().size());
                  EXPECT_EQ(codes::damaged, SOrvReVerify(source.context()));
                  EXPECT_EQ(codes::damaged, SOrvControlDSC(source.context(), 3, 0));
              });
}

TEST_F(DamageTest, SalvageCopiesVerifiedRecordsOfDamagedClass) {
    {
        const auto source = DataSource::opened(file(), writing);
        for (const std::int32_t record : {2, 3, 4}) {
            ASSERT_EQ(0U, source.put(QAR_D_LINEENERGY, 100.0 * record, record));
        }
    }
    constexpr OrvStatus end = codes::noSuchRecord;
    constexpr OrvStatus lost = codes::damaged;
    struct Case {
        std::string change;
        std::array<OrvStatus, 5> expected;  // of the copies of records 1 to 5
    };
    const std::string ofRecord2 = " WHERE key & 0xFFFF0000 = 0x20000 AND key >> 32 = 0x2004";
    const std::vector<Case> cases = {
        {"UPDATE item SET bytes = zeroblob(8)" + ofRecord2 + "0010", {0, lost, 0, 0, end}},
        {"UPDATE item SET checksum = x'00'" + ofRecord2 + "0010", {0, lost, 0, 0, end}},
        {"DELETE FROM item" + ofRecord2 + "0010", {0, 0, 0, 0, end}},
        {"DELETE FROM item" + ofRecord2 + "0000", {0, lost, 0, 0, end}},
        {"DELETE FROM item" + ofRecord2 + "0000 AND key & 65535 = 1", {0, lost, 0, 0, end}},
        {"UPDATE item SET key = key + 0x100000" + ofRecord2 + "0010", {0, 0, 0, 0, end}},
        {"UPDATE item SET key = key + 0x30000" + ofRecord2 + "0010", {0, 0, 0, 0, lost}},
        {"UPDATE item SET checksum = 0 WHERE key >> 48 = 0x2004 AND key & 0xFFFF0000 = 0x40000",
         {0, 0, 0, lost, end}},
        {"UPDATE item SET checksum = 0 WHERE key = 0x2004 << 48", {0, 0, 0, 0, end}}};
    std::vector<std::string> changes;
    std::ranges::transform(cases, std::back_inserter(changes), &Case::change);
    auto expected = cases.begin();
    const auto copy = DataSource::created(file("copy.qar"));
    afterEach(changes, [&] {
        const auto source = DataSource::opened(file(), reading);
        const auto copyOf = [&](std::uint16_t record) {
            return SOrvCopyRecord(source.context(), QAR_CLS_NUCLIDE, record, copy.context(), 1, 0);
        };
        EXPECT_EQ(lost, copyOf(1));
        ASSERT_EQ(0U, SOrvControlDSC(source.context(), 4, 0));
        std::array<OrvStatus, 5> statuses{};
        std::uint16_t record = 0;
        std::ranges::generate(statuses, [&] { return copyOf(++record); });
        EXPECT_EQ(expected->expected, statuses);
        ASSERT_EQ(0U, copyOf(3));
        EXPECT_EQ(300.0, copy.get<double>(QAR_D_LINEENERGY));
        EXPECT_EQ(-1, source.recordCount(QAR_CLS_NUCLIDE));
        EXPECT_EQ(end, SOrvCopyRecord(source.context(), QAR_CLS_PEAK, 1, copy.context(), 1, 0));
        ASSERT_EQ(0U, source.close() + source.open(file(), reading));
        EXPECT_EQ(lost, copyOf(1));
        ++expected;
    });
}

// Damage in a page of the class separates its first rows from its last ones.
TEST_F(DamageTest, SalvageReadsRowsOnBothSidesOfDamagedPage) {
    constexpr std::uint16_t count = 900;
    {
        const auto source = DataSource::opened(file(), writing);
        for (std::int32_t record = 1; record <= count; ++record) {
            ASSERT_EQ(0U, source.put(QAR_D_HALFLIFE, 1.0 * record, record));
        }
    }
    constexpr std::ptrdiff_t pageSize = 4096;
    Bytes content = contentOf(file());
    const auto middle = std::bit_cast<std::array<char, sizeof(double)>>(count / 2.0);
    const auto place =
        std::search(content.begin(), content.end(), middle.begin(), middle.end()) - content.begin();
    ASSERT_LT(place, std::ssize(content));
    std::fill_n(content.begin() + place / pageSize * pageSize, pageSize, '\xFF');
    writeFile(file(), content);
    const auto source = DataSource::opened(file(), reading);
    const auto copy = DataSource::created(file("copy.qar"));
    EXPECT_EQ(-1, source.recordCount(QAR_CLS_NUCLIDE));
    ASSERT_EQ(0U, SOrvControlDSC(source.context(), 4, 0));
    const auto hasValue = [&](std::uint16_t record) {
        double value = 0;
        EXPECT_EQ(0U,
                  SOrvCopyRecord(source.context(), QAR_CLS_NUCLIDE, record, copy.context(), 1, 0));
        const OrvStatus status =
            SOrvGetParam(copy.context(), QAR_D_HALFLIFE, 1, 0, &value, sizeof value);
        EXPECT_EQ(status == 0 ? record : 0, value);
        return status == 0;
    };
    int values = 0;
    for (std::uint16_t record = 1; record <= count; ++record) {
        values += hasValue(record) ? 1 : 0;
    }
    EXPECT_TRUE(hasValue(1));
    EXPECT_TRUE(hasValue(count));
    EXPECT_GT(values, count / 2);
    EXPECT_LT(values, count);
}

// A save would take new pages from that list.
TEST_F(DamageTest, FreeListWithoutLengthIsRefusedAtOpening) {
    std::fstream(file(), std::ios::in | std::ios::out | std::ios::binary).seekp(35).put(2);
    EXPECT_EQ(codes::openedWithRemark, DataSource().open(file(), writing));
}

TEST_F(DamageTest, FlippedBitIsFoundOrHarmless) {
    const Bytes sound = contentOf(file());
    const std::vector<std::int32_t> channels(4096, 1);
    for (std::size_t bit = 3; bit < 8 * sound.size(); bit += 211) {
        Bytes flipped = sound;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
        writeFile(file(), flipped);
        const DataSource source;
        if (source.open(file(), reading) != 0) {
            continue;
        }
        std::array<char, 8> name{};
        const bool isNuclideRead =
            SOrvGetParam(source.context(), QAR_C_NUCLNAME, 1, 0, name.data(), 256) == 0;
        std::vector<std::int32_t> contents(4096);
        const bool isSpectrumRead =
            SOrvGetSpectrum(source.context(), 1, 4096, 0, contents.data()) == 0;
        EXPECT_TRUE(!isSpectrumRead || contents == channels) << bit;
        EXPECT_TRUE(!isNuclideRead || std::string(name.data()) == "Cs-137") << bit;
        const bool isVerified = SOrvReVerify(source.context()) == 0;
        EXPECT_TRUE(!isVerified || (isNuclideRead && isSpectrumRead)) << bit;
    }
}

TEST_F(DamageTest, WhiteSpaceInTableDefinitionIsAccepted) {
    change(
        "CREATE TABLE kept AS SELECT * FROM item; DROP TABLE item;"
        "CREATE TABLE item (\tkey  INTEGER\nPRIMARY KEY ,checksum INTEGER NOT NULL,\rbytes BLOB"
        "  NOT NULL ); INSERT INTO item SELECT * FROM kept");
    EXPECT_EQ(1, DataSource::opened(file(), reading).recordCount(QAR_CLS_SPECTRUM));
}

TEST_F(DamageTest, AddedTablesAndIndexesAreIgnoredAndTriggersAreNotRun) {
    change("CREATE TRIGGER intruder AFTER INSERT ON item BEGIN DELETE FROM item; END");
    change("CREATE TRIGGER intruder2 AFTER DELETE ON item BEGIN DELETE FROM item; END");
    change(
        "CREATE INDEX plain ON item(bytes, checksum); ANALYZE; CREATE TABLE mine(text, x "
        "CHECK(x))");
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

TEST_F(DamageTest, VerificationFindsDamageInOpenFile) {
    const auto source = DataSource::opened(file(), reading);
    EXPECT_EQ(661.657, source.get<double>(QAR_D_LINEENERGY));
    EXPECT_EQ(0U, SOrvReVerify(source.context()));
    change("UPDATE item SET bytes = x'01' WHERE key >> 32 = 0x20040010");
    EXPECT_EQ(codes::damaged, SOrvReVerify(source.context()));
    EXPECT_EQ(661.657, source.get<double>(QAR_D_LINEENERGY));
}

// ---- Files of version 1, which have no checksums ---------------------------------------------

class OldFileDamageTest : public DamageTest {
  protected:
    OldFileDamageTest() {
        std::filesystem::copy_file(std::filesystem::path(GOLDEN_FILES) / "nuclides.qar", file(),
                                   std::filesystem::copy_options::overwrite_existing);
    }
};

TEST_F(OldFileDamageTest, FileWithContradictoryRowsIsRefusedAndNotConverted) {
    const std::vector<std::string> changes = {
        "UPDATE value SET bytes = x'01' WHERE code = 0x20040010",
        "UPDATE value SET bytes = printf('%17s', 'no room') WHERE code = 0x20040001",
        "UPDATE value SET bytes = x'430043' WHERE code = 0x20040001",
        "UPDATE value SET entry = 1 WHERE code = 0x20040001 AND record = 1",
        "UPDATE value SET entry = 999 WHERE code = 0x20040010 AND record = 1 AND entry = 1",
        "UPDATE value SET record = 'one' WHERE code = 0x20040010 AND record = 1",
        "INSERT INTO value VALUES(0x2004FFFF, 1, 0, zeroblob(65536))",
        "INSERT INTO value VALUES(0x2004FFFF, 0, 0, x'00')",
        "INSERT INTO place VALUES(0x2004, 99, 0)",
        "INSERT INTO place VALUES(0x2004, 1, 999)",
        "DELETE FROM place",
        "UPDATE block SET content = x'00' WHERE class = 0x2004"};
    afterEach(changes, [&] {
        const auto source = DataSource::opened(file(), reading);
        EXPECT_EQ(-1, source.recordCount(QAR_CLS_NUCLIDE));
        EXPECT_EQ(codes::damaged, source.lastFailure());
        EXPECT_EQ(codes::openedWithRemark, DataSource().open(file("measurement.qar"), writing));
    });
}

TEST_F(OldFileDamageTest, FileWithInvalidClassesIsRefused) {
    afterEach({"UPDATE block SET class = 0x3000 WHERE class = 0x2004",
               "UPDATE block SET class = class - 0x100000000 WHERE class = 0x2004",
               "INSERT INTO block VALUES(0, NULL)"},
              [&] { EXPECT_EQ(codes::openedWithRemark, DataSource().open(file(), reading)); });
    afterEach(
        {"INSERT INTO block VALUES(0x2005, x'010203')",
         "INSERT INTO block VALUES(0x2005, zeroblob(4 * 65536))",
         "INSERT INTO block VALUES(0x2005, NULL)"},
        [&] { EXPECT_EQ(-1, DataSource::opened(file(), reading).recordCount(QAR_CLS_SPECTRUM)); });
    afterEach({"DELETE FROM block WHERE class = 0x2004", "INSERT INTO place VALUES(0x2006, 1, 0)"},
              [&] { EXPECT_EQ(codes::openedWithRemark, DataSource().open(file(), writing)); });
}

TEST_F(OldFileDamageTest, UnknownValuesAreKeptByConversion) {
    change("INSERT INTO value VALUES(0x2004FFFF, 1, 0, x'0102')");
    {
        const auto source = DataSource::opened(file(), writing);
        EXPECT_EQ(codes::unknownParameter, source.put(0x2004FFFF, 1.0));
        ASSERT_EQ(0U, source.put(QAR_D_HALFLIFE, 1.0));
    }
    // The CHECK fails unless the value is still in the file.
    change(
        "CREATE TABLE t(x CHECK(x = 1)); INSERT INTO t SELECT count(*) FROM item"
        " WHERE key >> 32 = 0x2004FFFF AND bytes = x'0102'");
    EXPECT_EQ(0U, SOrvReVerify(DataSource::opened(file(), reading).context()));
}

}  // namespace
}  // namespace testing_support
