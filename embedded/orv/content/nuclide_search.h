// Searches for a nuclide record by its name or by the energy of one of its lines.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_NUCLIDE_SEARCH_H
#define PYORV3_EMBEDDED_ORV_CONTENT_NUCLIDE_SEARCH_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "embedded/orv/content/content.h"

namespace embedded {

struct NuclideResult {
    std::uint16_t record;
    std::uint16_t entry;  // the line found by its energy; 0 in a search by name
};

// option: the low 8 bits select how records match (see below), bits 8 to 15 are 0, and the high 16
// bits are the number of the record after which the search begins (0: all records).
// Both functions need the nuclide class, return nullopt if no record matches, and throw
// Failure(unknownItem) for another option.

// Ignores the case of ASCII letters. Low bits 0: the record with this name, otherwise the first
// whose name begins with it; 1: only the former; 2: only the latter. An empty name is not the
// beginning of any name.
std::optional<NuclideResult> findNuclideByName(const Content& content, std::string_view name,
                                               std::uint32_t option);

// energy and tolerance: keV, finite and not negative, otherwise throws Failure(keyRefused). Low
// bits 0: the nearest line within the tolerance, the lowest record and entry if several are equally
// near; 1: the first line within the tolerance in the first record that has one.
std::optional<NuclideResult> findNuclideByEnergy(const Content& content, float energy,
                                                 float tolerance, std::uint32_t option);

}  // namespace embedded

#endif
