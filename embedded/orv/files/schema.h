// The tables of a data source (FORMAT.md).
#ifndef PYORV3_EMBEDDED_ORV_FILES_SCHEMA_H
#define PYORV3_EMBEDDED_ORV_FILES_SCHEMA_H

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "embedded/orv/files/database.h"

namespace embedded {

// The database's user version. Files of version 1 have no checksums; a save converts them.
inline constexpr std::uint32_t schemaVersion = 2;

// The file of a data source that holds nothing. Created at the first call.
const std::vector<char>& emptyDataSource();

// True if the file begins as a data source does, damaged or not.
bool isDataSource(Database& database);

// The part of the header that every commit changes, or nullopt in write-ahead mode, in which
// commits do not change it. Needs no transaction: it always shows the last commit.
using HeaderState = std::array<unsigned char, 24>;
std::optional<HeaderState> headerState(Database& database);

// Returns the version of the schema. Refuses a file of a later version, one that is shorter than
// its header says, and one whose tables are not ours: other columns or constraints, or indexes
// with expressions, would run code from the file. Tables that a user has added are ignored.
// Called within a transaction. Throws Failure(damaged).
std::uint32_t requireSoundSchema(Database& database);

// Replaces the tables of an earlier version by empty ones of this version, within a transaction.
void replaceTables(Database& database, std::uint32_t oldVersion);

}  // namespace embedded

#endif
