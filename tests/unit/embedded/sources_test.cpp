// Contexts, nodes, states and inputs.
#include <array>
#include <fstream>
#include <optional>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;
using testing::ElementsAre;
using testing::IsEmpty;

class SourcesTest : public testing::Test {
  protected:
    TemporaryFolder folder_;
    std::string path_ = folder_.file("source.qar");
};

TEST_F(SourcesTest, ContextsAreBoundToTheNodeThatIsEnumerated) {
    OrvContext temporary = 0;
    ASSERT_EQ(0U, SOrvCreateDSC(nullptr, &temporary, 0, 0));
    OrvNodeRecord node{};
    std::uint32_t count = 1;
    EXPECT_EQ(codes::unknownSelector, SOrvEnumNodes(temporary, &node, &count, 0x41));
    std::uint16_t shortCount = 1;
    EXPECT_EQ(2, OrvNodeEnumeration(temporary, &node, &shortCount, 0));
    for (const std::uint32_t selector : {0x42U, 0x46U}) {
        count = 1;
        EXPECT_EQ(0U, SOrvEnumNodes(temporary, &node, &count, selector));
        EXPECT_EQ(1U, count);
        EXPECT_STREQ("", node.refusal);
    }
    OrvContext bound = 0;
    EXPECT_EQ(0, OrvCreateDSC2(&node, &bound, 0, 0));
    EXPECT_GT(bound, temporary);
    EXPECT_EQ(0, OrvContextDeletion(bound));
    node.refusal[0] = 'x';
    EXPECT_EQ(codes::nodeRefused, SOrvCreateDSC2(&node, &bound, 0, 0));
    EXPECT_EQ(0, bound);
    EXPECT_EQ(0U, SOrvDeleteDSC(temporary));
    EXPECT_EQ(codes::unknownContext, SOrvDeleteDSC(temporary));
}

TEST_F(SourcesTest, AContextHasOneSourceAtATime) {
    const DataSource source;
    EXPECT_EQ(0U, source.sourceState());
    EXPECT_EQ(codes::noSourceOpen, source.close());
    EXPECT_EQ(codes::noSourceOpen, source.put(QAR_D_LIVETIME, 1.0));
    EXPECT_EQ(0U, source.create(path_));
    EXPECT_EQ(0x1U, source.sourceState());
    EXPECT_EQ(codes::alreadyOpen, source.create(folder_.file("second.qar")));
    EXPECT_EQ(codes::alreadyOpen, source.open(path_, Reading));
    EXPECT_EQ(codes::alreadyOpen, source.lastFailure());
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(0U, source.open(path_, 0x2));
    EXPECT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
    EXPECT_EQ(0x3U, source.sourceState());
    EXPECT_EQ(1U, folder_.fileCount());
}

TEST_F(SourcesTest, OnlySourcesOpenedForWritingAreWritten) {
    { ASSERT_EQ(0U, DataSource::created(path_).putSpectrum({1})); }
    for (const std::uint32_t access : {0x0U, 0x1U, 0x80U, 0x81U}) {
        const DataSource source;
        ASSERT_EQ(0U, source.open(path_, access));
        EXPECT_EQ(0x5U, source.sourceState());
        EXPECT_EQ(codes::readOnly, source.put(QAR_D_LIVETIME, 1.0));
        EXPECT_EQ(codes::readOnly, source.putSpectrum({2}));
        EXPECT_EQ(codes::readOnly, SOrvDeleteLevel(source.context(), 1));
        EXPECT_EQ(codes::readOnly, SOrvControlDSC(source.context(), 2, 0));
        EXPECT_EQ(0U, SOrvFlush(source.context()));
    }
}

// The environment variable that names the folder of the inputs, for as long as the object lives.
class InputFolder {
  public:
    explicit InputFolder(const std::string& folder) { setenv("ORV_INPUTS", folder.c_str(), 1); }
    ~InputFolder() { unsetenv("ORV_INPUTS"); }
    InputFolder(const InputFolder&) = delete;
    InputFolder& operator=(const InputFolder&) = delete;
    InputFolder(InputFolder&&) = delete;
    InputFolder& operator=(InputFolder&&) = delete;
};

std::vector<std::string> inputs() {
    const DataSource source;
    std::vector<std::string> names;
    std::array<char, ORV_INPUT_NAME_SIZE> name{};
    OrvStatus status = SOrvFirstInput(source.context(), 0, name.data());
    while (status == 0) {
        names.emplace_back(name.data());
        status = SOrvNextInput(source.context(), name.data());
    }
    EXPECT_EQ(codes::endOfList, status);
    return names;
}

TEST_F(SourcesTest, InputsAreTheDataSourcesOfTheirFolder) {
    EXPECT_THAT(inputs(), IsEmpty());
    const std::string longName(200, 'n');
    for (const auto& name : {std::string("detector 2"), std::string("detector 1"), longName}) {
        DataSource::created(folder_.file(name + ".qar"));
    }
    DataSource::created(folder_.file("other.dat"));
    std::ofstream(folder_.file("foreign.qar")) << "foreign";
    std::filesystem::create_directory(folder_.file("folder.qar"));
    const InputFolder named(folder_.file(""));
    EXPECT_THAT(inputs(), ElementsAre("detector 1", "detector 2", longName));

    const DataSource source;
    constexpr std::uint16_t input = 769;
    EXPECT_EQ(0U, source.open("detector 2", Reading, input));
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(codes::fileNotFound, source.open("detector 3", Reading, input));
    for (const char* name : {"..", "../detector 1", "folder/detector 1", "/detector 1"}) {
        EXPECT_EQ(codes::nameRefused, source.open(name, Reading, input)) << name;
    }
    EXPECT_EQ(codes::unknownItem, source.open("detector 1", Reading, 2));
}

}  // namespace
}  // namespace testing_support
