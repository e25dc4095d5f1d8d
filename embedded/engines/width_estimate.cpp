#include "embedded/engines/width_estimate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace embedded::engines {

namespace {

// (FWHM / keV)^2 = noise + statistics x energy / keV.
struct Curve {
    double noise;
    double statistics;

    double squareAt(double energy) const { return noise + statistics * std::max(energy, 0.0); }
};

struct TypicalCurve {
    DetectorKind kind;
    Curve curve;
};

// FWHM at 662 keV: 1.6 keV, 2.0 %, 3.0 %, 7.2 %, 11.5 %.
constexpr std::array typicalCurves = {
    TypicalCurve{DetectorKind::germanium, {1.0, 0.0023}},
    TypicalCurve{DetectorKind::cadmiumZincTelluride, {20.0, 0.23}},
    TypicalCurve{DetectorKind::lanthanumBromide, {2.0, 0.59}},
    TypicalCurve{DetectorKind::sodiumIodide, {10.0, 3.4}},
    TypicalCurve{DetectorKind::bismuthGermanate, {20.0, 8.7}},
};
constexpr double energyOfWidth = 661.7;  // keV

// FWHM at the reference energy that a detector can have, in keV.
constexpr double minReference = 0.4;
constexpr double maxReference = 160.0;

// A spectrum without peaks, with channels no wider than this in keV and at least this many of them,
// is treated as that of a germanium detector.
constexpr double fineChannel = 1.0;
constexpr std::size_t manyChannels = 2048;

// A measured width as an observation for the fit of the curve.
struct Point {
    double energy;
    double square;       // (FWHM / keV)^2
    double uncertainty;  // of ln FWHM
    double weight;       // in the choice of a curve
};

constexpr double usualSignificance = 10.0;
constexpr double areaPower = 0.15;
constexpr double curveScatter = 0.04;  // of ln FWHM about the best curve
// Below this energy in keV most peaks are X-rays, which consist of several lines.
constexpr double energyOfXRays = 50.0;
constexpr double xRayScatter = 0.15;
constexpr std::size_t maxPoints = 60;

// Points farther away than this multiple of the scatter do not count in the fit.
constexpr double widerCut = 2.5;
constexpr double narrowerCut = 3.0;
constexpr int fitIterations = 50;
constexpr double maxStep = 0.3;

// Scatter of detectors of a kind about the typical curve: of ln of the scale and of the noise.
constexpr double typicalScale = 0.5;
constexpr double typicalNoise = 1.5;
constexpr double typicalWeight = 0.05;  // in the choice of a curve
constexpr double minFactor = 1e-3;

// A given width calibration is rejected if it is off by this on average, in ln FWHM.
constexpr double contradiction = 0.3;
constexpr double hopelessRatio = 1.0;
constexpr std::size_t minForContradiction = 3;

// FWHM in channels that channels of finite width still resolve.
constexpr double minResolved = 0.7;

// Weight of a sample in the choice of a curve. It grows more slowly than the significance, and is
// reduced if the sample has few counts relative to the largest peak, as artefacts do.
double choiceWeight(const WidthSample& sample, double largestArea) {
    return std::log1p(sample.significance / usualSignificance) *
           std::pow(sample.area / largestArea, areaPower);
}

std::vector<Point> pointsOf(std::span<const WidthSample> samples, const Calibration& calibration) {
    double largestArea = 0.0;
    for (const WidthSample& sample : samples) {
        largestArea = std::max(largestArea, sample.area);
    }
    std::vector<Point> points;
    for (const WidthSample& sample : samples) {
        const double energy = energyAt(calibration, sample.channel);
        const double width = sample.width * energyPerChannel(calibration, sample.channel);
        if (energy > 0.0 && points.size() < maxPoints) {
            points.push_back(
                {energy, width * width, sample.uncertainty, choiceWeight(sample, largestArea)});
        }
    }
    return points;
}

// ln of the measured FWHM by that of the curve.
double deviation(const Curve& curve, const Point& point) {
    return 0.5 * std::log(point.square / curve.squareAt(point.energy));
}

double scatterOf(const Point& point) {
    const double scatter = point.energy < energyOfXRays ? xRayScatter : curveScatter;
    return std::hypot(scatter, point.uncertainty);
}

// Returns the significance that agrees with the curve minus that of narrower peaks.
double agreementOf(const Curve& curve, const std::vector<Point>& points) {
    double sum = 0.0;
    for (const Point& point : points) {
        const double normalized = deviation(curve, point) / scatterOf(point);
        const double agreeing = std::exp(-0.5 * normalized * normalized);
        sum += point.weight * (normalized < 0.0 ? 2.0 * agreeing - 1.0 : agreeing);
    }
    return sum;
}

bool isPossible(const Curve& curve) {
    const double reference = std::sqrt(curve.squareAt(energyOfWidth));
    return curve.noise >= 0.0 && curve.statistics >= 0.0 && reference >= minReference &&
           reference <= maxReference;
}

const TypicalCurve& nearestKind(const Curve& curve) {
    const double square = curve.squareAt(energyOfWidth);
    return *std::ranges::min_element(typicalCurves, {}, [square](const TypicalCurve& typical) {
        return std::abs(std::log(square / typical.curve.squareAt(energyOfWidth)));
    });
}

// Returns the typical curve that fits the width best, scaled to pass through the point.
std::vector<Curve> curvesThrough(const Point& point) {
    std::vector<Curve> curves;
    for (const TypicalCurve& typical : typicalCurves) {
        const double scale = point.square / typical.curve.squareAt(point.energy);
        const Curve curve = {typical.curve.noise * scale, typical.curve.statistics * scale};
        if (isPossible(curve) && nearestKind(curve).kind == typical.kind) {
            curves.push_back(curve);
        }
    }
    return curves;
}

std::optional<Curve> curveThrough(const Point& first, const Point& second) {
    if (std::abs(first.energy - second.energy) < 0.1 * std::max(first.energy, second.energy)) {
        return std::nullopt;
    }
    const double statistics = (second.square - first.square) / (second.energy - first.energy);
    const Curve curve = {first.square - statistics * first.energy, statistics};
    return isPossible(curve) ? std::optional(curve) : std::nullopt;
}

// Weight of a point in the fit: none if the curve does not describe it.
double fitWeight(const Curve& curve, const Point& point) {
    const double scatter = scatterOf(point);
    const double normalized = deviation(curve, point) / scatter;
    const double part = normalized / (normalized > 0.0 ? widerCut : narrowerCut);
    const double kept = std::max(0.0, 1.0 - part * part);
    return kept * kept / (scatter * scatter);
}

// The typical curve with two unknowns: ln of a scale, and ln of a further factor to the noise.
class ScaledCurve {
  public:
    ScaledCurve(const Curve& typical, const Curve& start) : typical_(typical) {
        scale_ = std::log(std::max(start.statistics / typical.statistics, minFactor));
        noise_ = std::log(std::max(start.noise / typical.noise, minFactor)) - scale_;
    }

    Curve curve() const {
        const double scale = std::exp(scale_);
        return {typical_.noise * scale * std::exp(noise_), typical_.statistics * scale};
    }

    // Departure from the typical curve, in the unit of agreementOf().
    double strangeness() const {
        const double scale = scale_ / typicalScale;
        const double noise = noise_ / typicalNoise;
        return typicalWeight * (scale * scale + noise * noise);
    }

    // One step of a least-squares fit to the logarithms of the widths.
    void step(const std::vector<Point>& points) {
        const Curve now = curve();
        double scaleScale = 1.0 / (typicalScale * typicalScale);
        double noiseNoise = 1.0 / (typicalNoise * typicalNoise);
        double scaleNoise = 0.0;
        double scaleRight = -scale_ * scaleScale;
        double noiseRight = -noise_ * noiseNoise;
        for (const Point& point : points) {
            const double weight = fitWeight(now, point);
            const double byNoise = 0.5 * now.noise / now.squareAt(point.energy);
            const double residual = deviation(now, point);
            scaleScale += 0.25 * weight;
            scaleNoise += 0.5 * byNoise * weight;
            noiseNoise += byNoise * byNoise * weight;
            scaleRight += 0.5 * residual * weight;
            noiseRight += byNoise * residual * weight;
        }
        const double determinant = scaleScale * noiseNoise - scaleNoise * scaleNoise;
        const double scaleStep = (noiseNoise * scaleRight - scaleNoise * noiseRight) / determinant;
        const double noiseStep = (scaleScale * noiseRight - scaleNoise * scaleRight) / determinant;
        const double stepLength = std::max(std::abs(scaleStep), std::abs(noiseStep));
        const double part = std::min(1.0, maxStep / stepLength);
        scale_ += part * scaleStep;
        noise_ += part * noiseStep;
    }

  private:
    Curve typical_;
    double scale_;
    double noise_;
};

std::optional<Curve> bestProposal(const std::vector<Point>& points) {
    std::optional<Curve> best;
    double bestAgreement = 0.0;
    const auto propose = [&](const Curve& curve) {
        const double agreeing =
            agreementOf(curve, points) - ScaledCurve(nearestKind(curve).curve, curve).strangeness();
        if (agreeing > bestAgreement) {
            bestAgreement = agreeing;
            best = curve;
        }
    };
    for (std::size_t first = 0; first < points.size(); ++first) {
        for (const Curve& curve : curvesThrough(points[first])) {
            propose(curve);
        }
        for (std::size_t second = 0; second < first; ++second) {
            if (const auto curve = curveThrough(points[first], points[second])) {
                propose(*curve);
            }
        }
    }
    return best;
}

Curve fitted(const Curve& start, const std::vector<Point>& points) {
    ScaledCurve scaled(nearestKind(start).curve, start);
    for (int iteration = 0; iteration < fitIterations; ++iteration) {
        scaled.step(points);
    }
    return scaled.curve();
}

Curve typicalOfChannels(const Calibration& calibration, std::size_t channelCount) {
    const double middle = energyPerChannel(calibration, 0.5 * static_cast<double>(channelCount));
    const bool isFine = channelCount >= manyChannels && middle <= fineChannel;
    const DetectorKind kind = isFine ? DetectorKind::germanium : DetectorKind::sodiumIodide;
    return std::ranges::find(typicalCurves, kind, &TypicalCurve::kind)->curve;
}

}  // namespace

DetectorKind kindOf(std::span<const double> shape) {
    const double square = polynomial(shape, energyOfWidth);
    return square > 0.0 ? nearestKind({square, 0.0}).kind : DetectorKind::unknown;
}

WidthEstimate estimateWidths(std::span<const WidthSample> samples, const Calibration& calibration,
                             std::size_t channelCount) {
    const std::vector<Point> points = pointsOf(samples, calibration);
    const std::optional<Curve> proposal = bestProposal(points);
    Curve curve =
        proposal ? fitted(*proposal, points) : typicalOfChannels(calibration, channelCount);
    const auto described = std::ranges::count_if(
        points, [&curve](const Point& point) { return fitWeight(curve, point) > 0.0; });
    const double middle = energyPerChannel(calibration, 0.5 * static_cast<double>(channelCount));
    const double resolved = minResolved * middle;
    curve.noise = std::max(curve.noise, resolved * resolved);
    return {{curve.noise, curve.statistics},
            nearestKind(curve).kind,
            proposal ? static_cast<std::size_t>(described) : 0};
}

bool contradictsPeaks(const Calibration& calibration, const WidthEstimate& estimate,
                      std::span<const WidthSample> samples) {
    if (estimate.peaks < minForContradiction) {
        return false;
    }
    const Curve curve = {estimate.shape[0], estimate.shape[1]};
    double sum = 0.0;
    double weights = 0.0;
    for (const Point& point : pointsOf(samples, calibration)) {
        const double weight = fitWeight(curve, point);
        const double square = polynomial(calibration.shape, point.energy);
        const double ratio = square > 0.0 ? 0.5 * std::log(point.square / square) : hopelessRatio;
        sum += weight * std::min(ratio * ratio, hopelessRatio * hopelessRatio);
        weights += weight;
    }
    return sum > contradiction * contradiction * weights;
}

}  // namespace embedded::engines
