#include "embedded/orv/content/content.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "embedded/pqar/parameter_codes.h"
#include "embedded/pqar/parameter_table.h"

namespace embedded {
namespace {

constexpr unsigned unformattedNibble = 4;  // the highest hexadecimal digit of such classes

std::vector<NuclideLine> collectLines(const RecordBlock& nuclides) {
    std::vector<NuclideLine> lines;
    std::uint16_t record = 0;
    for (const Record& nuclide : nuclides.records()) {
        ++record;
        std::uint16_t entry = 0;
        for (const Values& line : nuclide.entries) {
            ++entry;
            if (const auto bytes = line.find(QAR_D_LINEENERGY)) {
                double energy = 0;
                std::memcpy(&energy, bytes->data(), sizeof energy);
                lines.push_back({static_cast<float>(energy), record, entry});
            }
        }
    }
    return lines;
}

bool isEqual(const Block& block, const Block& other) {
    if (const auto* records = std::get_if<RecordBlock>(&block)) {
        return records->records() == std::get<RecordBlock>(other).records();
    }
    const auto* spectrum = std::get_if<SpectrumBlock>(&block);
    return spectrum != nullptr && spectrum->contents() == std::get<SpectrumBlock>(other).contents();
}

}  // namespace

BlockKind kindOf(std::uint16_t classCode) {
    if (classCode == QAR_CLS_SPECTRUM) {
        return BlockKind::Spectrum;
    }
    if (isFormattedClass(classCode)) {
        return BlockKind::Records;
    }
    if (classCode >> 12U == unformattedNibble) {
        return BlockKind::Unformatted;
    }
    throw Failure(codes::unknownClass);
}

Block emptyBlock(std::uint16_t classCode) {
    switch (kindOf(classCode)) {
        case BlockKind::Spectrum:
            return SpectrumBlock();
        case BlockKind::Unformatted:
            return UnformattedBlock();
        default:
            return RecordBlock();
    }
}

Content::Content(const std::vector<std::uint16_t>& classes) {
    for (const std::uint16_t classCode : classes) {
        slots_[classCode].memory = Memory::NotLoaded;
    }
}

// ---- Loading and saving ----------------------------------------------------------------------

const Content::Slot* Content::findSlot(std::uint16_t classCode) const {
    const auto slot = slots_.find(classCode);
    return slot == slots_.end() ? nullptr : &slot->second;
}

bool Content::isMissing(std::uint16_t classCode) const {
    const Slot* slot = findSlot(classCode);
    return slot == nullptr ? classCode != 0 && !new_ : slot->memory == Memory::NotLoaded;
}

bool Content::isMissing(const NeededClasses& needed) const {
    const auto isNotLoaded = [](const auto& slot) {
        return slot.second.memory == Memory::NotLoaded;
    };
    const auto missing = [this](std::uint16_t classCode) { return isMissing(classCode); };
    return needed.all ? std::ranges::any_of(slots_, isNotLoaded)
                      : std::ranges::any_of(needed.classes, missing);
}

std::vector<std::uint16_t> Content::missing(const NeededClasses& needed) const {
    std::vector<std::uint16_t> classes(needed.classes.begin(), needed.classes.end());
    if (needed.all) {
        std::ranges::transform(slots_, std::back_inserter(classes),
                               [](const auto& slot) { return slot.first; });
    }
    std::erase_if(classes, [this](std::uint16_t classCode) { return !isMissing(classCode); });
    return classes;
}

void Content::setLoaded(std::uint16_t classCode, Block block) {
    Slot& slot = slots_.at(classCode);
    slot.block = std::move(block);
    slot.memory = Memory::Loaded;
}

void Content::setAbsent(std::uint16_t classCode) {
    slots_[classCode].memory = Memory::Absent;
}

bool Content::isChanged() const {
    return std::ranges::any_of(
        slots_, [](const auto& slot) { return slot.second.unsaved != Unsaved::Saved; });
}

std::vector<Content::ChangedBlock> Content::changedBlocks() const {
    std::vector<ChangedBlock> changed;
    for (const auto& [classCode, slot] : slots_) {
        if (slot.unsaved == Unsaved::Changed || slot.unsaved == Unsaved::Replaced) {
            changed.push_back({classCode, &*slot.block, slot.unsaved == Unsaved::Replaced});
        }
    }
    return changed;
}

std::vector<std::uint16_t> Content::removedClasses() const {
    std::vector<std::uint16_t> removed;
    for (const auto& [classCode, slot] : slots_) {
        if (slot.unsaved == Unsaved::Removed) {
            removed.push_back(classCode);
        }
    }
    return removed;
}

void Content::replaceAll() noexcept {
    for (auto& [classCode, slot] : slots_) {
        if (slot.memory == Memory::Loaded) {
            slot.unsaved = Unsaved::Replaced;
        }
    }
}

void Content::changesSaved() noexcept {
    for (auto& [classCode, slot] : slots_) {
        slot.unsaved = Unsaved::Saved;
        if (slot.block) {
            if (auto* records = std::get_if<RecordBlock>(&*slot.block)) {
                records->changesSaved();
            } else if (auto* unformatted = std::get_if<UnformattedBlock>(&*slot.block)) {
                unformatted->endRefilling();
            }
        }
    }
}

// ---- Using -----------------------------------------------------------------------------------

bool Content::has(std::uint16_t classCode) const {
    const Slot* slot = findSlot(classCode);
    if (slot != nullptr && slot->hasBlock()) {
        return true;
    }
    kindOf(classCode);  // throws if the number is not a class
    return false;
}

const Content::Slot* Content::loadedSlot(std::uint16_t classCode) const {
    if (!has(classCode)) {
        return nullptr;
    }
    const Slot& slot = slots_.at(classCode);
    if (slot.memory == Memory::NotLoaded) {
        throw Failure(codes::internalFailure);  // the call did not name the class as needed
    }
    return &slot;
}

Content::Slot* Content::loadedSlot(std::uint16_t classCode) {
    return const_cast<Slot*>(std::as_const(*this).loadedSlot(classCode));
}

const Block* Content::find(std::uint16_t classCode) const {
    const Slot* slot = loadedSlot(classCode);
    return slot == nullptr ? nullptr : &*slot->block;
}

void Content::forgetCollected(std::uint16_t classCode) noexcept {
    if (classCode == QAR_CLS_NUCLIDE) {
        nuclideLines_.reset();
    }
}

void Content::noteChange(std::uint16_t classCode, Slot& slot) noexcept {
    if (slot.unsaved == Unsaved::Saved) {
        slot.unsaved = Unsaved::Changed;
    }
    forgetCollected(classCode);
}

void Content::put(std::uint16_t classCode, Block block) {
    slots_.insert_or_assign(classCode, Slot{Memory::Loaded, Unsaved::Replaced, std::move(block)});
    forgetCollected(classCode);
}

void Content::remove(std::initializer_list<std::uint16_t> classes) {
    for (const std::uint16_t classCode : classes) {
        if (has(classCode)) {
            slots_.at(classCode) = Slot{Memory::Absent, Unsaved::Removed, std::nullopt};
        }
        forgetCollected(classCode);
    }
}

Blocks Content::copyOfBlocks() const {
    Blocks blocks;
    for (const auto& [classCode, slot] : slots_) {
        if (slot.hasBlock()) {
            blocks.emplace(classCode, *find(classCode));
        }
    }
    return blocks;
}

void Content::replaceBlocks(Blocks&& blocks) {
    Content replaced;
    replaced.new_ = new_;
    std::vector<std::uint16_t> kept;
    for (const auto& [classCode, slot] : slots_) {
        const auto block = blocks.find(classCode);
        if (slot.block && block != blocks.end() && isEqual(*slot.block, block->second)) {
            kept.push_back(classCode);
            blocks.erase(block);
            continue;
        }
        const bool isStored = slot.hasBlock() || slot.unsaved == Unsaved::Removed;
        replaced.slots_[classCode] = {Memory::Absent, isStored ? Unsaved::Removed : Unsaved::Saved,
                                      std::nullopt};
    }
    for (auto& [classCode, block] : blocks) {
        replaced.put(classCode, std::move(block));
    }
    for (const std::uint16_t classCode : kept) {  // does not throw
        replaced.slots_.insert(slots_.extract(classCode));
    }
    *this = std::move(replaced);
}

const std::vector<NuclideLine>& Content::nuclideLines() const {
    if (!nuclideLines_) {
        const auto* nuclides = find<RecordBlock>(QAR_CLS_NUCLIDE);
        nuclideLines_ = nuclides == nullptr ? std::vector<NuclideLine>() : collectLines(*nuclides);
    }
    return *nuclideLines_;
}

}  // namespace embedded
