#include "embedded/orv/content/nuclide_search.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "embedded/orv/content/failure.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

enum class NameMatch : std::uint8_t { ExactThenPrefix, Exact, Prefix };
enum class EnergyMatch : std::uint8_t { Nearest, First };

struct SearchOption {
    std::uint32_t match;
    std::size_t after;  // the record after which the search begins
};

SearchOption optionOf(std::uint32_t option, std::uint32_t lastMatch) {
    const std::uint32_t match = option & 0xFFFFU;
    if (match > lastMatch) {
        throw Failure(codes::unknownItem);
    }
    return {match, option >> 16U};
}

char lowerCase(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

bool sameText(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lowerCase, lowerCase);
}

// The first record after the given one whose name matches, or 0.
template <typename Matches>
std::size_t firstNamed(const RecordBlock& nuclides, std::size_t after, Matches matches) {
    for (std::size_t record = after + 1; record <= nuclides.recordCount(); ++record) {
        const auto name = nuclides.record(record).values.find(QAR_C_NUCLNAME);
        if (name && matches(*name)) {
            return record;
        }
    }
    return 0;
}

bool isSearchable(float number) {
    return std::isfinite(number) && number >= 0;
}

}  // namespace

std::optional<NuclideResult> findNuclideByName(const Content& content, std::string_view name,
                                               std::uint32_t option) {
    const auto [number, after] = optionOf(option, static_cast<std::uint32_t>(NameMatch::Prefix));
    const auto match = static_cast<NameMatch>(number);
    const auto* nuclides = content.find<RecordBlock>(QAR_CLS_NUCLIDE);
    std::size_t record = 0;
    if (nuclides != nullptr && match != NameMatch::Prefix) {
        record = firstNamed(*nuclides, after,
                            [name](std::string_view stored) { return sameText(stored, name); });
    }
    if (nuclides != nullptr && record == 0 && match != NameMatch::Exact && !name.empty()) {
        record = firstNamed(*nuclides, after, [name](std::string_view stored) {
            return sameText(stored.substr(0, name.size()), name);
        });
    }
    if (record == 0) {
        return std::nullopt;
    }
    return NuclideResult{static_cast<std::uint16_t>(record), 0};
}

std::optional<NuclideResult> findNuclideByEnergy(const Content& content, float energy,
                                                 float tolerance, std::uint32_t option) {
    const auto [number, after] = optionOf(option, static_cast<std::uint32_t>(EnergyMatch::First));
    const auto match = static_cast<EnergyMatch>(number);
    if (!isSearchable(energy) || !isSearchable(tolerance)) {
        throw Failure(codes::keyRefused);
    }
    const NuclideLine* result = nullptr;
    double nearest = std::numeric_limits<double>::infinity();
    for (const NuclideLine& line : content.nuclideLines()) {
        const double distance = std::abs(static_cast<double>(line.energy) - energy);
        if (line.record > after && distance <= tolerance && distance < nearest) {
            result = &line;
            nearest = distance;
            if (match == EnergyMatch::First) {
                break;
            }
        }
    }
    if (result == nullptr) {
        return std::nullopt;
    }
    return NuclideResult{result->record, result->entry};
}

}  // namespace embedded
