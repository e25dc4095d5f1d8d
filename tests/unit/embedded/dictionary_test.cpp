// The dictionary library through its two entry points.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <set>
#include <string>

#include "embedded/pqar/dictionary_status.h"
#include "embedded/pqar/parameter_codes.h"
#include "embedded/pqar/parameter_table.h"
#include "module/orv.h"

namespace testing_support {
namespace {

using namespace embedded;

class DictionaryTest : public testing::Test {
  protected:
    DictionaryTest() : library_(dlopen(DICTIONARY_PATH, RTLD_NOW), dlclose) {
        if (library_ != nullptr) {
            describe_ = reinterpret_cast<OrvParameterInfoFunction>(
                dlsym(library_.get(), "pqar_util_getpinfo"));
            codeOf_ = reinterpret_cast<OrvParameterNameFunction>(
                dlsym(library_.get(), "pqar_util_pname2code"));
        }
    }
    void SetUp() override {
        ASSERT_NE(nullptr, describe_);
        ASSERT_NE(nullptr, codeOf_);
    }

    std::uint32_t describe(std::uint32_t code) {
        return describe_(code, 1, 0, name_.data(), text_.data(), outputs_.data(), &outputs_[1],
                         &outputs_[2], &outputs_[3], &outputs_[4], &outputs_[5], &outputs_[6]);
    }

    std::unique_ptr<void, int (*)(void*)> library_;
    OrvParameterInfoFunction describe_ = nullptr;
    OrvParameterNameFunction codeOf_ = nullptr;
    std::array<char, 256> name_{};
    std::array<char, 256> text_{};
    std::array<char, 260> area_{};
    std::array<std::uint32_t, 7> outputs_{};  // class, per entry, length, type, size, 0, 0
};

TEST_F(DictionaryTest, DescribesParameters) {
    using testing::ElementsAre;
    ASSERT_EQ(dictionarySuccess, describe(QAR_L_CHANNELS));
    EXPECT_STREQ("QAR_L_CHANNELS", name_.data());
    EXPECT_STREQ("Number of channels of the spectrum", text_.data());
    EXPECT_THAT(outputs_, ElementsAre(0x2000U, 0U, 0U, 8U, 4U, 0U, 0U));
    ASSERT_EQ(dictionarySuccess, describe(QAR_C_NUCLNAME));
    EXPECT_THAT(outputs_, ElementsAre(0x2004U, 0U, 16U, 14U, 17U, 0U, 0U));
    ASSERT_EQ(dictionarySuccess, describe(QAR_D_LINEENERGY));
    EXPECT_THAT(outputs_, ElementsAre(0x2004U, 1U, 0U, 27U, 8U, 0U, 0U));
}

TEST_F(DictionaryTest, NamesLeadBackToEveryCode) {
    std::set<DataType> types;
    for (const ParameterDescription& parameter : allParameters()) {
        ASSERT_EQ(dictionarySuccess, describe(parameter.code));
        std::string lower(name_.data());
        lower[4] = static_cast<char>(std::tolower(lower[4]));
        for (const std::string& name : {std::string(name_.data()), lower}) {
            std::uint32_t code = 0;
            EXPECT_EQ(dictionarySuccess, codeOf_(name.c_str(), &code, area_.data()));
            EXPECT_EQ(parameter.code, code) << name;
        }
        types.insert(parameter.type);
    }
    EXPECT_GE(allParameters().size(), 80U);
    EXPECT_EQ(12U, types.size()) << "a type of values has no parameter";
}

TEST_F(DictionaryTest, RefusesWhatItDoesNotKnow) {
    for (const std::uint32_t code : {0U, 7U, 0x20000000U, 0x2000FFFFU, 0xFFFFFFFFU}) {
        EXPECT_EQ(dictionaryUnknownParameter, describe(code)) << std::hex << code;
    }
    std::uint32_t code = 99;
    for (const char* name : {"", "QAR_L_", "QAR_L_CHANNEL", "QAR_L_CHANNELSX", "CHANNELS"}) {
        EXPECT_EQ(dictionaryUnknownParameter, codeOf_(name, &code, area_.data())) << name;
    }
    EXPECT_EQ(dictionaryNameTooLong, codeOf_(std::string(10000, 'Q').c_str(), &code, area_.data()));
    EXPECT_EQ(dictionaryNullPointer, codeOf_(nullptr, &code, area_.data()));
    EXPECT_EQ(dictionaryNullPointer, codeOf_("QAR_L_CHANNELS", nullptr, area_.data()));
    EXPECT_EQ(dictionaryNullPointer, describe_(QAR_L_CHANNELS, 1, 0, name_.data(), text_.data(),
                                               outputs_.data(), &outputs_[1], nullptr, &outputs_[3],
                                               &outputs_[4], &outputs_[5], &outputs_[6]));
    EXPECT_EQ(99U, code);
}

}  // namespace
}  // namespace testing_support
