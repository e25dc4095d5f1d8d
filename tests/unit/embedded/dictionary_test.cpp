// The two entry points of the dictionary library.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

#include "embedded/pqar/parameter_codes.h"
#include "embedded/pqar/parameter_table.h"
#include "module/interface/orv.h"

namespace testing_support {
namespace {

using namespace embedded;
using testing::ElementsAre;

class DictionaryTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(describe_ != nullptr && codeOf_ != nullptr); }
    std::uint32_t describe(std::uint32_t code) {
        return describe_(code, 1, 0, name_.data(), text_.data(), outputs_.data(), &outputs_[1],
                         &outputs_[2], &outputs_[3], &outputs_[4], &outputs_[5], &outputs_[6]);
    }
    std::uint32_t codeOf(const char* name) { return codeOf_(name, &code_, area_.data()); }

    std::unique_ptr<void, int (*)(void*)> library_{dlopen(DICTIONARY_PATH, RTLD_NOW), dlclose};
    OrvParameterInfoFunction describe_ =
        reinterpret_cast<OrvParameterInfoFunction>(dlsym(library_.get(), "pqar_util_getpinfo"));
    OrvParameterNameFunction codeOf_ =
        reinterpret_cast<OrvParameterNameFunction>(dlsym(library_.get(), "pqar_util_pname2code"));
    std::uint32_t code_ = 99;
    std::array<char, 256> name_{};
    std::array<char, 256> text_{};
    std::array<char, 260> area_{};
    std::array<std::uint32_t, 7> outputs_{};  // class, per entry, length, type, size, 0, 0
};

TEST_F(DictionaryTest, EveryParameterIsDescribedByCodeAndName) {
    for (const ParameterDescription& parameter : allParameters()) {
        ASSERT_EQ(dictionarySuccess, describe(parameter.code));
        EXPECT_EQ(dictionarySuccess, codeOf(name_.data()));
        EXPECT_EQ(parameter.code, code_) << name_.data();
    }
    // A number of 4 bytes, a string of 16 characters, and a double with a value for each entry.
    EXPECT_EQ(dictionarySuccess, codeOf("qar_l_channels"));
    describe(code_);
    EXPECT_STREQ("Number of channels of the spectrum", text_.data());
    EXPECT_THAT(outputs_, ElementsAre(0x2000U, 0U, 0U, 8U, 4U, 0U, 0U));
    describe(QAR_C_NUCLNAME);
    EXPECT_THAT(outputs_, ElementsAre(0x2004U, 0U, 16U, 14U, 17U, 0U, 0U));
    describe(QAR_D_LINEENERGY);
    EXPECT_THAT(outputs_, ElementsAre(0x2004U, 1U, 0U, 27U, 8U, 0U, 0U));
}

TEST_F(DictionaryTest, UnknownParametersAndNullPointersAreRefused) {
    for (const std::uint32_t code : {0U, 7U, 0x20000000U, 0x2000FFFFU, 0xFFFFFFFFU}) {
        EXPECT_EQ(dictionaryUnknownParameter, describe(code)) << std::hex << code;
    }
    for (const char* name : {"", "QAR_L_", "QAR_L_CHANNEL", "QAR_L_CHANNELSX", "CHANNELS"}) {
        EXPECT_EQ(dictionaryUnknownParameter, codeOf(name)) << name;
    }
    EXPECT_EQ(dictionaryUnknownParameter, codeOf(std::string(55, 'Q').c_str()));
    EXPECT_EQ(dictionaryNameTooLong, codeOf(std::string(56, 'Q').c_str()));
    EXPECT_EQ(dictionaryNullPointer, codeOf(nullptr));
    EXPECT_EQ(dictionaryNullPointer, codeOf_("QAR_L_CHANNELS", nullptr, area_.data()));
    EXPECT_EQ(dictionaryNullPointer, describe_(QAR_L_CHANNELS, 1, 0, name_.data(), text_.data(),
                                               outputs_.data(), &outputs_[1], nullptr, &outputs_[3],
                                               &outputs_[4], &outputs_[5], &outputs_[6]));
    EXPECT_EQ(99U, code_);
}

}  // namespace
}  // namespace testing_support
