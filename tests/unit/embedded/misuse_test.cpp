// Calls of every function of the interface with invalid arguments.
#include <array>
#include <functional>
#include <limits>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

std::array<char, 2048> bytes;
char* const buffer = bytes.data();
std::array<std::int32_t, 256> channels;
std::uint16_t word16 = 1;
std::uint32_t word32 = 1;
OrvNodeRecord node;
const OrvParameterDescriptionKey key{"", 0, 0x0007, 0x2000};
const OrvParameterDescriptionKey unknownKey{"", 0, 0xFFFF, 0x2000};
OrvParameterDescription description;
constexpr std::uint16_t geometry = QAR_CLS_VORLAGEOM;

using Call = std::function<std::int64_t(OrvContext)>;

// Calls that need a context; all other arguments are valid.
const std::vector<Call> callsOnContexts = {
    [](OrvContext c) { return SOrvEnumNodes(c, &node, &word32, 0x42); },
    [](OrvContext c) { return OrvNodeEnumeration(c, &node, &word16, 0x42); },
    [](OrvContext c) { return SOrvDeleteDSC(c); },
    [](OrvContext c) { return OrvContextDeletion(c); },
    [](OrvContext c) { return OrvErrorQuery(c, &word32, &word32, &word32); },
    [](OrvContext c) { return SOrvQueryDSC(c, 3, buffer); },
    [](OrvContext c) { return OrvParameterDescriptionQuery(c, &key, &description); },
    [](OrvContext c) { return SOrvQueryDataSource(c, 1, &word32); },
    [](OrvContext c) { return SOrvFirstInput(c, 0, buffer); },
    [](OrvContext c) { return SOrvNextInput(c, buffer); },
};

// Calls that also need an open source.
const std::vector<Call> callsOnSources = {
    [](OrvContext c) { return SOrvCloseDataSource(c); },
    [](OrvContext c) { return OrvDataSourceClosing(c); },
    [](OrvContext c) { return SOrvFlush(c); },
    [](OrvContext c) { return OrvDataSourceFlush(c); },
    [](OrvContext c) { return SOrvGetParam(c, QAR_L_CHANNELS, 1, 1, buffer, 4); },
    [](OrvContext c) { return OrvParameterRead(c, QAR_L_CHANNELS, 1, 1, buffer, 4); },
    [](OrvContext c) { return SOrvPutParam(c, QAR_L_CHANNELS, 1, 1, buffer, 4); },
    [](OrvContext c) { return OrvParameterWrite(c, QAR_L_CHANNELS, 1, 1, buffer, 4); },
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
    [](OrvContext c) { return OrvReadUFBlock(c, geometry, 0, buffer, 512, 0, &word32); },
    [](OrvContext c) { return OrvWriteUFBlock(c, geometry, buffer, 512, 0x40); },
    [](OrvContext c) { return SOrvControlDSC(c, 1, 0); },
    [](OrvContext c) { return SOrvReVerify(c); },
};

// Calls that open or create a source.
std::vector<Call> callsWithName(const char* name) {
    return {
        [=](OrvContext c) { return SOrvOpenDataSource(c, name, 1, 3, 0, "a"); },
        [=](OrvContext c) { return SOrvOpenDataSource(c, name, 769, 1, 0, "a"); },
        [=](OrvContext c) { return OrvDataSourceOpening(c, name, 1, 0x80, 0, nullptr); },
        [=](OrvContext c) { return SOrvCreateFile(c, name, 1, 65535, 1, 32768); },
        [=](OrvContext c) { return OrvFileCreation(c, name, 1, 65535, 1, 32768); },
    };
}

class MisuseTest : public DataSourceTest {};

TEST_F(MisuseTest, InvalidAndDeletedHandlesAreRefused) {
    OrvContext deleted = 0;
    ASSERT_EQ(0U, SOrvCreateDSC2(nullptr, &deleted, 0, 0));
    ASSERT_EQ(0U, SOrvDeleteDSC(deleted));
    const std::string path = file();
    for (const OrvContext context :
         {0, -1, deleted, std::numeric_limits<OrvContext>::max(), 0x5EADBEEF}) {
        for (const auto& calls : {callsOnContexts, callsOnSources, callsWithName(path.c_str())}) {
            for (std::size_t number = 0; number < calls.size(); ++number) {
                EXPECT_NE(0, calls[number](context)) << "call " << number << " on " << context;
            }
        }
    }
    EXPECT_EQ(0, fileCount());
}

TEST_F(MisuseTest, CallsWithoutRequiredSourceOrValidNameAreRefused) {
    const DataSource source;
    for (std::size_t number = 0; number < callsOnSources.size(); ++number) {
        EXPECT_EQ(codes::noSourceOpen, source.failure(callsOnSources[number](source.context())))
            << "call " << number;
    }
    const std::string longName(10000, 'n');
    for (const char* name : std::initializer_list<const char*>{nullptr, "", longName.c_str()}) {
        for (const Call& call : callsWithName(name)) {
            EXPECT_EQ(name == nullptr ? codes::nullPointer : codes::nameRefused,
                      source.failure(call(source.context())));
        }
    }
    EXPECT_EQ(codes::unknownItem,
              SOrvOpenDataSource(source.context(), "detector", 2, reading, 0, nullptr));
}

TEST_F(MisuseTest, NullPointersAndUnknownCodesAreRefused) {
    const auto source = DataSource::created(file());
    const OrvContext c = source.context();
    const auto failing = [&](std::int64_t result) { return source.failure(result); };
    word32 = 1;
    EXPECT_EQ(codes::nullPointer, failing(SOrvEnumNodes(c, nullptr, &word32, 0x42)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvEnumNodes(c, &node, nullptr, 0x42)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvQueryDSC(c, 3, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvQueryDataSource(c, 1, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvGetParam(c, QAR_L_CHANNELS, 1, 1, nullptr, 4)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvPutParam(c, QAR_L_CHANNELS, 1, 1, nullptr, 4)));
    EXPECT_EQ(codes::nullPointer, failing(OrvParameterDescriptionQuery(c, nullptr, &description)));
    EXPECT_EQ(codes::nullPointer, failing(OrvParameterDescriptionQuery(c, &key, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvGetSpectrum(c, 1, 1, 0, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvPutSpectrum(c, 1, 1, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvClassCount(c, QAR_CLS_PEAK, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvEntryCount(c, QAR_CLS_PEAK, 1, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvFindRecord(c, 2, nullptr, 0, &word16, &word32)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvFindRecord(c, 2, "Co", 0, nullptr, &word32)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvFindRecord(c, 4, buffer, 0, &word16, nullptr)));
    EXPECT_EQ(codes::nullPointer,
              failing(OrvReadUFBlock(c, geometry, 0, nullptr, 512, 0, &word32)));
    EXPECT_EQ(codes::nullPointer, failing(OrvReadUFBlock(c, geometry, 0, buffer, 512, 0, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(OrvWriteUFBlock(c, geometry, nullptr, 512, 0)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvFirstInput(c, 0, nullptr)));
    EXPECT_EQ(codes::nullPointer, failing(SOrvNextInput(c, nullptr)));
    EXPECT_EQ(codes::unknownItem, failing(SOrvQueryDSC(c, 2, buffer)));
    EXPECT_EQ(codes::unknownItem, failing(SOrvQueryDataSource(c, 0, &word32)));
    EXPECT_EQ(codes::unknownItem, failing(SOrvControlDSC(c, 5, 0)));
    EXPECT_EQ(codes::unknownItem, failing(SOrvFindRecord(c, 3, buffer, 0, &word16, &word32)));
    EXPECT_EQ(codes::unknownParameter, failing(SOrvGetParam(c, 0, 1, 1, buffer, 8)));
    EXPECT_EQ(codes::unknownParameter, failing(SOrvPutParam(c, 0x20050001, 1, 1, buffer, 8)));
    EXPECT_EQ(codes::unknownParameter,
              failing(OrvParameterDescriptionQuery(c, &unknownKey, &description)));
    EXPECT_EQ(codes::unknownClass, failing(OrvWriteUFBlock(c, QAR_CLS_PEAK, buffer, 8, 0)));
    EXPECT_EQ(codes::unknownClass, failing(SOrvInsertOne(c, QAR_CLS_SPECTRUM, 1, 0)));
    EXPECT_EQ(codes::unknownClass, failing(SOrvInsertOne(c, geometry, 1, 0)));
    EXPECT_EQ(codes::sizeRefused, failing(SOrvPutParam(c, QAR_C_NUCLNAME, 1, 0, "no end", 3)));
    EXPECT_EQ(codes::nullPointer, SOrvCreateDSC2(nullptr, nullptr, 0, 0));
    EXPECT_EQ(1, OrvErrorQuery(c, nullptr, &word32, &word32));
}

TEST_F(MisuseTest, WrongSizesAndOffsetsAreRefused) {
    const auto source = DataSource::created(file());
    const OrvContext c = source.context();
    EXPECT_EQ(0U, SOrvPutParam(c, QAR_D_LIVETIME, 1, 0, buffer, 8));
    EXPECT_EQ(0U, SOrvPutParam(c, QAR_C_NUCLNAME, 1, 0, "Co-60\0\0", 7));
    EXPECT_EQ(0, OrvWriteUFBlock(c, geometry, buffer, 512, 0));
    EXPECT_EQ(codes::sizeRefused, SOrvGetParam(c, QAR_C_NUCLNAME, 1, 0, buffer, 5));
    for (const std::uint32_t size : {0U, 7U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(codes::sizeRefused, SOrvPutParam(c, QAR_D_LIVETIME, 1, 0, buffer, size)) << size;
        EXPECT_EQ(codes::sizeRefused, SOrvGetParam(c, QAR_D_LIVETIME, 1, 0, buffer, size)) << size;
    }
    EXPECT_EQ(codes::sizeRefused, SOrvPutParam(c, QAR_D_LIVETIME, 1, 0, buffer, 9));
    for (const std::uint32_t size : {0U, 0x100001U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(-1, OrvWriteUFBlock(c, geometry, buffer, size, 0)) << size;
    }
    for (const std::uint32_t offset : {513U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(-1, OrvReadUFBlock(c, geometry, offset, buffer, 512, 0, &word32)) << offset;
    }
}

}  // namespace
}  // namespace testing_support
