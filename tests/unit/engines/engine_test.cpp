// Tests of the engine through its entry point, on a file.
#include "embedded/engines/engine.h"

#include <dlfcn.h>

#include <array>
#include <functional>
#include <memory>
#include <tuple>
#include <utility>

#include "tests/support/data_source.h"
#include "tests/unit/engines/simulated_scintillator.h"
#include "tests/unit/engines/simulated_spectrum.h"

namespace testing_support {
namespace {

using namespace embedded;
namespace status = embedded::engines::status;

constexpr std::int32_t search = engines::optionSearchPeaks;
constexpr std::int32_t identify = engines::optionIdentifyNuclides;

using Line = std::pair<double, double>;  // energy and yield

class EngineTest : public DataSourceTest {
  protected:
    EngineTest() : library_(dlopen(ENGINE_PATH, RTLD_NOW), dlclose) {
        if (library_ != nullptr) {
            entryPoint_ = reinterpret_cast<OrvEngineFunction>(dlsym(library_.get(), "searchPeaks"));
        }
    }
    void SetUp() override {
        ASSERT_NE(nullptr, entryPoint_);
        putCalibration(QAR_D_ENERGYCAL, simulated::calibration().energy);
        putCalibration(QAR_D_SHAPECAL, simulated::calibration().shape);
        simulated::SimulatedSpectrum spectrum;
        spectrum.addPeak(1323.32, 20000.0);  // 661.66 keV
        spectrum.addPeak(2346.46, 9000.0);   // 1173.23 keV
        spectrum.addPeak(2664.98, 8000.0);   // 1332.49 keV
        auto random = simulated::repeatableRandom(2);
        const std::vector<double> contents = spectrum.draw(random);
        ASSERT_EQ(0U, source_.putSpectrum({contents.begin(), contents.end()}));
        putNuclide(1, "Cs-137", {{661.66, 0.851}});
        putNuclide(2, "Co-60", {{1173.23, 0.9985}, {1332.49, 0.9998}});
        // A name of maximum length.
        putNuclide(3, "Na-22 16 letters", {{1274.54, 0.9994}, {661.2, 0.01}});
    }

    std::uint32_t run(std::int32_t options) const { return run(source_.context(), options); }
    std::uint32_t run(OrvContext context, std::int32_t options) const {
        return entryPoint_(context, options, 0, 0);
    }
    void putCalibration(std::uint32_t code, const std::vector<double>& coefficients) const {
        std::int32_t entry = 0;
        for (const double coefficient : coefficients) {
            ASSERT_EQ(0U, source_.put(code, coefficient, 1, ++entry));
        }
    }
    void putNuclide(std::int32_t record, const std::string& name,
                    const std::vector<Line>& lines) const {
        ASSERT_EQ(0U, SOrvPutParam(source_.context(), QAR_C_NUCLNAME, record, 0, name.c_str(),
                                   static_cast<std::uint32_t>(name.size() + 1)));
        std::int32_t entry = 0;
        for (const auto& [energy, yield] : lines) {
            ASSERT_EQ(0U, source_.put(QAR_D_LINEENERGY, energy, record, ++entry));
            ASSERT_EQ(0U, source_.put(QAR_D_LINEYIELD, yield, record, entry));
        }
    }
    // Returns the names of the result records with an energy, which are the identified nuclides.
    std::vector<std::string> identified() const {
        std::vector<std::string> names;
        const auto count = static_cast<std::uint16_t>(source_.recordCount(QAR_CLS_RESULT));
        for (std::uint16_t record = 1; record <= count; ++record) {
            double energy = 0.0;
            if (SOrvGetParam(source_.context(), QAR_D_RESENERGY, record, 1, &energy,
                             sizeof energy) == 0) {
                names.push_back(source_.text(QAR_C_RESNUCLIDE, record));
            }
        }
        return names;
    }

    std::unique_ptr<void, int (*)(void*)> library_;
    OrvEngineFunction entryPoint_ = nullptr;
    DataSource source_ = DataSource::created(file());
};

TEST_F(EngineTest, RepeatedRunWritesPeaksAndNuclides) {
    ASSERT_EQ(status::success, run(0));
    ASSERT_EQ(status::success, run(0));  // replaces the results of the first run
    ASSERT_EQ(3, source_.recordCount(QAR_CLS_PEAK));
    EXPECT_NEAR(661.66, source_.get<double>(QAR_D_PEAKENERGY, 1), 0.05);
    EXPECT_NEAR(1323.32, source_.get<double>(QAR_D_PEAKCENTR, 1), 0.1);
    EXPECT_NEAR(1.55, source_.get<double>(QAR_D_PEAKFWHM, 1), 0.05);
    const auto uncertainty = source_.get<double>(QAR_D_PEAKAREAU, 1);
    EXPECT_NEAR(std::sqrt(20000.0 + 490.0), uncertainty, 5.0);
    EXPECT_NEAR(20000.0, source_.get<double>(QAR_D_PEAKAREA, 1), 3.5 * uncertainty);
    EXPECT_NEAR(490.0, source_.get<double>(QAR_D_PEAKCONT, 1), 50.0);
    // From the likelihood: larger than area / uncertainty, which includes the noise of the signal.
    EXPECT_NEAR(230.0, source_.get<double>(QAR_D_PEAKSIGNIF, 1), 5.0);
    EXPECT_NEAR(1323 - 4 * 3.1, source_.get<std::int32_t>(QAR_L_PEAKLEFT, 1), 2);
    EXPECT_NEAR(1323 + 4 * 3.1, source_.get<std::int32_t>(QAR_L_PEAKRIGHT, 1), 2);
    EXPECT_NEAR(1.0F, source_.get<float>(QAR_F_PEAKCHISQ, 1), 0.6F);
    EXPECT_EQ("Cs-137", source_.text(QAR_C_PEAKNUCL, 1));
    EXPECT_EQ("Co-60", source_.text(QAR_C_PEAKNUCL, 3));

    EXPECT_THAT(identified(), testing::ElementsAre("Co-60", "Cs-137"));
    EXPECT_EQ(2, source_.get<std::int32_t>(QAR_L_RESLINES, 1));
    EXPECT_GT(source_.get<double>(QAR_D_RESCONF, 1), 0.9);
    EXPECT_DOUBLE_EQ(1173.23, source_.get<double>(QAR_D_RESENERGY, 1));
}

TEST_F(EngineTest, OptionsRunSingleSteps) {
    ASSERT_EQ(status::success, run(search));
    EXPECT_EQ(3, source_.recordCount(QAR_CLS_PEAK));
    EXPECT_THAT(identified(), testing::IsEmpty());
    EXPECT_EQ("", source_.text(QAR_C_PEAKNUCL, 1));
    ASSERT_EQ(status::success, run(identify));
    EXPECT_THAT(identified(), testing::ElementsAre("Co-60", "Cs-137"));
    ASSERT_EQ(status::success, run(search));  // deletes the nuclides of the old peaks
    EXPECT_THAT(identified(), testing::IsEmpty());
}

// Changes the file before the engine runs; the change also applies to the following cases.
using Preparation = std::function<OrvStatus(const DataSource&)>;

template <typename Value>
Preparation put(std::uint32_t code, Value value, int entry = 0) {
    return [=](const DataSource& source) { return source.put(code, value, 1, entry); };
}

TEST_F(EngineTest, SettingsOfTheFileLimitTheResults) {
    const std::vector<std::pair<Preparation, std::vector<std::string>>> settings = {
        {put(QAR_L_FIRSTCHAN, 2000), {"Co-60"}},
        {put(QAR_L_LASTCHAN, 2300), {}},
        {put(QAR_D_MINCONF, 0.0), {}},
        {put(QAR_L_LASTCHAN, 4096), {"Co-60"}},
        {put(QAR_L_FIRSTCHAN, 1), {"Co-60", "Cs-137"}},
        {put(QAR_D_MATCHTOL, 1e-6), {}},
        {put(QAR_D_MATCHTOL, 0.5), {"Co-60", "Cs-137"}},
        {put(QAR_D_MINCONF, 0.999), {"Co-60"}},
        {put(QAR_D_MINCONF, 0.5), {"Co-60", "Cs-137"}},
        {put(QAR_B_NUCLACTIVE, std::uint8_t{0}), {"Co-60"}},
        {put(QAR_D_PEAKLIMIT, 100.0), {"Co-60"}}};
    for (const auto& setting : settings) {
        ASSERT_EQ(0U, setting.first(source_));
        ASSERT_EQ(status::success, run(0));
        EXPECT_EQ(setting.second, identified()) << &setting - settings.data();
    }
    ASSERT_EQ(status::success, run(50 << engines::optionLimitShift));  // 5.0 overrides the file
    EXPECT_THAT(identified(), testing::ElementsAre("Co-60"));
    EXPECT_EQ(status::success, run(10 << engines::optionLimitShift));  // the minimum
}

// The estimate is marked, is made again in each run, and is replaced by a calibration of the user.
TEST_F(EngineTest, MissingOrWrongWidthsAreReplacedByAnEstimate) {
    const auto shape = [this](std::uint32_t code) {
        return std::vector<double>{source_.get<double>(code, 1, 1),
                                   source_.get<double>(code, 1, 2)};
    };
    const auto origin = [this] { return source_.get<std::int16_t>(QAR_S_SHAPEORIGIN, 1); };
    ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_CALIBRATION, 1, 0));
    putCalibration(QAR_D_ENERGYCAL, simulated::calibration().energy);
    ASSERT_EQ(status::success, run(0));
    EXPECT_EQ(3, source_.recordCount(QAR_CLS_PEAK));
    EXPECT_EQ(1, origin());
    EXPECT_EQ(1, source_.get<std::int16_t>(QAR_S_DETECTORKIND, 1));
    const std::vector<double> estimate = shape(QAR_D_SHAPECAL);
    EXPECT_EQ(estimate, shape(QAR_D_SHAPEEST));
    EXPECT_NEAR(1.55, std::sqrt(engines::polynomial(estimate, 661.66)), 0.08);

    // A calibration that a user writes later replaces the estimate unless the peaks contradict it.
    putCalibration(QAR_D_SHAPECAL, simulated::calibration().shape);
    ASSERT_EQ(status::success, run(0));
    EXPECT_EQ(simulated::calibration().shape, shape(QAR_D_SHAPECAL));
    EXPECT_EQ(0, origin());
    for (const double wrong : {100.0, -1e6}) {
        putCalibration(QAR_D_SHAPECAL, {wrong, 0.0});
        for (int repeated = 0; repeated < 2; ++repeated) {
            ASSERT_EQ(status::success, run(0));
            EXPECT_EQ(estimate, shape(QAR_D_SHAPECAL));
            EXPECT_EQ(3, origin());
        }
    }
}

// A calibration that is wrong by 0.4 % and 1 keV: the results have the energies of the lines, the
// calibration is unchanged.
TEST_F(EngineTest, WrongCalibrationCorrectsTheEnergiesOfResults) {
    const auto corrected = [this] { return source_.get<std::int32_t>(QAR_L_CORRLINES, 1); };
    putNuclide(4, "Eu-152", {{121.78, 0.28}, {344.28, 0.27}, {778.9, 0.13}, {1408.0, 0.21}});
    const std::vector<double> energy = {1.0, 0.502};
    for (const bool isOff : {true, false}) {
        putCalibration(QAR_D_ENERGYCAL, isOff ? energy : simulated::calibration().energy);
        ASSERT_EQ(status::success, run(search));
        ASSERT_EQ(status::success, run(identify));
        EXPECT_NEAR(1173.23, source_.get<double>(QAR_D_PEAKENERGY, 2), 0.2);
        EXPECT_THAT(identified(), testing::ElementsAre("Co-60", "Cs-137"));
        EXPECT_EQ(isOff ? 3 : 0, corrected());
    }
    EXPECT_EQ(0.0, source_.get<double>(QAR_D_ENERGYCORR, 1, 1));
    EXPECT_EQ(1.0, source_.get<double>(QAR_D_ENERGYCORR, 1, 2));
}

TEST_F(EngineTest, MissingCalibrationIsDerivedFromTheNuclides) {
    ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_CALIBRATION, 1, 0));
    ASSERT_EQ(status::success, run(engines::optionCalibrate | search));
    EXPECT_NEAR(0.5, source_.get<double>(QAR_D_ENERGYCAL, 1, 2), 0.0005);
    EXPECT_NEAR(1332.49, source_.get<double>(QAR_D_PEAKENERGY, 3), 0.2);
    EXPECT_EQ(1, source_.get<std::int16_t>(QAR_S_SHAPEORIGIN, 1));

    const auto before = source_.get<double>(QAR_D_ENERGYCAL, 1, 1);
    ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_NUCLIDE, 2, 0));
    EXPECT_EQ(status::noAssignment, run(engines::optionCalibrate));
    for (int record = 0; record < 2; ++record) {
        ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_NUCLIDE, 1, 0));
    }
    EXPECT_EQ(status::noNuclides, run(engines::optionCalibrate));
    EXPECT_EQ(before, source_.get<double>(QAR_D_ENERGYCAL, 1, 1));
}

TEST_F(EngineTest, ScintillatorWithWrongGainGetsWidthCorrectionAndNuclide) {
    simulated::ScintillatorSpectrum spectrum({"NaI", 0.08, 260.0, 1.5, 0.95}, 4);
    spectrum.addNuclide({{661.66, 0.0, 0.851, 0.0, 0.0, false}}, 60000);
    spectrum.addContinuum(5000);
    std::vector<double> contents = spectrum.contents();
    contents.resize(simulated::channelCount);  // the spectrum that it replaces is longer
    ASSERT_EQ(0U, source_.putSpectrum({contents.begin(), contents.end()}));
    ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_CALIBRATION, 1, 0));
    putCalibration(QAR_D_ENERGYCAL, spectrum.calibration().energy);
    for (const std::int32_t options : {0, identify}) {  // the second run reads the correction
        ASSERT_EQ(status::success, run(options));
        EXPECT_THAT(identified(), testing::ElementsAre("Cs-137"));
        EXPECT_EQ("Cs-137", source_.text(QAR_C_RESNUCLIDE, 1));
    }
    EXPECT_EQ(1, source_.get<std::int32_t>(QAR_L_CORRLINES, 1));
    EXPECT_NEAR(661.66,
                source_.get<double>(QAR_D_ENERGYCORR, 1, 1) +
                    source_.get<double>(QAR_D_ENERGYCORR, 1, 2) * 0.95 * 661.66,
                8.0);
    const double square = source_.get<double>(QAR_D_SHAPECAL, 1, 1) +
                          source_.get<double>(QAR_D_SHAPECAL, 1, 2) * 661.66;
    EXPECT_NEAR(0.08 * 661.66, std::sqrt(square), 0.05 * 0.08 * 661.66);
}

TEST_F(EngineTest, UnusableInputReturnsItsStatus) {
    using Failure = std::tuple<std::uint32_t, std::int32_t, Preparation>;
    const auto nothing = [](const DataSource&) { return 0U; };
    const std::vector<Failure> failures = {
        {status::badOption, 0x8, nothing},
        {status::badOption, 0x10000, nothing},
        {status::badOption, 9 << engines::optionLimitShift, nothing},
        {status::badSetting, 0, put(QAR_S_SMOOTHWIDTH, std::int16_t{-1})},
        {status::badSetting, 0, put(QAR_S_SMOOTHWIDTH, std::int16_t{257})},
        {status::badSetting, 0, put(QAR_D_PEAKLIMIT, std::nan(""))},
        {status::calibrationUnusable, 0, put(QAR_D_ENERGYCAL, -0.5, 2)},
        {status::noEnergyCalibration, 0,
         [](auto& source) { return SOrvDeleteOne(source.context(), QAR_CLS_CALIBRATION, 1, 0); }},
        {status::spectrumEmpty, 0,
         [](auto& source) { return source.putSpectrum(std::vector<std::int32_t>(4096)); }},
        {status::spectrumUnreadable, 0, put(QAR_L_CHANNELS, 0)}};
    const auto reader = DataSource::opened(file(), reading);
    EXPECT_EQ(status::resultsNotWritable, run(reader.context(), 0));
    for (const auto& failure : failures) {
        const auto& [expected, options, prepare] = failure;
        ASSERT_EQ(0U, prepare(source_));
        EXPECT_EQ(expected, run(options)) << &failure - failures.data();
        EXPECT_LE(source_.recordCount(QAR_CLS_PEAK), 0);
    }
    EXPECT_EQ(status::spectrumUnreadable, run(DataSource::created(file("empty.qar")).context(), 0));
    EXPECT_EQ(status::spectrumUnreadable, run(DataSource().context(), 0));
    EXPECT_EQ(status::dataSourceRefused, run(0, 0));
    EXPECT_EQ(status::dataSourceRefused, run(-1, 0));
}

// An efficiency of 1 % at all energies and a live time of 1,000 s: 20,000 counts of Cs-137 are
// 2,353 Bq.
TEST_F(EngineTest, EfficiencyAndLiveTimeGiveActivitiesAndDetectionLimits) {
    ASSERT_EQ(0U, source_.put(QAR_D_EFFICCAL, std::log(0.01)));
    ASSERT_EQ(0U, source_.put(QAR_D_LIVETIME, 1000.0));
    ASSERT_EQ(status::success, run(0));
    const auto area = source_.get<double>(QAR_D_PEAKAREA, 1);
    const auto uncertainty = source_.get<double>(QAR_D_PEAKAREAU, 1);
    const double activity = area / 8.51;
    ASSERT_EQ("Cs-137", source_.text(QAR_C_RESNUCLIDE, 2));
    EXPECT_NEAR(activity, source_.get<double>(QAR_D_ACTIVITY, 2), 1e-3 * activity);
    EXPECT_NEAR(uncertainty / 8.51, source_.get<double>(QAR_D_ACTIVITYUNC, 2), 0.1);
    EXPECT_EQ("Bq", source_.text(QAR_C_RESUNIT, 2));
    // A nuclide that was not found has the same values, which line 1 determines.
    ASSERT_EQ("Na-22 16 letters", source_.text(QAR_C_RESNUCLIDE, 3));
    EXPECT_LT(source_.get<double>(QAR_D_RESCONF, 3), 0.1);
    EXPECT_LT(std::abs(source_.get<double>(QAR_D_ACTIVITY, 3)),
              2.5 * source_.get<double>(QAR_D_ACTIVITYUNC, 3));
    // 123 counts within 1.25 FWHM; a fit of the shape has the variance of 0.72 times as many.
    const double threshold = 1.645 * std::sqrt(0.72 * 123.0);
    EXPECT_NEAR(threshold, source_.get<double>(QAR_D_RESTHRESH, 3) * 9.994, 2.0);
    const auto limit = source_.get<double>(QAR_D_DETECTLIMIT, 3);
    EXPECT_NEAR(2.0 * threshold + 2.7, limit * 9.994, 4.0);
    ASSERT_EQ(0U, source_.put(QAR_F_CONFIDENCE, 0.999F));
    ASSERT_EQ(status::success, run(0));
    EXPECT_NEAR(1.53, source_.get<double>(QAR_D_DETECTLIMIT, 3) / limit, 0.06);
    ASSERT_EQ(0U, source_.put(QAR_F_CONFIDENCE, 1.0F));
    EXPECT_EQ(status::badSetting, run(0));
}

// A half-life of 10 days; a measurement of one day, 20 days after the reference time.
TEST_F(EngineTest, HalfLifeCorrectsActivitiesAndTheirUncertainties) {
    constexpr double day = 86400.0;
    ASSERT_EQ(0U, source_.put(QAR_D_EFFICCAL, std::log(0.01)));
    ASSERT_EQ(0U, source_.put(QAR_D_LIVETIME, 1000.0));
    ASSERT_EQ(status::success, run(0));
    const auto now = source_.get<double>(QAR_D_ACTIVITY, 2);
    const auto statistical = source_.get<double>(QAR_D_ACTIVITYUNC, 2) / now;
    ASSERT_EQ(0U, source_.put(QAR_D_REALTIME, day));
    ASSERT_EQ(0U, source_.put(QAR_D_HALFLIFE, 10.0 * day));
    ASSERT_EQ(0U, source_.put(QAR_D_HALFLIFEUNC, 0.1 * day));
    ASSERT_EQ(0U, source_.put(QAR_D_EFFICUNC, 0.03));
    ASSERT_EQ(0U, source_.put(QAR_D_LINEYIELDUNC, 0.04 * 0.851));
    ASSERT_EQ(0U, source_.put(QAR_T_SAMPLETIME, 5.2e9));
    ASSERT_EQ(0U, source_.put(QAR_T_ACQSTART, 5.2e9 + 20.0 * day));
    ASSERT_EQ(status::success, run(0));
    const double during = std::log(2.0) / 10.0;
    const double factor = 4.0 * during / (1.0 - std::exp(-during));
    const auto then = source_.get<double>(QAR_D_ACTIVITY, 2);
    EXPECT_NEAR(factor, then / now, 1e-3);
    const double decay = std::log(2.0) * 2.0 * 0.01;
    EXPECT_NEAR(std::sqrt(statistical * statistical + 0.03 * 0.03 + 0.04 * 0.04 + decay * decay),
                source_.get<double>(QAR_D_ACTIVITYUNC, 2) / then, 1e-3);
    ASSERT_EQ(0U, source_.put(QAR_D_SAMPLINGTIME, 10.0 * day));
    ASSERT_EQ(status::success, run(0));
    EXPECT_NEAR(factor * 2.0 * std::log(2.0), source_.get<double>(QAR_D_ACTIVITY, 2) / now, 1e-3);
    ASSERT_EQ(0U, source_.put(QAR_B_DECAYCORR, std::uint8_t{0}));
    ASSERT_EQ(status::success, run(0));
    EXPECT_NEAR(factor / 4.0, source_.get<double>(QAR_D_ACTIVITY, 2) / now, 1e-3);
    // The longer half-life of a parent replaces that of the nuclide.
    putNuclide(4, "Parent-1", {});
    ASSERT_EQ(0U, source_.put(QAR_D_HALFLIFE, 1e12, 4));
    ASSERT_EQ(0U, SOrvPutParam(source_.context(), QAR_C_NUCLPARENT, 1, 0, "Parent-1", 9));
    ASSERT_EQ(0U, source_.put(QAR_B_DECAYCORR, std::uint8_t{1}));
    ASSERT_EQ(status::success, run(0));
    EXPECT_NEAR(1.0, source_.get<double>(QAR_D_ACTIVITY, 2) / now, 1e-3);
}

// (FWHM / keV)^2 = -1 + energy / 200 keV: no width below 200 keV.
TEST_F(EngineTest, ChannelsWithoutWidthReturnRangePartlySearched) {
    putCalibration(QAR_D_SHAPECAL, {-1.0, 0.005});
    EXPECT_EQ(status::rangePartlySearched, run(0));
    EXPECT_THAT(identified(), testing::ElementsAre("Co-60", "Cs-137"));
    EXPECT_EQ(status::success, run(identify));
    ASSERT_EQ(0U, source_.put(QAR_L_FIRSTCHAN, 500));
    EXPECT_EQ(status::success, run(0));
}

// Two peaks 0.9 widths apart and two peaks 3.2 widths apart. Smoothing over 40 channels moves the
// maximum of the latter to their middle, where there is no peak.
TEST_F(EngineTest, SmoothingAndMultipletSettingsChangeTheNumberOfPeaks) {
    using Way = std::tuple<std::uint8_t, std::int16_t, int>;
    auto random = simulated::repeatableRandom(4);
    simulated::SimulatedSpectrum spectrum;
    for (const double channel : {1000.0, 1002.8, 1500.0, 1510.0}) {
        spectrum.addPeak(channel, 20000.0);
    }
    const std::vector<double> contents = spectrum.draw(random);
    ASSERT_EQ(0U, source_.putSpectrum({contents.begin(), contents.end()}));
    for (const auto& [multiplets, smoothing, peaks] : {Way{1, 0, 4}, Way{0, 0, 3}, Way{0, 40, 1}}) {
        ASSERT_EQ(0U, source_.put(QAR_B_FITMULTIPLT, multiplets));
        ASSERT_EQ(0U, source_.put(QAR_S_SMOOTHWIDTH, smoothing));
        ASSERT_EQ(status::success, run(search));
        EXPECT_EQ(peaks, source_.recordCount(QAR_CLS_PEAK)) << smoothing;
    }
}

TEST_F(EngineTest, MissingNuclideRecordsFailOnlyTheIdentification) {
    ASSERT_EQ(0U, source_.put(QAR_D_LINEENERGY, 1000.0, 1, 2));  // a line without yield
    EXPECT_EQ(status::recordUnreadable, run(0));
    for (int record = 0; record < 3; ++record) {
        ASSERT_EQ(0U, SOrvDeleteOne(source_.context(), QAR_CLS_NUCLIDE, 1, 0));
    }
    EXPECT_EQ(status::success, run(0));
    EXPECT_EQ(3, source_.recordCount(QAR_CLS_PEAK));
    EXPECT_EQ(status::noNuclides, run(identify));
}

}  // namespace
}  // namespace testing_support
