// The content of one data source: a block for each of its classes.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_CONTENT_H
#define PYORV3_EMBEDDED_ORV_CONTENT_CONTENT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
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

// Throw Failure(unknownClass) if the number is not a class.
BlockKind kindOf(std::uint16_t classCode);
Block emptyBlock(std::uint16_t classCode);

// The classes whose blocks must be loaded before a call. Checking whether a source has a class does
// not need its block. 0 means no class.
struct NeededClasses {
    std::array<std::uint16_t, 2> classes{};
    bool all = false;
};

inline constexpr NeededClasses noClass{};
inline constexpr NeededClasses allClasses{{}, true};

// A gamma line of a nuclide record, as the search by energy uses it.
struct NuclideLine {
    float energy;  // keV, in the precision of the search key
    std::uint16_t record;
    std::uint16_t entry;
};

// The loaded blocks of a source and the changes since the last save. The owner loads the needed
// classes and synchronises all calls.
//
// Each class has two states. A class without a slot is Unchecked and Saved.
//
//     event               | in memory                  | unsaved
//     --------------------+----------------------------+---------------------------------
//     listed by the file  | NotLoaded                  | Saved
//     setLoaded           | NotLoaded -> Loaded        | stays
//     setAbsent           | Unchecked -> Absent        | stays
//     change of a block   | Loaded                     | Saved -> Changed, Replaced stays
//     put                 | any -> Loaded              | any -> Replaced
//     remove              | NotLoaded, Loaded -> Absent| any -> Removed
//     changesSaved        | stays                      | any -> Saved
class Content {
  public:
    // Creates the content of a source with these classes, none of them loaded.
    explicit Content(const std::vector<std::uint16_t>& classes = {});

    // ---- For the file that loads and saves it ----

    // True if the class must still be read from the file: its block is not loaded, or it has no
    // block and stray rows have not been ruled out.
    [[nodiscard]] bool isMissing(std::uint16_t classCode) const;
    [[nodiscard]] bool isMissing(const NeededClasses& needed) const;
    // The needed classes that are missing.
    [[nodiscard]] std::vector<std::uint16_t> missing(const NeededClasses& needed) const;
    // Sets the block of a missing class as it was saved.
    void setLoaded(std::uint16_t classCode, Block block);
    // Records that the file holds nothing of a missing class without a block.
    void setAbsent(std::uint16_t classCode);
    // Records that the file is new and holds no rows of any class.
    void setNew() { new_ = true; }

    struct ChangedBlock {
        std::uint16_t classCode;
        const Block* block;
        bool isReplaced;  // no saved row of the class is valid
    };
    [[nodiscard]] bool isChanged() const;
    [[nodiscard]] std::vector<ChangedBlock> changedBlocks() const;
    // Classes whose saved block has been removed.
    [[nodiscard]] std::vector<std::uint16_t> removedClasses() const;
    // Marks all loaded blocks as replaced, so that the next save writes them whole.
    void replaceAll() noexcept;
    // Marks all blocks as saved and ends the refilling of blocks.
    void changesSaved() noexcept;

    // ---- For those who use it ----

    // Throw Failure(unknownClass) if the number is not a class.
    [[nodiscard]] bool has(std::uint16_t classCode) const;
    // Returns the block of the class, or null if the source has none.
    [[nodiscard]] const Block* find(std::uint16_t classCode) const;
    // As find, for a class of one kind. Throws Failure(unknownClass) if it is of another kind.
    template <typename Kind>
    [[nodiscard]] const Kind* find(std::uint16_t classCode) const {
        requireKind<Kind>(classCode);
        return std::get_if<Kind>(find(classCode));
    }

    // Replaces or adds the block of the class.
    void put(std::uint16_t classCode, Block block);
    // Removes the blocks of all these classes, or none if it throws.
    void remove(std::initializer_list<std::uint16_t> classes);
    // Calls change with the block of the class. If there is none, calls it with a new block and
    // adds that afterwards. Throws as find<Kind> and as change.
    template <typename Kind, typename Change>
    void change(std::uint16_t classCode, Change change) {
        requireKind<Kind>(classCode);
        if (Slot* slot = loadedSlot(classCode)) {
            change(std::get<Kind>(*slot->block));
            noteChange(classCode, *slot);
        } else {
            Kind block;
            change(block);
            put(classCode, std::move(block));
        }
    }

    // Returns a copy of all blocks, which must be loaded.
    [[nodiscard]] Blocks copyOfBlocks() const;
    // Removes all blocks and adds these. Loaded blocks of records and spectra that are equal stay
    // as they are, so that the next save does not write them.
    void replaceBlocks(Blocks&& blocks);

    // Returns all gamma lines of the nuclide records in their order; cached until the next change.
    [[nodiscard]] const std::vector<NuclideLine>& nuclideLines() const;

  private:
    enum class Memory : std::uint8_t {
        Unchecked,  // the class has no block; the file may hold stray rows of it
        NotLoaded,  // the file has a block that has not been read
        Loaded,     // the block is here
        Absent,     // the class has no block, and the file holds no other rows of it
    };
    enum class Unsaved : std::uint8_t {
        Saved,     // the file holds the same
        Changed,   // the block has changes; a block of records lists its own
        Replaced,  // the block replaces all rows of the class in the file
        Removed,   // all rows of the class in the file are to be deleted
    };
    struct Slot {
        Memory memory = Memory::Unchecked;
        Unsaved unsaved = Unsaved::Saved;
        std::optional<Block> block;  // if Loaded

        [[nodiscard]] bool hasBlock() const {
            return memory == Memory::Loaded || memory == Memory::NotLoaded;
        }
    };

    [[nodiscard]] const Slot* findSlot(std::uint16_t classCode) const;
    // Returns the slot of the class, or null if it has no block. Throws Failure(unknownClass).
    [[nodiscard]] const Slot* loadedSlot(std::uint16_t classCode) const;
    Slot* loadedSlot(std::uint16_t classCode);
    void noteChange(std::uint16_t classCode, Slot& slot) noexcept;
    // Drops the cached lines if the class is that of the nuclides.
    void forgetCollected(std::uint16_t classCode) noexcept;

    template <typename Kind>
    static void requireKind(std::uint16_t classCode) {
        constexpr BlockKind kind = std::is_same_v<Kind, RecordBlock>     ? BlockKind::Records
                                   : std::is_same_v<Kind, SpectrumBlock> ? BlockKind::Spectrum
                                                                         : BlockKind::Unformatted;
        if (kindOf(classCode) != kind) {
            throw Failure(codes::unknownClass);
        }
    }

    std::map<std::uint16_t, Slot> slots_;
    bool new_ = false;
    mutable std::optional<std::vector<NuclideLine>> nuclideLines_;
};

}  // namespace embedded

#endif
