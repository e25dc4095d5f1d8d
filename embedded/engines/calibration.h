// The calibrations of a spectrum, and an energy calibration from nuclides that are known to be in
// it.
//
// Channels count from 1 and a channel number is a real number: channel 10 is centred at 10.0 and
// reaches from 9.5 to 10.5. Energies are in keV, widths are full widths at half maximum (FWHM).
#ifndef PYORV3_EMBEDDED_ENGINES_CALIBRATION_H
#define PYORV3_EMBEDDED_ENGINES_CALIBRATION_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/line_assignment.h"

namespace embedded::engines {

// FWHM of a Gaussian whose standard deviation is 1: 2 sqrt(2 ln 2).
inline constexpr double fwhmPerSigma = 2.3548200450309493;

// Energy of an electron at rest, keV.
inline constexpr double electronMass = 510.999;

// c1 + c2 x + c3 x^2 + ...; 0 without coefficients.
double polynomial(std::span<const double> coefficients, double x);

// The coefficients as a file holds them, lowest order first.
struct Calibration {
    std::vector<double> energy;  // keV = polynomial in the channel number
    std::vector<double> shape;   // (FWHM / keV)^2 = polynomial in the energy / keV
    std::vector<double>
        efficiency;  // ln(efficiency) = polynomial in ln(energy / keV); may be empty
};

double energyAt(const Calibration& calibration, double channel);

// Width of a channel in keV: the derivative of the energy.
double energyPerChannel(const Calibration& calibration, double channel);

// Returns the channel number of an energy. An energy outside the spectrum gives the nearer edge of
// the first or the last channel. The energy must rise from channel to channel.
double channelAt(const Calibration& calibration, double energy, std::size_t channelCount);

// True if the energy is finite and rises from each channel to the next.
bool energyRises(const Calibration& calibration, std::size_t channelCount);

// Returns the FWHM in channels at each channel, channel 1 first. It is 0 if the calibrated width is
// not possible for a peak: not a number, less than half a channel or more than 1/10 of the
// spectrum.
std::vector<double> widthsInChannels(const Calibration& calibration, std::size_t channelCount);

// Returns the full-energy peak efficiency, or 0 if the calibration gives no finite number. Without
// an efficiency calibration it is that of a typical coaxial germanium detector in an arbitrary
// unit: it falls as energy^-0.9, and below about 100 keV because of absorbers in front of the
// crystal.
double efficiencyAt(const Calibration& calibration, double energy);

// Assigns the peaks to the lines of the nuclides and fits the energy as a polynomial in the
// channel: a straight line, or a parabola if it describes the lines better and five of them cover
// half of the spectrum. The last channel may be at 100 keV to 20 MeV. Returns nullopt if no
// assignment is better than all others.
//
// peaks: by rising channel, with the channel as position.
std::optional<std::vector<double>> calibrateEnergy(std::span<const PositionedPeak> peaks,
                                                   std::span<const LinePattern> nuclides,
                                                   std::size_t channelCount);

}  // namespace embedded::engines

#endif
