#include <cstring>
#include <future>
#include <memory>
#include <thread>

#include "fileaccess/file_access.h"
#include "tests/unit/fileaccess/double_fixture.h"

namespace {

using Tarsel::Datasources::QAR::FileAccess;
using testing_support::Lines;
using testing_support::Values;

constexpr OrvContext source = 1;
constexpr OrvContext destination = 2;
constexpr std::int64_t missingBlock = 0x8102;
const std::string operation = " FileAccess::copySequenceTo File: (unknown). ";
const std::vector<std::uint32_t> settings{0x20100075, 0x20100076, 0x20030015, 0x20030053};

class AnalysisSequence : public testing_support::DoubleFixture {
  protected:
    static pyORV3::Status copy() {
        FileAccess from(source);
        FileAccess to(destination);
        return from.copySequenceTo(to);
    }

    /// The library gives the chunks of a geometry block of `total` bytes, each with its number.
    static void holdGeometry(std::uint32_t total) {
        for (std::uint32_t offset = 0; offset <= total; offset += 512) {
            std::string chunk("....chunk" + std::to_string(offset / 512));
            if (offset == 0) {
                std::memcpy(chunk.data(), &total, sizeof total);
            }
            answer("OrvReadUFBlock", 0, {{"buffer", chunk}}, {{"offset", offset}});
        }
    }

    /// The chunks written, without the four bytes at their front.
    static Lines chunksWritten() {
        Lines chunks;
        for (const recording::Call& call : recorder().calls()) {
            if (call.function == "OrvWriteUFBlock") {
                EXPECT_EQ(std::get<std::int64_t>(call.arguments[3].second), 0x40);
                const auto& chunk = std::get<std::string>(call.arguments[2].second);
                EXPECT_EQ(chunk.size(), 512U);
                chunks.emplace_back(chunk.c_str() + 4);
            }
        }
        return chunks;
    }
};

TEST_F(AnalysisSequence, refusesMissingAndEqualSidesTheDestinationFirst) {
    FileAccess empty;
    FileAccess open(source);
    EXPECT_EQ(empty.copySequenceTo(empty), 0xEBE81389U);
    EXPECT_EQ(empty.copySequenceTo(open), 0xEBE81389U);
    EXPECT_EQ(open.copySequenceTo(open), 0xECE99D7DU);
    EXPECT_EQ(log_.reports(),
              (Lines{"3 ebe81389" + operation + "Destination is not open",
                     "3 ebe81389" + operation + "Source is not open",
                     "3 ece99d7d" + operation + "The source and destination cannot be the same"}));
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(AnalysisSequence, copiesClassesAndGeometryWhereNoParameterIsPresent) {
    EXPECT_EQ(copy(), 0U);
    EXPECT_EQ(
        calls(),
        (Lines{description(destination, settings[0]), description(destination, settings[1]),
               description(destination, settings[2]), description(destination, settings[3]),
               "OrvClassCopy 1 2 2010", "OrvClassCopy 1 2 2003", description(source, 0x20020028),
               description(source, 0x20020083), "OrvCreateBlock 2 4005 0 -1",
               "OrvReadUFBlock 1 4005 0 200 0 1", description(source, 0x2010002D),
               description(source, 0x20000002), description(source, 0x20100005)}));
    EXPECT_EQ(log_.reports(), Lines{});
}

TEST_F(AnalysisSequence, movesEveryParameterInItsTurn) {
    // The fourth context that the copy makes: the diagnostics of the refused write take two.
    constexpr OrvContext referenced = 1004;
    for (const std::uint32_t setting : settings) {
        hold(destination, setting, "own");
    }
    struct Held {
        OrvContext context;
        std::uint32_t code;
        const char* text;
    };
    for (const auto& [context, code, text] :
         {Held{source, 0x20020028, "a"}, Held{source, 0x20020083, "b"},
          Held{source, 0x2010002D, "Yes"}, Held{source, 0x20100104, "/x"},
          Held{source, 0x20000002, "e"}, Held{referenced, 0x200000B6, "c"},
          Held{referenced, 0x2010004C, "d"}}) {
        hold(context, code, text);
        describe(destination, code);
    }
    describe(destination, 0x20100005);
    // What the library refuses of a single parameter or of the referenced class does no harm.
    answer("OrvClassCopy", 5, {}, {{"classCode", 0x2002}});
    answer("OrvParameterWrite", 5, {}, {{"code", 0x20020083}});
    EXPECT_EQ(copy(), 0U);

    const auto written = [](const char* code, const char* text) {
        return std::string("OrvParameterWrite 2 ") + code + " 1 0 \"" + text + '"';
    };
    const Lines expected{
        "OrvClassCopy 1 2 2010",    "OrvClassCopy 1 2 2003",    written("20020028", "a"),
        written("20020083", "b"),   "OrvDataSourceOpening",     written("200000b6", "c"),
        written("2010004c", "d"),   "OrvClassCopy 3ec 2 2002",  "OrvDataSourceClosing 3ec",
        written("20100075", "own"), written("20100076", "own"), written("20030015", "own"),
        written("20030053", "own"), written("20000002", "e"),   written("20100005", "e")};
    Lines seen;
    for (const std::string& line : calls()) {
        const std::string function = line.substr(0, line.find(' '));
        if (function == "OrvDataSourceOpening") {
            EXPECT_TRUE(line.ends_with("x\" 1 80 0 null")) << line;
            seen.push_back(function);
        } else if (function == "OrvClassCopy" || function == "OrvParameterWrite" ||
                   function == "OrvDataSourceClosing" || function == "OrvDataSourceFlush") {
            seen.push_back(line);
        }
    }
    EXPECT_EQ(seen, expected);
}

TEST_F(AnalysisSequence, createsAMissingBlockOnceAndCopiesAgain) {
    const std::string geometry = "OrvCreateBlock 2 4005 0 -1";
    const std::vector<
        std::tuple<std::uint16_t, std::vector<std::int64_t>, std::uint32_t, Lines, Lines>>
        cases{
            {0x2010, {missingBlock, 0}, 0, {"OrvCreateBlock 2 2010 0 0", geometry}, {}},
            {0x2003, {missingBlock, missingBlock}, 0, {"OrvCreateBlock 2 2003 0 0", geometry}, {}},
            {0x2010,
             {0x12345},
             0x12345,
             {},
             {"3 12345" + operation + "Failed to copy QAR_CLS_ANALCNTL"}},
            {0x2003,
             {missingBlock, 0x8003},
             0xEBE88003,
             {"OrvCreateBlock 2 2003 0 0"},
             {"3 ebe88003" + operation + "Failed to copy QAR_CLS_PROC"}},
        };
    // codes: of the copies of the class, in turn; 0 succeeds
    for (const auto& [classNumber, codes, status, created, reports] : cases) {
        recorder().reset();
        hold(destination, settings[0], "own");
        for (const std::int64_t code : codes) {
            answer("OrvClassCopy", code == 0 ? 0 : 4, {}, {{"classCode", classNumber}});
            if (code != 0) {
                answer("OrvErrorQuery", 0, {{"code", code}}, {{"context", destination}});
            }
        }
        const testing_support::TraceLog log;
        EXPECT_EQ(copy(), status);
        EXPECT_EQ(recorder().unusedAnswers(), Lines{});
        EXPECT_EQ(calls("OrvCreateBlock"), created);
        // Only a copy that goes on restores the settings.
        EXPECT_EQ(calls("OrvParameterWrite").size(), status == 0 ? 1U : 0U);
        EXPECT_EQ(log.reports(), reports);
    }
}

TEST_F(AnalysisSequence, endsWhereTheMandatoryParameterCannotBeWritten) {
    hold(destination, settings[0], "own");
    hold(source, 0x20020028, "a");
    describe(destination, 0x20020028);
    answer("OrvParameterWrite", 5);
    EXPECT_EQ(copy(), 0x65U);
    EXPECT_EQ(calls("OrvParameterWrite"), Lines{R"(OrvParameterWrite 2 20020028 1 0 "a")"});
    EXPECT_EQ(calls("OrvCreateBlock"), Lines{});
    EXPECT_EQ(log_.reports().size(), 1U);
}

TEST_F(AnalysisSequence, transfersTheWholeChunksOfTheGeometryBlock) {
    const std::vector<std::pair<std::uint32_t, Lines>> cases{
        {0, {}},           {300, {}},          {511, {}},
        {512, {"chunk0"}}, {1000, {"chunk0"}}, {1024, {"chunk0", "chunk1"}},
    };
    for (const auto& [total, chunks] : cases) {
        SCOPED_TRACE(total);
        recorder().reset();
        holdGeometry(total);
        EXPECT_EQ(copy(), 0U);
        EXPECT_EQ(chunksWritten(), chunks);
        EXPECT_EQ(calls("OrvReadUFBlock").size(), chunks.size() + 1);
        EXPECT_TRUE(recorder().unusedAnswers().empty());
    }
    EXPECT_EQ(log_.reports(), Lines{});
}

TEST_F(AnalysisSequence, tracesAFailedGeometryChunkButTheFirstAndGoesOn) {
    for (const auto& [function, when, written] :
         {std::tuple{"OrvReadUFBlock", Values{{"offset", 1024}}, 2U},
          {"OrvWriteUFBlock", Values{}, 1U}}) {
        recorder().reset();
        answer(function, -7, {}, when);
        holdGeometry(5000);
        EXPECT_EQ(copy(), 0U);
        EXPECT_EQ(chunksWritten().size(), written);
        EXPECT_EQ(calls().back(), description(source, 0x20100005));
    }
    const std::string report = "3 fffffff9" + operation + "Failed to copy QAR_CLS_VORLAGEOM";
    EXPECT_EQ(log_.reports(), (Lines{report, report}));

    recorder().reset();
    answer("OrvCreateBlock", -1);
    answer("OrvReadUFBlock", -1);
    EXPECT_EQ(copy(), 0U);
    EXPECT_EQ(chunksWritten(), Lines{});
    EXPECT_EQ(log_.reports().size(), 2U);
}

TEST_F(AnalysisSequence, leavesTheReferencedFileAloneUnlessItIsSwitchedOnNamedAndOpens) {
    struct Case {
        std::uint32_t missing;
        const char* switchText;
        std::size_t opened;
    };
    for (const auto& [missing, switchText, opened] :
         {Case{0x2010002D, "Yes", 0}, Case{0, "No", 0}, Case{0x20100104, "Yes", 0},
          Case{0, "Yes", 1}}) {
        recorder().reset();
        hold(source, 0x2010002D, switchText);
        hold(source, 0x20100104, "/x");
        answer("OrvParameterRead", 1, {}, {{"code", missing}}, recording::forEver);
        answer("OrvDataSourceOpening", 6);
        EXPECT_EQ(copy(), 0U);
        EXPECT_EQ(calls("OrvDataSourceOpening").size(), opened);
        EXPECT_EQ(calls("OrvClassCopy").size(), 2U);
        EXPECT_EQ(calls("OrvDataSourceClosing"), Lines{});
    }
}

TEST_F(AnalysisSequence, fillsTheSecondSequenceParameterFromTheOnlyOnePresent) {
    const std::string first = R"(OrvParameterWrite 2 20000002 1 0 "one")";
    for (const auto& [hasFirst, hasSecond, written] : std::vector<std::tuple<bool, bool, Lines>>{
             {false, false, {}},
             {true, false, {first, R"(OrvParameterWrite 2 20100005 1 0 "one")"}},
             {false, true, {R"(OrvParameterWrite 2 20100005 1 0 "two")"}},
             {true, true, {first}}}) {
        recorder().reset();
        describe(destination, 0x20000002);
        describe(destination, 0x20100005);
        hold(source, hasFirst ? 0x20000002 : 0, "one");
        hold(source, hasSecond ? 0x20100005 : 0, "two");
        EXPECT_EQ(copy(), 0U);
        EXPECT_EQ(calls("OrvParameterWrite"), written);
    }
}

// An attached object forgets its data source as soon as it gets its lock.
bool canBeLockedElsewhere(const std::shared_ptr<FileAccess>& file) {
    std::packaged_task<pyORV3::Status()> close([file] { return file->close(0); });
    std::future<pyORV3::Status> status = close.get_future();
    std::thread thread(std::move(close));
    const bool locked = status.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    locked ? thread.join() : thread.detach();
    return locked;
}

TEST_F(AnalysisSequence, releasesBothLocksWhenSomethingIsThrown) {
    const auto from = std::make_shared<FileAccess>(source);
    const auto to = std::make_shared<FileAccess>(destination);
    hold(source, 0x20020028, "a");
    describe(destination, 0x20020028);
    recorder().answer("OrvParameterWrite", {-5, "int", {}, {}, 1});
    EXPECT_THROW(from->copySequenceTo(*to), int);
    EXPECT_TRUE(canBeLockedElsewhere(from));
    EXPECT_TRUE(canBeLockedElsewhere(to));
}

}  // namespace
