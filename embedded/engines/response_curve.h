// Ratio of the response at an energy to the expected efficiency.
//
// ln(response) is a sum of four terms: a power of the energy, the transparency of entrance windows
// at low energies, and absorbers of lead and of iron between source and detector. Lead represents
// heavy absorbers; iron represents medium and light ones, whose attenuation has nearly the same
// shape.
#ifndef PYORV3_EMBEDDED_ENGINES_RESPONSE_CURVE_H
#define PYORV3_EMBEDDED_ENGINES_RESPONSE_CURVE_H

#include <Eigen/Core>
#include <span>

namespace embedded::engines {

using ResponseVector = Eigen::Vector4d;
using ResponseMatrix = Eigen::Matrix4d;

// The derivatives of ln(response) by the four parameters. energy: keV, positive.
ResponseVector responseTerms(double energy);

// Parameters and their covariance: power, transparency, lead in g/cm2, iron in g/cm2.
struct ResponseCurve {
    ResponseVector mean;
    ResponseMatrix covariance;
};

// Returns the curve before any peak is compared with a line. An assumed efficiency may be wrong by
// far more than a calibrated one; absorbers are possible in both cases.
ResponseCurve priorResponse(bool efficiencyIsAssumed);

// Returns the curve for a nuclide whose own absorbers may differ from those of the others.
// lines: number of its lines that were found; with three or more they determine its own absorbers.
ResponseCurve responseOfNuclide(const ResponseCurve& common, std::size_t lines);

// One line of a nuclide compared with its peak or, if there is none, with its detection limit.
struct LineRatio {
    ResponseVector terms;
    double logarithm;  // ln(area / weight), or of the limit
    double deviation;  // one standard deviation of the logarithm
    bool isLimit;      // the line was not found: only a higher expectation is a deviation
};

// Fitted response to the lines of one nuclide: ln(counts / weight) = scale + parameters x terms.
struct PatternFit {
    double scale;
    ResponseVector parameters;
    Eigen::Matrix<double, 5, 5> covariance;  // of scale and parameters
    double priorMisfit;  // sum of squares by which the parameters differ from the expected ones

    double logarithm(const ResponseVector& terms) const { return scale + parameters.dot(terms); }
    double uncertainty(const ResponseVector& terms) const;
};

// Fits scale and parameters. Lines that disagree strongly have little weight, because their peaks
// may belong to another source. At least one ratio must belong to a peak.
PatternFit fitPattern(std::span<const LineRatio> ratios, const ResponseCurve& prior);

// The curve that several nuclides have in common, each with a scale of its own.
class CommonResponse {
  public:
    explicit CommonResponse(const ResponseCurve& prior);

    // ratios: of peaks only; trust: 0 to 1; expected: the pattern that they should follow.
    void add(std::span<const LineRatio> ratios, double trust, const PatternFit& expected);
    ResponseCurve fit() const;

  private:
    ResponseMatrix matrix_;
    ResponseVector right_;
};

// Mass attenuation coefficients of absorbers, cm2/g.
struct Attenuation {
    double lead;
    double iron;
};

// energy: keV, positive. Beyond the table (10 to 3,000 keV) returns its nearest row.
Attenuation attenuationAt(double energy);

}  // namespace embedded::engines

#endif
