#include "embedded/orv/content/content.h"

#include <cstring>
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
            const auto found = line.find(QAR_D_LINEENERGY);
            if (found != line.end()) {
                double energy = 0;
                std::memcpy(&energy, found->second.data(), sizeof energy);
                lines.push_back({static_cast<float>(energy), record, entry});
            }
        }
    }
    return lines;
}

}  // namespace

Block emptyBlock(std::uint16_t classCode) {
    if (classCode == QAR_CLS_SPECTRUM) {
        return Spectrum();
    }
    if (isFormattedClass(classCode)) {
        return RecordBlock();
    }
    if (classCode >> 12U == unformattedNibble) {
        return UnformattedBlock();
    }
    throw Failure(codes::unknownClass);
}

const Block* Content::find(std::uint16_t classCode) const {
    const auto found = blocks_.find(classCode);
    if (found != blocks_.end()) {
        return &found->second;
    }
    emptyBlock(classCode);  // refuses a number that is no class
    return nullptr;
}

Block& Content::existing(std::uint16_t classCode) {
    forgetCollected(classCode);
    return blocks_.at(classCode);
}

void Content::forgetCollected(std::uint16_t classCode) {
    if (classCode == QAR_CLS_NUCLIDE) {
        nuclideLines_.reset();
    }
}

void Content::put(std::uint16_t classCode, Block block) {
    forgetCollected(classCode);
    blocks_.insert_or_assign(classCode, std::move(block));
}

void Content::remove(std::uint16_t classCode) {
    forgetCollected(classCode);
    blocks_.erase(classCode);
}

void Content::endRefilling() {
    for (auto& [classCode, block] : blocks_) {
        if (auto* unformatted = std::get_if<UnformattedBlock>(&block)) {
            unformatted->endRefilling();
        }
    }
}

const std::vector<NuclideLine>& Content::nuclideLines() const {
    if (!nuclideLines_) {
        const auto* nuclides = find<RecordBlock>(QAR_CLS_NUCLIDE);
        nuclideLines_ = nuclides == nullptr ? std::vector<NuclideLine>() : collectLines(*nuclides);
    }
    return *nuclideLines_;
}

}  // namespace embedded
