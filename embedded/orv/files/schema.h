// The tables of a data source (FORMAT.md).
#ifndef PYORV3_EMBEDDED_ORV_FILES_SCHEMA_H
#define PYORV3_EMBEDDED_ORV_FILES_SCHEMA_H

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "embedded/orv/files/database.h"

namespace embedded {

// "QAR3" as the database's application id.
inline constexpr std::uint32_t applicationId = 0x51415233;
// The database's user version.
inline constexpr std::uint32_t schemaVersion = 1;

// The file of a data source that holds nothing; made when it is first asked for.
const std::vector<char>& emptyDataSource();

// Whether the file begins as a data source does, damaged or not.
bool isDataSource(Database& database);

// The part of the header that every commit changes; nothing for a file in WAL mode, whose commits
// leave it alone. Within no transaction as well: what still stands there is the last commit.
using HeaderState = std::array<unsigned char, 24>;
std::optional<HeaderState> headerState(Database& database);

// Refuses a file that another library's version wrote, that is shorter than its header says, or
// whose tables are not ours: that has columns or constraints in them, or indexes of them, which
// would run what the file brings along. Other tables are let be; nothing here looks into them.
// Called within a transaction. Throws Failure(damaged).
void requireSoundSchema(Database& database);

}  // namespace embedded

#endif
