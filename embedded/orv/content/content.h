// What one data source holds: a block for each class that it has.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_CONTENT_H
#define PYORV3_EMBEDDED_ORV_CONTENT_CONTENT_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/content/record_block.h"
#include "embedded/orv/content/spectrum.h"
#include "embedded/orv/content/unformatted_block.h"

namespace embedded {

// The kind of a block follows from its class and never changes.
using Block = std::variant<RecordBlock, Spectrum, UnformattedBlock>;

// An empty block of the class's kind. Throws Failure(unknownClass) for a number that is no class.
Block emptyBlock(std::uint16_t classCode);

// A gamma line of a nuclide record, where the search by energy finds it.
struct NuclideLine {
    float energy;  // keV, in the precision of the search key
    std::uint16_t record;
    std::uint16_t entry;
};

// The value of a data source: it is copied to keep or to replace it whole. Not synchronised; the
// open file that holds it is.
class Content {
  public:
    using Blocks = std::map<std::uint16_t, Block>;

    Content() = default;
    explicit Content(Blocks blocks) : blocks_(std::move(blocks)) {}

    [[nodiscard]] const Blocks& blocks() const { return blocks_; }

    // The class's block, or null when the source has none.
    // Throws Failure(unknownClass) for a number that is no class.
    [[nodiscard]] const Block* find(std::uint16_t classCode) const;
    // Puts the block into the place of the class's block.
    void put(std::uint16_t classCode, Block block);
    void remove(std::uint16_t classCode);

    // As find, for a class of one kind. Throws Failure(unknownClass) for one of another kind.
    template <typename Kind>
    [[nodiscard]] const Kind* find(std::uint16_t classCode) const {
        requireKind<Kind>(classCode);
        return std::get_if<Kind>(find(classCode));
    }

    // Calls change with the class's block, or with a new one that is kept when change returns.
    // Throws as find<Kind>, and what change throws.
    template <typename Kind, typename Change>
    void change(std::uint16_t classCode, Change change) {
        if (find<Kind>(classCode) == nullptr) {
            Kind made;
            change(made);
            put(classCode, std::move(made));
        } else {
            change(std::get<Kind>(existing(classCode)));
        }
    }

    // Ends the refilling of unformatted blocks: the source is about to be saved.
    void endRefilling();

    // All gamma lines of the nuclide records in their order; collected once after each change.
    [[nodiscard]] const std::vector<NuclideLine>& nuclideLines() const;

  private:
    // The block of a class that has one, to be changed.
    Block& existing(std::uint16_t classCode);
    // What was collected from the class's block no longer holds.
    void forgetCollected(std::uint16_t classCode);

    template <typename Kind>
    static void requireKind(std::uint16_t classCode) {
        if (!std::holds_alternative<Kind>(emptyBlock(classCode))) {
            throw Failure(codes::unknownClass);
        }
    }

    Blocks blocks_;
    mutable std::optional<std::vector<NuclideLine>> nuclideLines_;
};

}  // namespace embedded

#endif
