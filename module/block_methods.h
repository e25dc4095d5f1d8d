// The methods on blocks, records and entries of a data source's parameter classes, and the copies
// between sources.
//
// A class argument is a class number or any 32-bit code whose high half is one, a parameter code
// for instance. Records and entries count from 1.
#ifndef PYORV3_MODULE_BLOCK_METHODS_H
#define PYORV3_MODULE_BLOCK_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// Creates the block of a class. The size of the spectrum class is its channel count, rounded up
// to a spectrum size; of any other class it goes to the library as it is.
Outcome createBlock(std::int32_t handle, std::int32_t classArgument, std::int32_t size);

// Deletes all records of a class, the last one first; stops at the first that cannot be deleted.
Outcome deleteBlock(std::int32_t handle, std::int32_t classArgument);

// Deletes one entry, or with entry 0 the whole record; negative numbers count as 0. In the method
// table this is `delete`.
Outcome deleteOne(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
                  std::int32_t entry);

// Deletes a level.
Outcome deleteLevel(std::int32_t handle, std::int32_t level);

// Inserts an entry, or with an entry below 1 a whole record.
Outcome insert(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
               std::int32_t entry);

// Gives the number of entries of a record; of a class's records when the record is below 1 or the
// class argument 0.
Outcome count(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
              PythonReference& number);

// Copies one class, or with a class argument below 1 the whole source.
Outcome copyTo(std::int32_t source, std::int32_t destination, std::int32_t classArgument);

// Copies one record into another source; the source keeps it.
Outcome moveRecordsTo(std::int32_t source, std::int32_t destination, std::int32_t classArgument,
                      std::int32_t sourceRecord, std::int32_t destinationRecord);

// Copies the analysis sequence; both data sources stay open and the caller's. The status of
// FileAccess::copySequenceTo.
Outcome copyAnalysisSequenceTo(std::int32_t sourceHandle, std::int32_t destinationHandle);

// Gives the number of the nuclide record found by two numbers, an energy and its tolerance in
// keV on the embedded library; 0 when none is found.
Outcome findNuclideByEnergy(std::int32_t handle, float first, float second,
                            std::int32_t searchOption, PythonReference& record);

// Gives the number of the nuclide record found by a name; 0 when none is found. A name of 2^32 - 1
// bytes and more gives outOfMemory.
Outcome findNuclideByName(std::int32_t handle, const char* name, std::int32_t searchOption,
                          PythonReference& record);

}  // namespace pyORV3

#endif
