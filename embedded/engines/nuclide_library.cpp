#include "embedded/engines/nuclide_library.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numbers>
#include <utility>

#include "embedded/engines/decision_limits.h"
#include "embedded/engines/engine.h"
#include "embedded/engines/multiplet.h"
#include "embedded/engines/nuclide.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

constexpr double usualConfidence = 0.95;
constexpr double minBackground = 2.0;

// A nuclide is not present if less than a billionth is left.
constexpr double maxHalfLives = 30.0;

// Uncertainties of energies and relative intensities of X-rays, which depend on the excitation.
constexpr double xRayUncertainty = 0.03;  // keV
constexpr double xRayIntensityUncertainty = 0.15;

double decayConstant(double halfLife) {
    return halfLife > 0.0 ? std::numbers::ln2 / halfLife : 0.0;
}

// Mean of exp(-x) from 0 to the end.
double meanDecay(double end) {
    return end > 0.0 ? -std::expm1(-end) / end : 1.0;
}

}  // namespace

double detectionLimit(double background, double k, double q) {
    const double variance = 2.0 * std::max(background, minBackground);
    const double critical = k * std::sqrt(variance);
    return critical + 0.5 * q * q + q * std::sqrt(critical + variance + 0.25 * q * q);
}

double decayFactor(const Measurement& measurement, double halfLife) {
    const double constant = decayConstant(halfLife);
    return std::exp(-constant * measurement.elapsed) * meanDecay(constant * measurement.realTime) *
           meanDecay(constant * measurement.sampling);
}

double decayUncertainty(const Measurement& measurement, double halfLife, double uncertainty) {
    if (!(halfLife > 0.0)) {
        return 0.0;
    }
    constexpr double step = 1e-4;  // relative, small enough for a derivative
    const double ratio = decayFactor(measurement, halfLife * (1.0 + step)) /
                         decayFactor(measurement, halfLife * (1.0 - step));
    return std::abs(std::log(ratio)) / (2.0 * step) * uncertainty / halfLife;
}

NuclideLibrary::NuclideLibrary(const DataSourceAccess& dataSource, const Spectrum& spectrum,
                               const Calibration& calibration, double significanceLimit)
    : dataSource_(dataSource),
      spectrum_(spectrum),
      calibration_(calibration),
      significanceLimit_(significanceLimit) {
    const double confidence = dataSource.readFloat(QAR_F_CONFIDENCE).value_or(usualConfidence);
    if (!(confidence >= 0.5 && confidence < 1.0)) {
        throw EngineFailure(status::badSetting);
    }
    confidenceQuantile_ = normalQuantile(confidence);
    readMeasurement();
    const std::uint16_t records = dataSource.recordCount(QAR_CLS_NUCLIDE);
    for (std::uint32_t record = 1; record <= records; ++record) {
        names_.push_back(
            required(dataSource.readText(QAR_C_NUCLNAME, static_cast<std::uint16_t>(record))));
    }
    for (std::uint32_t record = 1; record <= records; ++record) {
        readNuclide(static_cast<std::uint16_t>(record));
    }
    for (std::size_t number = 0; number < nuclides_.size(); ++number) {
        if (const auto parent = parentOf(records_[number])) {
            const auto position = std::ranges::find(records_, *parent);
            if (position != records_.end()) {
                nuclides_[number].parent = static_cast<std::size_t>(position - records_.begin());
            }
        }
    }
}

void NuclideLibrary::readMeasurement() {
    const auto positive = [](std::optional<double> value) {
        return value && *value > 0.0 && std::isfinite(*value) ? value : std::nullopt;
    };
    measurement_.liveTime = positive(dataSource_.readDouble(QAR_D_LIVETIME));
    measurement_.realTime = positive(dataSource_.readDouble(QAR_D_REALTIME))
                                .value_or(measurement_.liveTime.value_or(0.0));
    measurement_.isAbsolute = measurement_.liveTime && !calibration_.efficiency.empty();
    const auto reference = dataSource_.readDouble(QAR_T_SAMPLETIME);
    const auto start = dataSource_.readDouble(QAR_T_ACQSTART);
    const bool corrected = dataSource_.readByte(QAR_B_DECAYCORR, 1).value_or(1) != 0;
    if (corrected && reference && start && std::isfinite(*start - *reference)) {
        measurement_.elapsed = *start - *reference;
        measurement_.sampling = positive(dataSource_.readDouble(QAR_D_SAMPLINGTIME)).value_or(0.0);
    }
}

// A parent that lives longer determines how fast a nuclide decays.
std::optional<std::uint16_t> NuclideLibrary::parentOf(std::uint16_t record) const {
    const auto name = dataSource_.readText(QAR_C_NUCLPARENT, record);
    const auto position = name && !name->empty() ? std::ranges::find(names_, *name) : names_.end();
    if (position == names_.end()) {
        return std::nullopt;
    }
    const auto parent = static_cast<std::uint16_t>(position - names_.begin() + 1);
    const double parentLife = dataSource_.readDouble(QAR_D_HALFLIFE, parent).value_or(0.0);
    const double life = dataSource_.readDouble(QAR_D_HALFLIFE, record).value_or(0.0);
    return parentLife > life && parent != record ? std::optional(parent) : std::nullopt;
}

NuclideLibrary::Decay NuclideLibrary::decayOf(std::uint16_t record) const {
    std::uint16_t ruling = record;
    // Each parent lives longer than its daughter, so there is no cycle.
    while (const auto parent = parentOf(ruling)) {
        ruling = *parent;
    }
    const double halfLife = dataSource_.readDouble(QAR_D_HALFLIFE, ruling).value_or(0.0);
    const double uncertainty = dataSource_.readDouble(QAR_D_HALFLIFEUNC, ruling).value_or(0.0);
    return halfLife > 0.0 && std::isfinite(halfLife) ? Decay{halfLife, std::max(0.0, uncertainty)}
                                                     : Decay{0.0, 0.0};
}

// The background is the contents within the peak's reach.
double NuclideLibrary::detectionLimitAt(double energy) const {
    constexpr double unreachable = std::numeric_limits<double>::infinity();
    const double channel = channelAt(calibration_, energy, spectrum_.contents.size());
    const auto expected = expectedAt(spectrum_, std::span(&channel, 1));
    if (expected.empty()) {
        return unreachable;
    }
    const double low = std::ceil(channel - peakReach * expected.front().width);
    const double high = std::floor(channel + peakReach * expected.front().width);
    if (low < 1.0 || high > static_cast<double>(spectrum_.contents.size())) {
        return unreachable;
    }
    double background = 0.0;
    for (auto number = static_cast<std::size_t>(low); number <= static_cast<std::size_t>(high);
         ++number) {
        background += std::max(0.0, spectrum_.contents[number - 1]);
        background += spectrum_.excessAt(number - 1);
    }
    return detectionLimit(background, significanceLimit_, confidenceQuantile_);
}

ExpectedLine NuclideLibrary::readLine(std::uint16_t record, std::uint16_t entry,
                                      double factor) const {
    const double energy = required(dataSource_.readDouble(QAR_D_LINEENERGY, record, entry));
    const double yield = required(dataSource_.readDouble(QAR_D_LINEYIELD, record, entry));
    const auto uncertainty = [&](std::uint32_t code) {
        const double value = dataSource_.readDouble(code, record, entry).value_or(0.0);
        return value > 0.0 && std::isfinite(value) ? value : 0.0;
    };
    const double summed = uncertainty(QAR_D_LINESUMFACT);
    const double summing = dataSource_.readDouble(QAR_D_LINESUMUNC, record, entry).value_or(0.0);
    return {energy,
            uncertainty(QAR_D_LINEUNC),
            yield * efficiencyAt(calibration_, energy) * factor * (summed > 0.0 ? summed : 1.0),
            yield > 0.0 ? uncertainty(QAR_D_LINEYIELDUNC) / yield : 0.0,
            detectionLimitAt(energy),
            dataSource_.readByte(QAR_B_LINEKEY, record, entry).value_or(0) != 0,
            std::isfinite(summing) ? summing : 0.0};
}

void NuclideLibrary::readNuclide(std::uint16_t record) {
    if (dataSource_.readByte(QAR_B_NUCLACTIVE, record).value_or(1) == 0) {
        return;
    }
    const Decay decay = decayOf(record);
    if (decay.halfLife > 0.0 && measurement_.elapsed > maxHalfLives * decay.halfLife) {
        return;
    }
    const double factor =
        decayFactor(measurement_, decay.halfLife) * measurement_.liveTime.value_or(1.0);
    Nuclide nuclide{names_[record - 1U],
                    {},
                    std::nullopt,
                    dataSource_.readDouble(QAR_D_HALFLIFE, record).value_or(0.0)};
    const std::uint16_t entries = dataSource_.entryCount(QAR_CLS_NUCLIDE, record);
    for (std::uint32_t entry = 1; entry <= entries; ++entry) {
        nuclide.lines.push_back(readLine(record, static_cast<std::uint16_t>(entry), factor));
    }
    nuclides_.push_back(std::move(nuclide));
    records_.push_back(record);
    decayUncertainties_.push_back(
        decayUncertainty(measurement_, decay.halfLife, decay.uncertainty));
}

std::vector<Nuclide> NuclideLibrary::elements() const {
    std::vector<Nuclide> elements;
    for (const XRayElement& element : xRayElements()) {
        Nuclide nuclide{std::string(element.symbol), {}, std::nullopt};
        for (const XRayLine& line : element.lines) {
            nuclide.lines.push_back({line.energy, xRayUncertainty,
                                     line.intensity * efficiencyAt(calibration_, line.energy),
                                     xRayIntensityUncertainty, detectionLimitAt(line.energy),
                                     line.intensity == 1.0});
        }
        elements.push_back(std::move(nuclide));
    }
    return elements;
}

std::vector<LinePattern> readPatterns(const DataSourceAccess& dataSource,
                                      const Calibration& calibration) {
    std::vector<LinePattern> patterns;
    for (std::uint16_t record = 1; record <= dataSource.recordCount(QAR_CLS_NUCLIDE); ++record) {
        if (dataSource.readByte(QAR_B_NUCLACTIVE, record).value_or(1) == 0) {
            continue;
        }
        LinePattern pattern = {dataSource.readText(QAR_C_NUCLNAME, record).value_or(""), {}, 0.0};
        const std::uint16_t lines = dataSource.entryCount(QAR_CLS_NUCLIDE, record);
        for (std::uint16_t entry = 1; entry <= lines; ++entry) {
            const double energy =
                dataSource.readDouble(QAR_D_LINEENERGY, record, entry).value_or(0.0);
            const double photons =
                dataSource.readDouble(QAR_D_LINEYIELD, record, entry).value_or(0.0);
            const double weight = photons * efficiencyAt(calibration, energy);
            if (weight > 0.0) {
                pattern.lines.push_back({energy, weight});
            }
        }
        if (!pattern.lines.empty()) {
            patterns.push_back(std::move(pattern));
        }
    }
    return patterns;
}

}  // namespace embedded::engines
