#include "embedded/orv/files/read_ahead.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

constexpr std::int64_t maxFileSize = 1 << 16;  // bytes
constexpr std::array<std::uint16_t, 2> classesAhead = {QAR_CLS_MEASUREMENT, QAR_CLS_SPECTRUM};

}  // namespace

void ReadAhead::fill(Database& database, BlockReader& reader, const Content& content) {
    ahead_.reset();
    try {
        const auto state = headerState(database);
        if (state && database.fileSize() <= maxFileSize) {
            Blocks blocks;
            for (const std::uint16_t classCode : classesAhead) {
                if (content.has(classCode)) {
                    blocks.emplace(classCode, reader.read(classCode));
                }
            }
            ahead_ = Ahead{*state, std::move(blocks)};
        }
    } catch (const std::exception&) {
        return;
    }
}

bool ReadAhead::load(Database& database, Content& content, const NeededClasses& needed) {
    const auto missing = content.missing(needed);
    const auto isAhead = [this](std::uint16_t code) { return ahead_->blocks.contains(code); };
    if (!ahead_ || missing.empty() || !std::ranges::all_of(missing, isAhead) ||
        headerState(database) != ahead_->state) {
        return false;
    }
    for (const std::uint16_t classCode : missing) {
        if (const auto block = ahead_->blocks.extract(classCode)) {
            content.setLoaded(classCode, std::move(block.mapped()));
        }
    }
    return true;
}

}  // namespace embedded
