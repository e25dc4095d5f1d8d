// Energy calibration from nuclides that are known to be in the spectrum, without an earlier
// calibration.
#ifndef PYORV3_EMBEDDED_ENGINES_ENERGY_CALIBRATION_H
#define PYORV3_EMBEDDED_ENGINES_ENERGY_CALIBRATION_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/line_assignment.h"

namespace embedded::engines {

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
