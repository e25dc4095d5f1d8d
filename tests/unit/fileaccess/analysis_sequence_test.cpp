#include <cstring>
#include <future>
#include <memory>
#include <thread>

#include "fileaccess/file_access.h"
#include "fileaccess/sequence_method.h"
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
        return pyORV3::copyAnalysisSequenceTo(source, destination).status;
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
    EXPECT_TRUE(log_.reports().empty());
}

TEST_F(AnalysisSequence, movesEveryParameterInItsTurn) {
    // The fourth context that the copy makes: the diagnostics of the refused write take two.
    constexpr OrvContext referenced = 1004;
    for (const std::uint32_t setting : settings) {
        hold(destination, setting, "own");
    }
    for (const auto& [code, text] :
         std::vector<std::pair<std::uint32_t, std::string>>{{0x20020028, "a"},
                                                            {0x20020083, "b"},
                                                            {0x2010002D, "Yes"},
                                                            {0x20100104, "/x"},
                                                            {0x20000002, "e"}}) {
        hold(source, code, text);
        describe(destination, code, 14, 3);
    }
    for (const auto& [code, text] :
         std::vector<std::pair<std::uint32_t, std::string>>{{0x200000B6, "c"}, {0x2010004C, "d"}}) {
        hold(referenced, code, text);
        describe(destination, code, 14, 3);
    }
    describe(destination, 0x20100005, 14, 3);
    // What the library refuses of a single parameter or of the referenced class does no harm.
    answer("OrvClassCopy", 5, {}, {{"classCode", 0x2002}});
    answer("OrvParameterWrite", 5, {}, {{"code", 0x20020083}});
    EXPECT_EQ(copy(), 0U);

    Lines expected{"OrvClassCopy 1 2 2010",
                   "OrvClassCopy 1 2 2003",
                   R"(OrvParameterWrite 2 20020028 1 0 "a")",
                   R"(OrvParameterWrite 2 20020083 1 0 "b")",
                   "OrvDataSourceOpening",
                   R"(OrvParameterWrite 2 200000b6 1 0 "c")",
                   R"(OrvParameterWrite 2 2010004c 1 0 "d")",
                   "OrvClassCopy 3ec 2 2002",
                   "OrvDataSourceClosing 3ec",
                   R"(OrvParameterWrite 2 20100075 1 0 "own")",
                   R"(OrvParameterWrite 2 20100076 1 0 "own")",
                   R"(OrvParameterWrite 2 20030015 1 0 "own")",
                   R"(OrvParameterWrite 2 20030053 1 0 "own")",
                   R"(OrvParameterWrite 2 20000002 1 0 "e")",
                   R"(OrvParameterWrite 2 20100005 1 0 "e")"};
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

struct ClassCase {
    const char* name;
    std::uint16_t classNumber;
    std::vector<std::int64_t> codes;  // of the copies of the class, in turn; 0 succeeds
    pyORV3::Status status;
    const char* message;  // null: the copy goes on
};

TEST_F(AnalysisSequence, createsAMissingBlockOnceAndCopiesAgain) {
    const char* const controlFailure = "File: (unknown). Failed to copy QAR_CLS_ANALCNTL";
    const char* const processingFailure = "File: (unknown). Failed to copy QAR_CLS_PROC";
    const std::vector<ClassCase> cases{
        {"created", 0x2010, {missingBlock, 0}, 0, nullptr},
        {"still missing", 0x2003, {missingBlock, missingBlock}, 0, nullptr},
        {"failed at once", 0x2010, {0x12345}, 0x12345, controlFailure},
        {"failed again", 0x2003, {missingBlock, 0x8003}, 0xEBE88003, processingFailure},
    };
    for (const auto& [name, classNumber, codes, status, message] : cases) {
        SCOPED_TRACE(name);
        recorder().reset();
        hold(destination, settings[0], "own");
        for (const std::int64_t code : codes) {
            answer("OrvClassCopy", code == 0 ? 0 : 4, {}, {{"classCode", classNumber}});
            if (code != 0) {
                answer("OrvErrorQuery", 0, {{"code", code}}, {{"context", destination}});
            }
        }
        const std::size_t reports = log_.reports().size();
        EXPECT_EQ(copy(), status);
        EXPECT_TRUE(recorder().unusedAnswers().empty());
        const Lines created = calls("OrvCreateBlock");
        EXPECT_EQ(created.size(), (codes.size() - 1) + (message == nullptr ? 1 : 0));
        if (codes.size() == 2) {
            EXPECT_EQ(created.front(), classNumber == 0x2010 ? "OrvCreateBlock 2 2010 0 0"
                                                             : "OrvCreateBlock 2 2003 0 0");
        }
        // Only a copy that goes on restores the settings.
        EXPECT_EQ(calls("OrvParameterWrite").size(), message == nullptr ? 1U : 0U);
        ASSERT_EQ(log_.reports().size(), reports + (message == nullptr ? 0 : 1));
        if (message != nullptr) {
            EXPECT_EQ(log_.reports().back(), failure(operation, message, status));
        }
    }
}

TEST_F(AnalysisSequence, endsWhereTheMandatoryParameterCannotBeWritten) {
    hold(destination, settings[0], "own");
    hold(source, 0x20020028, "a");
    describe(destination, 0x20020028, 14, 3);
    answer("OrvParameterWrite", 5);
    EXPECT_EQ(copy(), 0x65U);
    EXPECT_EQ(calls("OrvParameterWrite"), Lines{R"(OrvParameterWrite 2 20020028 1 0 "a")"});
    EXPECT_TRUE(calls("OrvCreateBlock").empty());
    ASSERT_EQ(log_.reports().size(), 1U);
    EXPECT_EQ(log_.reports()[0].context, "FileAccess::setParameter");
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
    EXPECT_TRUE(log_.reports().empty());
}

TEST_F(AnalysisSequence, tracesAFailedGeometryChunkAndGoesOn) {
    for (const std::string function : {"OrvReadUFBlock", "OrvWriteUFBlock"}) {
        SCOPED_TRACE(function);
        recorder().reset();
        answer(function, -7, {},
               function == "OrvReadUFBlock" ? recording::Values{{"offset", 1024}}
                                            : recording::Values{});
        holdGeometry(5000);
        EXPECT_EQ(copy(), 0U);
        EXPECT_EQ(chunksWritten().size(), function == "OrvReadUFBlock" ? 2U : 1U);
        EXPECT_EQ(
            log_.reports().back(),
            failure(operation, "File: (unknown). Failed to copy QAR_CLS_VORLAGEOM", 0xFFFFFFF9));
        EXPECT_EQ(calls().back(), description(source, 0x20100005));
    }
}

TEST_F(AnalysisSequence, takesAnUnreadableGeometryBlockForAnEmptyOne) {
    answer("OrvCreateBlock", -1);
    answer("OrvReadUFBlock", -1);
    EXPECT_EQ(copy(), 0U);
    EXPECT_TRUE(chunksWritten().empty());
    EXPECT_TRUE(log_.reports().empty());
}

TEST_F(AnalysisSequence, leavesTheReferencedFileAloneUnlessItIsSwitchedOnNamedAndOpens) {
    struct Case {
        const char* switchText;  // null: missing
        const char* fileName;
        std::int16_t opening;
        std::size_t opened;
    };
    for (const auto& [switchText, fileName, opening, opened] :
         {Case{nullptr, "/x", 0, 0}, Case{"No", "/x", 0, 0}, Case{"Yes", nullptr, 0, 0},
          Case{"Yes", "/x", 6, 1}}) {
        recorder().reset();
        if (switchText != nullptr) {
            hold(source, 0x2010002D, switchText);
        }
        if (fileName != nullptr) {
            hold(source, 0x20100104, fileName);
        }
        answerAlways("OrvDataSourceOpening", opening);
        EXPECT_EQ(copy(), 0U);
        EXPECT_EQ(calls("OrvDataSourceOpening").size(), opened);
        EXPECT_EQ(calls("OrvClassCopy").size(), 2U);
        EXPECT_TRUE(calls("OrvDataSourceClosing").empty());
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
        describe(destination, 0x20000002, 14, 3);
        describe(destination, 0x20100005, 14, 3);
        if (hasFirst) {
            hold(source, 0x20000002, "one");
        }
        if (hasSecond) {
            hold(source, 0x20100005, "two");
        }
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
    describe(destination, 0x20020028, 14, 3);
    recorder().answer("OrvParameterWrite", {-5, "int", {}, {}, 1});
    EXPECT_THROW(from->copySequenceTo(*to), int);
    EXPECT_TRUE(canBeLockedElsewhere(from));
    EXPECT_TRUE(canBeLockedElsewhere(to));
}

}  // namespace
