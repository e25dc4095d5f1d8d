// Methods on the blocks, records and entries of parameter classes, and copies between sources.
//
// A class argument is a class number or any 32-bit code whose high half is a class number, such as
// a parameter code. Records and entries count from 1.
#ifndef PYORV3_MODULE_BLOCK_METHODS_H
#define PYORV3_MODULE_BLOCK_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// Creates the block of a class. The size of the spectrum class is its channel count, rounded up to
// a spectrum size; for other classes it is passed to the library unchanged.
Outcome createBlock(std::int32_t handle, std::int32_t classArgument, std::int32_t size);

// Deletes all records of a class, the last one first; stops at the first failure.
Outcome deleteBlock(std::int32_t handle, std::int32_t classArgument);

// Deletes one entry, or the whole record if entry is 0; negative numbers count as 0. The name in
// the method table is `delete`.
Outcome deleteOne(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
                  std::int32_t entry);

// Deletes a level.
Outcome deleteLevel(std::int32_t handle, std::int32_t level);

// Inserts an entry, or a whole record if entry is below 1.
Outcome insert(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
               std::int32_t entry);

// Returns the number of entries of a record, or of records of a class if record is below 1 or the
// class argument is 0.
Outcome count(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
              PythonReference& number);

// Copies one class, or the whole source if the class argument is below 1.
Outcome copyTo(std::int32_t source, std::int32_t destination, std::int32_t classArgument);

// Copies one record into another source; the source keeps it.
Outcome moveRecordsTo(std::int32_t source, std::int32_t destination, std::int32_t classArgument,
                      std::int32_t sourceRecord, std::int32_t destinationRecord);

// Copies the analysis sequence and returns the status of FileAccess::copySequenceTo. Both data
// sources stay open and belong to the caller.
Outcome copyAnalysisSequenceTo(std::int32_t sourceHandle, std::int32_t destinationHandle);

// Finds the nuclide record for two numbers, on the embedded library an energy and its tolerance in
// keV. Returns its number, 0 if there is none.
Outcome findNuclideByEnergy(std::int32_t handle, float first, float second,
                            std::int32_t searchOption, PythonReference& record);

// Finds the nuclide record with a name and returns its number, 0 if there is none. A name of 2^32 -
// 1 bytes or more gives outOfMemory.
Outcome findNuclideByName(std::int32_t handle, const char* name, std::int32_t searchOption,
                          PythonReference& record);

}  // namespace pyORV3

#endif
