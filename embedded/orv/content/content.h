// What one data source holds: a block for each class that it has.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_CONTENT_H
#define PYORV3_EMBEDDED_ORV_CONTENT_CONTENT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/content/record_block.h"
#include "embedded/orv/content/spectrum_block.h"
#include "embedded/orv/content/unformatted_block.h"

namespace embedded {

using Block = std::variant<RecordBlock, SpectrumBlock, UnformattedBlock>;
using Blocks = std::map<std::uint16_t, Block>;

// The kind of a block follows from its class and never changes.
enum class BlockKind : std::uint8_t { Records, Spectrum, Unformatted };

// Throw Failure(unknownClass) for a number that is no class.
BlockKind kindOf(std::uint16_t classCode);
Block emptyBlock(std::uint16_t classCode);

// The classes whose blocks a call looks into, so that they must be loaded before; whether a source
// has a class is known without. 0 names none.
struct NeededClasses {
    std::array<std::uint16_t, 2> classes{};
    bool all = false;
};

inline constexpr NeededClasses noClass{};
inline constexpr NeededClasses allClasses{{}, true};

// A gamma line of a nuclide record, where the search by energy finds it.
struct NuclideLine {
    float energy;  // keV, in the precision of the search key
    std::uint16_t record;
    std::uint16_t entry;
};

// The blocks in memory, those of them that were loaded, and what was changed in them since they
// were saved. It loads nothing itself: who hands it out sees to it that the classes that are
// needed are loaded. Not synchronised; the open file that holds it is.
class Content {
  public:
    // Of a source with these classes, none of which is loaded.
    explicit Content(const std::vector<std::uint16_t>& classes = {});

    // ---- For the file that loads and saves it ----

    // Whether a class, or one of several, has a block that is not in memory, or has none of which
    // nobody has seen that nothing else is stored of it either.
    [[nodiscard]] bool isMissing(std::uint16_t classCode) const;
    [[nodiscard]] bool isMissing(const NeededClasses& needed) const;
    // The needed classes that are missing.
    [[nodiscard]] std::vector<std::uint16_t> missing(const NeededClasses& needed) const;
    // The block of a missing class as it was saved.
    void setLoaded(std::uint16_t classCode, Block block);
    // Of a missing class without a block nothing is stored; or of every one without.
    void setAbsent(std::uint16_t classCode) { absent_.insert(classCode); }
    void setNew() { new_ = true; }

    struct ChangedBlock {
        std::uint16_t classCode;
        const Block* block;
        bool anew;  // nothing of what was saved of it holds
    };
    [[nodiscard]] bool isChanged() const;
    [[nodiscard]] std::vector<ChangedBlock> changedBlocks() const;
    // Those that were removed; they may have a block anew.
    [[nodiscard]] const std::set<std::uint16_t>& removedClasses() const { return removed_; }
    // Everything has been saved: nothing is changed, and the refilling of blocks ends.
    void changesSaved() noexcept;

    // ---- For those who use it ----

    // Throw Failure(unknownClass) for a number that is no class.
    [[nodiscard]] bool has(std::uint16_t classCode) const;
    // The class's block, or null when the source has none.
    [[nodiscard]] const Block* find(std::uint16_t classCode) const;
    // As find, for a class of one kind. Throws Failure(unknownClass) for one of another kind.
    template <typename Kind>
    [[nodiscard]] const Kind* find(std::uint16_t classCode) const {
        requireKind<Kind>(classCode);
        return std::get_if<Kind>(find(classCode));
    }

    // Puts the block into the place of the class's block.
    void put(std::uint16_t classCode, Block block);
    // Removes the blocks of all these classes, or none when it throws.
    void remove(std::initializer_list<std::uint16_t> classes);
    // Calls change with the class's block, or with a new one that is kept when change returns.
    // Throws as find<Kind>, and what change throws.
    template <typename Kind, typename Change>
    void change(std::uint16_t classCode, Change change) {
        requireKind<Kind>(classCode);
        if (Slot* slot = loadedSlot(classCode)) {
            change(std::get<Kind>(*slot->block));
            noteChange(classCode, *slot);
        } else {
            Kind made;
            change(made);
            put(classCode, std::move(made));
        }
    }

    // All blocks, which must be loaded; and others in their place.
    [[nodiscard]] Blocks copyOfBlocks() const;
    void replaceBlocks(Blocks&& blocks);

    // All gamma lines of the nuclide records in their order; collected once after each change.
    [[nodiscard]] const std::vector<NuclideLine>& nuclideLines() const;

  private:
    struct Slot {
        std::optional<Block> block;  // nothing: not loaded
        bool anew = false;
        bool changed = false;  // of a block without records, which note their changes themselves
    };

    static bool isChanged(const Slot& slot);
    // The class's slot, or null when the source has none. Throws Failure: unknownClass.
    [[nodiscard]] const Slot* loadedSlot(std::uint16_t classCode) const;
    Slot* loadedSlot(std::uint16_t classCode);
    void noteChange(std::uint16_t classCode, Slot& slot) noexcept;
    // What was collected from the class's block no longer holds.
    void forgetCollected(std::uint16_t classCode) noexcept;

    template <typename Kind>
    static void requireKind(std::uint16_t classCode) {
        constexpr BlockKind wanted = std::is_same_v<Kind, RecordBlock>     ? BlockKind::Records
                                     : std::is_same_v<Kind, SpectrumBlock> ? BlockKind::Spectrum
                                                                           : BlockKind::Unformatted;
        if (kindOf(classCode) != wanted) {
            throw Failure(codes::unknownClass);
        }
    }

    std::map<std::uint16_t, Slot> slots_;
    std::set<std::uint16_t> removed_;
    std::set<std::uint16_t> absent_;
    bool new_ = false;
    mutable std::optional<std::vector<NuclideLine>> nuclideLines_;
};

}  // namespace embedded

#endif
