// What scripts do with the classes of a data source as a whole and with their records and entries.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_CLASSES_H
#define PYORV3_EMBEDDED_ORV_CONTENT_CLASSES_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "embedded/orv/content/content.h"

namespace embedded {

// All throw Failure(unknownClass) for a number that is no class, and leave the content as it was
// when they throw. They need the class that they are given, and of the spectrum class the channel
// count's too (neededForSpectrum); deleteLevel and replaceBlock need none.

// Makes the class's block, or keeps the one that is there. size: of the spectrum the channels that
// it has at least, new ones holding 0; of other classes how much is expected, which makes nothing.
// option: 0, or -1 for an unformatted block that is about to be filled, which is refilled.
// Throws Failure: sizeRefused for a negative size or more than the class holds; unknownItem for
// another option.
void createBlock(Content& content, std::uint16_t classCode, std::int64_t size, std::int32_t option);

// Appends to the class's unformatted block, or begins it. Throws Failure: unknownClass for a class
// of another kind; sizeRefused as UnformattedBlock.
void appendToBlock(Content& content, std::uint16_t classCode, std::span<const char> chunk);

// Records of a formatted class; 1 for a spectrum or unformatted block, 0 without a block.
std::size_t recordCount(const Content& content, std::uint16_t classCode);
// Entries of a record: of record 1 of the spectrum class the channels, of an unformatted block 0.
// Throws Failure(noSuchRecord).
std::size_t entryCount(const Content& content, std::uint16_t classCode, std::size_t record);

// A new record, or with an entry above 0 a new entry, without values; the later ones move up.
// Formatted classes only. Throws Failure: noSuchRecord, noSuchEntry, blockFull.
void insertOne(Content& content, std::uint16_t classCode, std::size_t record, std::size_t entry);
// Deletes a record, or with an entry above 0 an entry; the later ones move down. Record 1 of a
// class that is not formatted is its block. Throws Failure: noSuchRecord, noSuchEntry.
void deleteOne(Content& content, std::uint16_t classCode, std::size_t record, std::size_t entry);

// Deletes what the analysis made from a level on: 1 peaks and identified nuclides, 2 identified
// nuclides. Throws Failure(unknownItem) for another level.
void deleteLevel(Content& content, std::int32_t level);

// The block of a class. Throws Failure(noBlock).
const Block& requireBlock(const Content& content, std::uint16_t classCode);
// Replaces the class's block. Throws Failure(noBlock) when there is none to replace.
void replaceBlock(Content& content, std::uint16_t classCode, Block block);

// One record as a block that holds nothing else; its place among the records of another block is
// an existing one, which it replaces, or the next. Of classes that are not formatted the block is
// record 1. Throw Failure: noSuchRecord, blockFull.
Block blockOfRecord(const Content& content, std::uint16_t classCode, std::size_t record);
void putRecord(Content& content, std::uint16_t classCode, std::size_t record, Block block);

}  // namespace embedded

#endif
