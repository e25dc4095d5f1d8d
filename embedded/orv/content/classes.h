// Operations on whole classes of a data source, their records and their entries.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_CLASSES_H
#define PYORV3_EMBEDDED_ORV_CONTENT_CLASSES_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "embedded/orv/content/content.h"

namespace embedded {

// All functions throw Failure(unknownClass) if the number is not a class, and leave the content
// unchanged if they throw. The class must be loaded before the call, for the spectrum class also
// the class of the channel count (neededForSpectrum); deleteLevel and replaceBlock need no class.

// Adds an empty block of the class if there is none. size: for the spectrum its minimum number of
// channels (new ones are 0), otherwise only a hint. option: 0, or -1 to refill an unformatted
// block. Throws Failure: sizeRefused if size is negative or exceeds the capacity; unknownItem for
// another option.
void createBlock(Content& content, std::uint16_t classCode, std::int64_t size, std::int32_t option);

// Appends to the unformatted block of the class, creating it if necessary. Throws Failure:
// unknownClass if the class is of another kind; sizeRefused as UnformattedBlock does.
void appendToBlock(Content& content, std::uint16_t classCode, std::span<const char> chunk);

// Returns the number of records of the class: 1 for a spectrum or unformatted block, 0 without a
// block.
std::size_t recordCount(const Content& content, std::uint16_t classCode);
// Returns the number of entries of a record: the channels for record 1 of the spectrum class, 0 for
// an unformatted block. Throws Failure(noSuchRecord).
std::size_t entryCount(const Content& content, std::uint16_t classCode, std::size_t record);

// Inserts an empty record, or an empty entry if entry is above 0; later ones move up. For formatted
// classes only. Throws Failure: noSuchRecord, noSuchEntry, blockFull.
void insertOne(Content& content, std::uint16_t classCode, std::size_t record, std::size_t entry);
// Deletes a record, or an entry if entry is above 0; later ones move down. Record 1 of a class that
// is not formatted is its whole block. Throws Failure: noSuchRecord, noSuchEntry.
void deleteOne(Content& content, std::uint16_t classCode, std::size_t record, std::size_t entry);

// Deletes analysis results: peaks and identified nuclides for level 1, identified nuclides for
// level 2. Throws Failure(unknownItem) for another level.
void deleteLevel(Content& content, std::int32_t level);

// Returns the block of a class. Throws Failure(noBlock).
const Block& requireBlock(const Content& content, std::uint16_t classCode);
// Replaces the block of a class. Throws Failure(noBlock) if the class has none.
void replaceBlock(Content& content, std::uint16_t classCode, Block block);

// Copy one record between sources as a block with a single record. putRecord replaces an existing
// record or appends the next one. For classes that are not formatted, record 1 is the whole block.
// Throw Failure: noSuchRecord, blockFull.
Block blockOfRecord(const Content& content, std::uint16_t classCode, std::size_t record);
void putRecord(Content& content, std::uint16_t classCode, std::size_t record, Block block);

}  // namespace embedded

#endif
