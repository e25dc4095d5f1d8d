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

// Returns the file of an empty data source. Created at the first call.
const std::vector<char>& emptyDataSource();

// True if the file begins like a data source, which may be damaged.
bool isDataSource(Database& database);

// The part of the header that every commit changes. headerState returns the state of the last
// commit even without a transaction, or nullopt in write-ahead mode, in which commits do not change
// it.
using HeaderState = std::array<unsigned char, 24>;
std::optional<HeaderState> headerState(Database& database);

// Returns the version of the schema. Throws Failure(damaged) if the version is later than ours, if
// the file is shorter than its header requires, or if our tables have other columns or constraints
// or indexes with expressions, which would run code from the file. Ignores tables that a user has
// added. Called within a transaction.
std::uint32_t requireSoundSchema(Database& database);

// Replaces the tables of an earlier version with empty tables of this version, within a
// transaction.
void replaceTables(Database& database, std::uint32_t oldVersion);

}  // namespace embedded

#endif
