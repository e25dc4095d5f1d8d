// The search for a nuclide record by its name or by the energy of one of its lines.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_NUCLIDE_SEARCH_H
#define PYORV3_EMBEDDED_ORV_CONTENT_NUCLIDE_SEARCH_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "embedded/orv/content/content.h"

namespace embedded {

struct NuclideFound {
    std::uint16_t record;
    std::uint16_t entry;  // the line found by its energy; 0 in a search by name
};

// option: the low 8 bits say how a record matches, bits 8 to 15 are 0, and the high 16 bits are
// the number of the record after which the search begins (0: all records).
// Both need the nuclide class, return nothing where no record matches, and throw
// Failure(unknownItem) for an option that is none of these.

// Names are compared without regard to the case of ASCII letters. Low bits 0: the record of this
// name, else the first whose name begins with it; 1: only the former; 2: only the latter.
// An empty name begins none.
std::optional<NuclideFound> findNuclideByName(const Content& content, std::string_view name,
                                              std::uint32_t option);

// energy and tolerance: keV, finite and not negative, else Failure(keyRefused). Low bits 0: the
// nearest line at most the tolerance away, of equally near ones that of the lowest record and
// entry; 1: the first record with a line at most the tolerance away, and its first such line.
std::optional<NuclideFound> findNuclideByEnergy(const Content& content, float energy,
                                                float tolerance, std::uint32_t option);

}  // namespace embedded

#endif
