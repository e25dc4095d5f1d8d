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
        slots_.emplace(classCode, Slot());
    }
}

// ---- Loading and saving ----------------------------------------------------------------------

bool Content::isMissing(std::uint16_t classCode) const {
    const auto found = slots_.find(classCode);
    if (found != slots_.end()) {
        return !found->second.block;
    }
    return classCode != 0 && !new_ && !absent_.contains(classCode) && !removed_.contains(classCode);
}

bool Content::isMissing(const NeededClasses& needed) const {
    const auto isNotLoaded = [](const auto& slot) { return !slot.second.block; };
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
    slots_.at(classCode).block = std::move(block);
}

bool Content::isChanged(const Slot& slot) {
    if (!slot.block || slot.anew) {
        return slot.anew;
    }
    const auto* records = std::get_if<RecordBlock>(&*slot.block);
    return records == nullptr ? slot.changed : !records->changes().empty();
}

bool Content::isChanged() const {
    return !removed_.empty() ||
           std::ranges::any_of(slots_, [](const auto& slot) { return isChanged(slot.second); });
}

std::vector<Content::ChangedBlock> Content::changedBlocks() const {
    std::vector<ChangedBlock> changed;
    for (const auto& [classCode, slot] : slots_) {
        if (isChanged(slot)) {
            changed.push_back({classCode, &*slot.block, slot.anew});
        }
    }
    return changed;
}

void Content::changesSaved() noexcept {
    for (auto& [classCode, slot] : slots_) {
        slot.anew = false;
        slot.changed = false;
        if (slot.block) {
            if (auto* records = std::get_if<RecordBlock>(&*slot.block)) {
                records->changesSaved();
            } else if (auto* unformatted = std::get_if<UnformattedBlock>(&*slot.block)) {
                unformatted->endRefilling();
            }
        }
    }
    absent_.merge(removed_);  // allocates nothing
    removed_.clear();
}

// ---- Using -----------------------------------------------------------------------------------

bool Content::has(std::uint16_t classCode) const {
    if (slots_.contains(classCode)) {
        return true;
    }
    kindOf(classCode);  // refuses a number that is no class
    return false;
}

const Content::Slot* Content::loadedSlot(std::uint16_t classCode) const {
    if (!has(classCode)) {
        return nullptr;
    }
    const Slot& slot = slots_.at(classCode);
    if (!slot.block) {
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
    slot.changed = true;
    forgetCollected(classCode);
}

void Content::put(std::uint16_t classCode, Block block) {
    slots_.insert_or_assign(classCode, Slot{std::move(block), true});
    forgetCollected(classCode);
}

void Content::remove(std::initializer_list<std::uint16_t> classes) {
    auto removed = removed_;
    std::ranges::copy_if(classes, std::inserter(removed, removed.end()),
                         [this](std::uint16_t classCode) { return slots_.contains(classCode); });
    removed_.swap(removed);
    for (const std::uint16_t classCode : classes) {
        slots_.erase(classCode);
        forgetCollected(classCode);
    }
}

Blocks Content::copyOfBlocks() const {
    Blocks blocks;
    for (const auto& [classCode, slot] : slots_) {
        blocks.emplace(classCode, *find(classCode));
    }
    return blocks;
}

void Content::replaceBlocks(Blocks&& blocks) {
    Content replaced;
    replaced.removed_ = removed_;
    replaced.absent_ = absent_;
    replaced.new_ = new_;
    for (const auto& [classCode, slot] : slots_) {
        replaced.removed_.insert(classCode);
    }
    for (auto& [classCode, block] : blocks) {
        replaced.put(classCode, std::move(block));
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
