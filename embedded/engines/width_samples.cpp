#include "embedded/engines/width_samples.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>

#include "embedded/engines/calibration.h"
#include "embedded/engines/peak_fit.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

namespace {

// FWHM in channels at which candidates are looked for: from the narrowest in steps of a factor up
// to a part of the spectrum. From the binned width on, neighbouring channels are added up.
constexpr double minCandidateWidth = 1.4;
constexpr double ladderFactor = 1.4142135623730951;
constexpr double maxPart = 1.0 / 6.0;
constexpr double binnedWidth = 6.0;
constexpr double resolvedWidth = 2.5;  // FWHM in added-up channels that a fit needs

constexpr double minSignificance = 5.0;
constexpr std::size_t maxCandidates = 40;  // of each width
constexpr double sameWidth = 1.9;  // factor; of such candidates only the strongest is fitted

// Region of a fit on each side of the peak in FWHM: the wide one unless neighbours disturb it.
constexpr double wideReach = 1.8;
constexpr double closeReach = 1.2;
constexpr double closeAdvantage = 1.5;  // in significance
constexpr double pairReach = 1.4;
constexpr double minPairDistance = 0.7;  // distance in FWHM
constexpr double maxPairDistance = 2.0;
constexpr std::size_t fewSamples = 8;
constexpr std::size_t maxPairs = 10;
constexpr std::size_t minReach = 3;  // channels
constexpr int maxRounds = 6;
constexpr double settledChange = 0.02;
constexpr double maxWidthRatio = 2.2;  // factor in width from which a fit finds the same peak
constexpr double uncertaintyPerSignificance = 1.4;  // a width is less certain than an area
constexpr double coveringPart = 0.25;               // of the significance

struct ScaledCandidate {
    double channel;  // of the original spectrum
    double width;
    double significance;
    std::size_t binning;
};

// Returns the spectrum with `binning` neighbouring channels added up, without an incomplete last
// group.
struct BinnedSpectrum {
    BinnedSpectrum(std::span<const double> contents, std::span<const double> excess,
                   std::size_t channels)
        : binning(channels), content(added(contents)), excessVariance(added(excess)) {}

    std::vector<double> added(std::span<const double> values) const {
        std::vector<double> sums(values.size() / binning, 0.0);
        for (std::size_t index = 0; index < sums.size() * binning; ++index) {
            sums[index / binning] += values[index];
        }
        return sums;
    }
    double toOriginal(double channel) const {
        const auto factor = static_cast<double>(binning);
        return (channel - 0.5) * factor + 0.5;
    }
    double fromOriginal(double channel) const {
        const auto factor = static_cast<double>(binning);
        return (channel - 0.5) / factor + 0.5;
    }
    Spectrum view() const { return {content, {}, excessVariance}; }

    std::size_t binning;
    std::vector<double> content;
    std::vector<double> excessVariance;
};

void appendCandidates(const BinnedSpectrum& binned, double width,
                      std::vector<ScaledCandidate>& all) {
    const Spectrum spectrum = binned.view();
    std::vector<double> variances(spectrum.contents.size());
    for (std::size_t index = 0; index < variances.size(); ++index) {
        variances[index] = std::max(spectrum.contents[index], 0.0) + spectrum.excessAt(index);
    }
    const std::vector<double> widths(variances.size(), width / static_cast<double>(binned.binning));
    auto candidates = findCandidates(spectrum.contents, variances, widths, minSignificance);
    const std::size_t kept = std::min(candidates.size(), maxCandidates);
    std::ranges::partial_sort(candidates, candidates.begin() + static_cast<std::ptrdiff_t>(kept),
                              std::ranges::greater(), &Candidate::significance);
    for (std::size_t number = 0; number < kept; ++number) {
        const Candidate& candidate = candidates[number];
        all.push_back(
            {binned.toOriginal(candidate.channel), width, candidate.significance, binned.binning});
    }
}

// A peak is a candidate at several widths of the ladder; only the most significant one is kept.
std::vector<ScaledCandidate> strongestOfEach(std::vector<ScaledCandidate> all) {
    std::ranges::sort(all, std::ranges::greater(), &ScaledCandidate::significance);
    std::vector<ScaledCandidate> kept;
    for (const ScaledCandidate& candidate : all) {
        const bool isCovered = std::ranges::any_of(kept, [&](const ScaledCandidate& other) {
            const double ratio = candidate.width / other.width;
            return ratio < sameWidth && ratio > 1.0 / sameWidth &&
                   std::abs(candidate.channel - other.channel) <
                       0.8 * std::max(candidate.width, other.width);
        });
        if (!isCovered) {
            kept.push_back(candidate);
        }
    }
    return kept;
}

// Returns the channels around one or more neighbouring peaks, which are in rising order.
std::optional<Region> regionAround(const std::vector<ExpectedPeak>& peaks, double reachInWidths,
                                   std::size_t channelCount) {
    const ExpectedPeak& firstPeak = peaks.front();
    const ExpectedPeak& lastPeak = peaks.back();
    const auto reach = [reachInWidths](const ExpectedPeak& peak) {
        return std::max(reachInWidths * peak.width, static_cast<double>(minReach));
    };
    const double first = std::max(1.0, std::round(firstPeak.channel - reach(firstPeak)));
    const double last =
        std::min(static_cast<double>(channelCount), std::round(lastPeak.channel + reach(lastPeak)));
    // A peak that is cut off by the end of the spectrum has no width.
    if (firstPeak.channel - first < firstPeak.width || last - lastPeak.channel < lastPeak.width) {
        return std::nullopt;
    }
    const auto index = static_cast<std::size_t>(first) - 1;
    return Region{index, static_cast<std::size_t>(last) - index};
}

// Fits with a free width, the same for all peaks, and repeats the fit around the fitted peaks until
// the width no longer changes. Empty if it does not converge.
std::vector<FittedPeak> fitFreely(const Spectrum& spectrum, std::vector<ExpectedPeak> peaks,
                                  double reach) {
    Shape shape;
    if (peaks.size() == 1) {
        shape.widePeak = 0;
    }
    for (int round = 0; round < maxRounds; ++round) {
        const auto region = regionAround(peaks, reach, spectrum.contents.size());
        const auto fit =
            region ? fitRegion(spectrum, *region, peaks, shape) : std::optional<RegionFit>();
        if (!fit) {
            return {};
        }
        const double change = fit->peaks.front().width / peaks.front().width - 1.0;
        for (std::size_t number = 0; number < peaks.size(); ++number) {
            const FittedPeak& fitted = fit->peaks[number];
            if (!(fitted.area > 0.0) || !std::isfinite(fitted.width)) {
                return {};
            }
            peaks[number] = {fitted.channel, fitted.width};
        }
        if (std::abs(change) < settledChange) {
            return fit->peaks;
        }
        if (!std::ranges::is_sorted(peaks, {}, &ExpectedPeak::channel)) {
            return {};
        }
    }
    return {};
}

bool isUsable(const BinnedSpectrum& binned, const FittedPeak& peak, const ExpectedPeak& expected) {
    return peak.significance >= minSignificance &&
           (binned.binning == 1 || peak.width >= resolvedWidth) &&
           std::abs(peak.channel - expected.channel) <= expected.width;
}

WidthSample sampleOf(const BinnedSpectrum& binned, const FittedPeak& peak) {
    return {binned.toOriginal(peak.channel), peak.width * static_cast<double>(binned.binning),
            uncertaintyPerSignificance / peak.significance, peak.area, peak.significance};
}

ExpectedPeak expectedOf(const BinnedSpectrum& binned, const ScaledCandidate& candidate) {
    return {binned.fromOriginal(candidate.channel),
            candidate.width / static_cast<double>(binned.binning)};
}

std::optional<WidthSample> measure(const BinnedSpectrum& binned, const ScaledCandidate& candidate) {
    const ExpectedPeak expected = expectedOf(binned, candidate);
    std::optional<FittedPeak> best;
    for (const double reach : {wideReach, closeReach}) {
        const auto fitted = fitFreely(binned.view(), {expected}, reach);
        if (!fitted.empty() &&
            (!best || fitted.front().significance > closeAdvantage * best->significance)) {
            best = fitted.front();
        }
    }
    return best && isUsable(binned, *best, expected) ? std::optional(sampleOf(binned, *best))
                                                     : std::nullopt;
}

// True if a fit from the candidate would only find the same peak again.
bool isMeasured(const std::vector<WidthSample>& samples, const ScaledCandidate& candidate) {
    return std::ranges::any_of(samples, [&](const WidthSample& sample) {
        const double ratio = candidate.width / sample.width;
        return ratio < maxWidthRatio && ratio > 1.0 / maxWidthRatio &&
               std::abs(candidate.channel - sample.channel) < 0.3 * sample.width;
    });
}

// The fit of a single peak replaces a wide fit over the peak and its surroundings.
void dropCovering(std::vector<WidthSample>& samples) {
    const std::vector<WidthSample> all = samples;
    std::erase_if(samples, [&](const WidthSample& wide) {
        return std::ranges::any_of(all, [&](const WidthSample& narrow) {
            return narrow.width < wide.width &&
                   narrow.significance > coveringPart * wide.significance &&
                   std::abs(narrow.channel - wide.channel) < 0.5 * wide.width;
        });
    });
}

// Fits neighbouring candidates of the same width together, if they are too close for a fit of each
// alone.
void appendPairs(const std::vector<BinnedSpectrum>& spectra,
                 const std::vector<ScaledCandidate>& candidates,
                 std::vector<WidthSample>& samples) {
    std::size_t pairs = 0;
    for (const ScaledCandidate& first : candidates) {
        for (const ScaledCandidate& second : candidates) {
            const double distance = (second.channel - first.channel) / first.width;
            if (first.width != second.width || distance < minPairDistance ||
                distance > maxPairDistance || ++pairs > maxPairs) {
                continue;
            }
            const auto binned = std::ranges::find(spectra, first.binning, &BinnedSpectrum::binning);
            const std::vector<ExpectedPeak> expected = {expectedOf(*binned, first),
                                                        expectedOf(*binned, second)};
            const auto fitted = fitFreely(binned->view(), expected, pairReach);
            for (std::size_t number = 0; number < fitted.size(); ++number) {
                if (isUsable(*binned, fitted[number], expected[number])) {
                    samples.push_back(sampleOf(*binned, fitted[number]));
                }
            }
        }
    }
}

}  // namespace

std::vector<WidthSample> measureWidths(std::span<const double> contents,
                                       std::span<const double> excess) {
    std::vector<BinnedSpectrum> spectra;
    std::vector<ScaledCandidate> candidates;
    const double maxWidth = maxPart * static_cast<double>(contents.size());
    std::size_t binning = 1;
    double width = minCandidateWidth;
    while (width <= maxWidth) {
        if (width > binnedWidth * static_cast<double>(binning)) {
            binning *= 2;
        }
        if (spectra.empty() || spectra.back().binning != binning) {
            spectra.emplace_back(contents, excess, binning);
        }
        appendCandidates(spectra.back(), width, candidates);
        width *= ladderFactor;
    }
    std::vector<WidthSample> samples;
    for (const ScaledCandidate& candidate : strongestOfEach(candidates)) {
        const auto binned = std::ranges::find(spectra, candidate.binning, &BinnedSpectrum::binning);
        if (isMeasured(samples, candidate)) {
            continue;
        }
        if (const auto sample = measure(*binned, candidate)) {
            samples.push_back(*sample);
        }
    }
    if (samples.size() < fewSamples) {
        std::ranges::stable_sort(candidates, std::ranges::greater(),
                                 &ScaledCandidate::significance);
        appendPairs(spectra, candidates, samples);
    }
    dropCovering(samples);
    std::ranges::sort(samples, std::ranges::greater(), &WidthSample::significance);
    return samples;
}

}  // namespace embedded::engines
