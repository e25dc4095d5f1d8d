#include "embedded/orv/content/classes.h"

#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/content/parameters.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

constexpr std::int32_t aboutToBeFilled = -1;

std::size_t capacityOf(BlockKind kind) {
    switch (kind) {
        case BlockKind::Spectrum:
            return SpectrumBlock::capacity;
        case BlockKind::Unformatted:
            return UnformattedBlock::capacity;
        default:
            return RecordBlock::capacity;
    }
}

}  // namespace

void createBlock(Content& content, std::uint16_t classCode, std::int64_t size,
                 std::int32_t option) {
    const BlockKind kind = kindOf(classCode);
    const bool refilled = option == aboutToBeFilled && kind == BlockKind::Unformatted;
    if (option != 0 && !refilled) {
        throw Failure(codes::unknownItem);
    }
    if (size < 0 || static_cast<std::uint64_t>(size) > capacityOf(kind)) {
        throw Failure(codes::sizeRefused);
    }
    if (kind == BlockKind::Spectrum) {
        content.change<SpectrumBlock>(classCode, [size](SpectrumBlock& spectrum) {
            spectrum.extend(static_cast<std::size_t>(size));
        });
    } else if (refilled) {
        content.change<UnformattedBlock>(
            classCode, [](UnformattedBlock& unformatted) { unformatted.beginRefilling(); });
    } else if (!content.has(classCode)) {
        content.put(classCode, emptyBlock(classCode));
    }
}

void appendToBlock(Content& content, std::uint16_t classCode, std::span<const char> chunk) {
    content.change<UnformattedBlock>(classCode,
                                     [chunk](UnformattedBlock& block) { block.append(chunk); });
}

std::size_t recordCount(const Content& content, std::uint16_t classCode) {
    const Block* block = content.find(classCode);
    if (block == nullptr) {
        return 0;
    }
    const auto* records = std::get_if<RecordBlock>(block);
    return records == nullptr ? 1 : records->recordCount();
}

std::size_t entryCount(const Content& content, std::uint16_t classCode, std::size_t record) {
    if (record == 0 || record > recordCount(content, classCode)) {
        throw Failure(codes::noSuchRecord);
    }
    const Block& block = requireBlock(content, classCode);
    if (const auto* records = std::get_if<RecordBlock>(&block)) {
        return records->record(record).entries.size();
    }
    return std::holds_alternative<SpectrumBlock>(block) ? channelCount(content) : 0;
}

void insertOne(Content& content, std::uint16_t classCode, std::size_t record, std::size_t entry) {
    content.change<RecordBlock>(
        classCode, [record, entry](RecordBlock& block) { block.insert(record, entry); });
}

void deleteOne(Content& content, std::uint16_t classCode, std::size_t record, std::size_t entry) {
    if (record == 0 || record > recordCount(content, classCode)) {
        throw Failure(codes::noSuchRecord);
    }
    if (std::holds_alternative<RecordBlock>(requireBlock(content, classCode))) {
        content.change<RecordBlock>(
            classCode, [record, entry](RecordBlock& block) { block.erase(record, entry); });
    } else if (entry == 0) {
        content.remove({classCode});
    } else {
        throw Failure(codes::noSuchEntry);
    }
}

void deleteLevel(Content& content, std::int32_t level) {
    if (level != 1 && level != 2) {
        throw Failure(codes::unknownItem);
    }
    if (level == 1) {
        content.remove({QAR_CLS_PEAK, QAR_CLS_RESULT});
    } else {
        content.remove({QAR_CLS_RESULT});
    }
}

const Block& requireBlock(const Content& content, std::uint16_t classCode) {
    const Block* block = content.find(classCode);
    if (block == nullptr) {
        throw Failure(codes::noBlock);
    }
    return *block;
}

void replaceBlock(Content& content, std::uint16_t classCode, Block block) {
    if (!content.has(classCode)) {
        throw Failure(codes::noBlock);
    }
    content.put(classCode, std::move(block));
}

Block blockOfRecord(const Content& content, std::uint16_t classCode, std::size_t record) {
    if (record == 0 || record > recordCount(content, classCode)) {
        throw Failure(codes::noSuchRecord);
    }
    const Block& block = requireBlock(content, classCode);
    const auto* records = std::get_if<RecordBlock>(&block);
    return records == nullptr ? block : RecordBlock({records->record(record)});
}

void putRecord(Content& content, std::uint16_t classCode, std::size_t record, Block block) {
    if (auto* records = std::get_if<RecordBlock>(&block)) {
        content.change<RecordBlock>(classCode, [record, records](RecordBlock& destination) {
            destination.putRecord(record, records->record(1));
        });
    } else if (record == 1) {
        content.put(classCode, std::move(block));
    } else {
        throw Failure(codes::noSuchRecord);
    }
}

}  // namespace embedded
