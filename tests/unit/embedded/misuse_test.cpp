// Every function of the interface, called in ways that it refuses.
#include <array>
#include <functional>
#include <limits>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

std::array<char, 2048> bytes;
std::array<std::int32_t, 256> channels;
std::uint16_t word16 = 1;
std::uint32_t word32 = 1;
OrvNodeRecord node;
const OrvParameterDescriptionKey key{"", 0, 0x0007, 0x2000};
OrvParameterDescription description;

using Call = std::function<std::int64_t(OrvContext)>;

// Calls that nothing but their context is wrong with.
const std::vector<Call>& callsOnContexts() {
    static const std::vector<Call> calls = {
        [](OrvContext c) { return SOrvEnumNodes(c, &node, &word32, 0x42); },
        [](OrvContext c) { return OrvNodeEnumeration(c, &node, &word16, 0x42); },
        [](OrvContext c) { return SOrvDeleteDSC(c); },
        [](OrvContext c) { return OrvContextDeletion(c); },
        [](OrvContext c) { return OrvErrorQuery(c, &word32, &word32, &word32); },
        [](OrvContext c) { return SOrvQueryDSC(c, 3, bytes.data()); },
        [](OrvContext c) { return OrvParameterDescriptionQuery(c, &key, &description); },
        [](OrvContext c) { return SOrvQueryDataSource(c, 1, &word32); },
        [](OrvContext c) { return SOrvFirstInput(c, 0, bytes.data()); },
        [](OrvContext c) { return SOrvNextInput(c, bytes.data()); },
    };
    return calls;
}

// Calls that need a source besides.
const std::vector<Call>& callsOnSources() {
    static const std::vector<Call> calls = {
        [](OrvContext c) { return SOrvCloseDataSource(c); },
        [](OrvContext c) { return OrvDataSourceClosing(c); },
        [](OrvContext c) { return SOrvFlush(c); },
        [](OrvContext c) { return OrvDataSourceFlush(c); },
        [](OrvContext c) { return SOrvGetParam(c, QAR_L_CHANNELS, 1, 1, bytes.data(), 4); },
        [](OrvContext c) { return OrvParameterRead(c, QAR_L_CHANNELS, 1, 1, bytes.data(), 4); },
        [](OrvContext c) { return SOrvPutParam(c, QAR_L_CHANNELS, 1, 1, bytes.data(), 4); },
        [](OrvContext c) { return OrvParameterWrite(c, QAR_L_CHANNELS, 1, 1, bytes.data(), 4); },
        [](OrvContext c) { return SOrvGetSpectrum(c, 1, 1, 0, channels.data()); },
        [](OrvContext c) { return SOrvPutSpectrum(c, 1, 1, channels.data()); },
        [](OrvContext c) { return OrvCreateBlock(c, QAR_CLS_SPECTRUM, 256, 0); },
        [](OrvContext c) { return SOrvClassCount(c, QAR_CLS_PEAK, &word16); },
        [](OrvContext c) { return OrvRecordCount(c, QAR_CLS_PEAK, &word16); },
        [](OrvContext c) { return SOrvEntryCount(c, QAR_CLS_PEAK, 1, &word16); },
        [](OrvContext c) { return SOrvInsertOne(c, QAR_CLS_PEAK, 1, 0); },
        [](OrvContext c) { return SOrvDeleteOne(c, QAR_CLS_PEAK, 1, 0); },
        [](OrvContext c) { return SOrvDeleteLevel(c, 1); },
        [](OrvContext c) { return SOrvClassCopy(c, c, QAR_CLS_PEAK); },
        [](OrvContext c) { return OrvClassCopy(c, c, QAR_CLS_PEAK); },
        [](OrvContext c) { return SOrvSaveAs(c, c); },
        [](OrvContext c) { return OrvDataSourceDuplication(c, c); },
        [](OrvContext c) { return SOrvCopyRecord(c, QAR_CLS_PEAK, 1, c, 1, 0); },
        [](OrvContext c) { return SOrvFindRecord(c, 2, "Co-60", 0, &word16, &word32); },
        [](OrvContext c) { return OrvReadUFBlock(c, 0x4005, 0, bytes.data(), 512, 0, &word32); },
        [](OrvContext c) { return OrvWriteUFBlock(c, 0x4005, bytes.data(), 512, 0x40); },
        [](OrvContext c) { return SOrvControlDSC(c, 1, 0); },
        [](OrvContext c) { return SOrvReVerify(c); },
    };
    return calls;
}

// Calls that open or create, and so need a name.
const std::vector<std::function<std::int64_t(OrvContext, const char*)>>& callsWithNames() {
    static const std::vector<std::function<std::int64_t(OrvContext, const char*)>> calls = {
        [](OrvContext c, const char* name) { return SOrvOpenDataSource(c, name, 1, 3, 0, "a"); },
        [](OrvContext c, const char* name) { return SOrvOpenDataSource(c, name, 769, 1, 0, "a"); },
        [](OrvContext c, const char* name) {
            return OrvDataSourceOpening(c, name, 1, 0x80, 0, nullptr);
        },
        [](OrvContext c, const char* name) { return SOrvCreateFile(c, name, 1, 65535, 1, 32768); },
        [](OrvContext c, const char* name) { return OrvFileCreation(c, name, 1, 65535, 1, 32768); },
    };
    return calls;
}

TEST(MisuseTest, HandlesThatNameNothingAreRefused) {
    OrvContext deleted = 0;
    ASSERT_EQ(0U, SOrvCreateDSC2(nullptr, &deleted, 0, 0));
    ASSERT_EQ(0U, SOrvDeleteDSC(deleted));
    const TemporaryFolder folder;
    for (const OrvContext context :
         {0, -1, deleted, std::numeric_limits<OrvContext>::max(), 0x5EADBEEF}) {
        std::size_t number = 0;
        for (const auto* calls : {&callsOnContexts(), &callsOnSources()}) {
            for (const Call& call : *calls) {
                EXPECT_NE(0, call(context)) << "call " << number << " on " << context;
                ++number;
            }
        }
        for (const auto& call : callsWithNames()) {
            EXPECT_NE(0, call(context, folder.file("new.qar").c_str())) << context;
        }
    }
    EXPECT_EQ(0U, folder.fileCount());
}

TEST(MisuseTest, ContextsWithoutASourceSayThatTheyHaveNone) {
    const DataSource source;
    std::size_t number = 0;
    for (const Call& call : callsOnSources()) {
        EXPECT_NE(0, call(source.context())) << "call " << number;
        EXPECT_EQ(codes::noSourceOpen, source.lastFailure()) << "call " << number;
        ++number;
    }
}

TEST(MisuseTest, NamesThatCannotBeAreRefused) {
    const DataSource source;
    for (const auto& call : callsWithNames()) {
        for (const std::string& name : {std::string(), std::string(10000, 'n')}) {
            EXPECT_NE(0, call(source.context(), name.c_str()));
            EXPECT_EQ(codes::nameRefused, source.lastFailure());
        }
        EXPECT_NE(0, call(source.context(), nullptr));
        EXPECT_EQ(codes::nullPointer, source.lastFailure());
    }
}

TEST(MisuseTest, NullPointersAreRefused) {
    const TemporaryFolder folder;
    const auto source = DataSource::created(folder.file("null.qar"));
    const OrvContext c = source.context();
    const std::vector<std::function<std::int64_t()>> calls = {
        [=] { return SOrvEnumNodes(c, nullptr, &(word32 = 1), 0x42); },
        [=] { return SOrvEnumNodes(c, &node, nullptr, 0x42); },
        [=] { return OrvNodeEnumeration(c, &node, nullptr, 0x42); },
        [=] { return SOrvQueryDSC(c, 3, nullptr); },
        [=] { return SOrvQueryDataSource(c, 1, nullptr); },
        [=] { return SOrvGetParam(c, QAR_L_CHANNELS, 1, 1, nullptr, 4); },
        [=] { return SOrvPutParam(c, QAR_L_CHANNELS, 1, 1, nullptr, 4); },
        [=] { return OrvParameterDescriptionQuery(c, nullptr, &description); },
        [=] { return OrvParameterDescriptionQuery(c, &key, nullptr); },
        [=] { return SOrvGetSpectrum(c, 1, 1, 0, nullptr); },
        [=] { return SOrvPutSpectrum(c, 1, 1, nullptr); },
        [=] { return SOrvClassCount(c, QAR_CLS_PEAK, nullptr); },
        [=] { return SOrvEntryCount(c, QAR_CLS_PEAK, 1, nullptr); },
        [=] { return SOrvFindRecord(c, 2, nullptr, 0, &word16, &word32); },
        [=] { return SOrvFindRecord(c, 2, "Co", 0, nullptr, &word32); },
        [=] { return SOrvFindRecord(c, 4, bytes.data(), 0, &word16, nullptr); },
        [=] { return OrvReadUFBlock(c, 0x4005, 0, nullptr, 512, 0, &word32); },
        [=] { return OrvReadUFBlock(c, 0x4005, 0, bytes.data(), 512, 0, nullptr); },
        [=] { return OrvWriteUFBlock(c, 0x4005, nullptr, 512, 0); },
        [=] { return SOrvFirstInput(c, 0, nullptr); },
        [=] { return SOrvNextInput(c, nullptr); },
    };
    std::size_t number = 0;
    for (const auto& call : calls) {
        EXPECT_NE(0, call()) << "call " << number;
        EXPECT_EQ(codes::nullPointer, source.lastFailure()) << "call " << number;
        ++number;
    }
    EXPECT_EQ(codes::nullPointer, SOrvCreateDSC2(nullptr, nullptr, 0, 0));
    EXPECT_EQ(1, OrvErrorQuery(c, nullptr, &word32, &word32));
}

TEST(MisuseTest, UnknownItemsAndSizesOutOfRangeAreRefused) {
    const TemporaryFolder folder;
    const auto source = DataSource::created(folder.file("items.qar"));
    const OrvContext c = source.context();
    EXPECT_EQ(codes::unknownItem, SOrvQueryDSC(c, 2, bytes.data()));
    EXPECT_EQ(codes::unknownItem, SOrvQueryDataSource(c, 0, &word32));
    EXPECT_EQ(codes::unknownItem, SOrvControlDSC(c, 4, 0));
    EXPECT_EQ(codes::unknownItem, SOrvControlDSC(c, 1, 1));
    EXPECT_EQ(codes::unknownParameter, source.readStatus(0));
    EXPECT_EQ(codes::unknownParameter, source.put(0x20050001, 1.0));
    for (const std::uint32_t length : {0U, 0x100001U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(-1, OrvWriteUFBlock(c, 0x4005, bytes.data(), length, 0)) << length;
        EXPECT_EQ(codes::sizeRefused, source.lastFailure()) << length;
    }
    ASSERT_EQ(0, OrvWriteUFBlock(c, 0x4005, bytes.data(), 512, 0));
    for (const std::uint32_t offset : {513U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(-1, OrvReadUFBlock(c, 0x4005, offset, bytes.data(), 512, 0, &word32)) << offset;
    }
}

}  // namespace
}  // namespace testing_support
