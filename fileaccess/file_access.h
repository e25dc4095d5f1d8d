// FileAccess: one data source of the data-access library under a lock of its own, with diagnostics.
#ifndef PYORV3_FILEACCESS_FILE_ACCESS_H
#define PYORV3_FILEACCESS_FILE_ACCESS_H

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "module/interface/orv.h"
#include "module/status/status.h"
#include "variant/variant.h"

namespace Tarsel::Datasources::QAR {

// An object is empty, owns the data source that it opened, or is attached to a caller's data
// source, which it never closes.
//
// Every operation returns a status, 0 for success, and traces its refusals. Operations that need
// a data source give noDataSource where the object, or the source or the destination of a copy, has
// none; badArguments where source and destination are one object. Library results are normalised
// (normalizeStatus) unless an operation says otherwise.
//
// Every operation holds the object's recursive mutex from its first step to its last. A copy
// locks its source, then its destination, and unlocks in reverse order, also where something is
// thrown. Two threads that copied two objects into each other would wait for each other: an object
// must not be shared between threads. The module makes its objects inside one call and never
// shares them.
class FileAccess {
  public:
    // An empty object. Both constructors load the suite's environment.
    FileAccess();

    // Attached to the handle; empty when it is 0.
    explicit FileAccess(OrvContext handle);

    // Closes an owned data source without flushing it.
    ~FileAccess();

    FileAccess(const FileAccess&) = delete;
    FileAccess& operator=(const FileAccess&) = delete;
    FileAccess(FileAccess&&) = delete;
    FileAccess& operator=(FileAccess&&) = delete;

    // Gives an empty object a data source: creates the file when the flags have ORV_ACCESS_CREATE,
    // else opens it with the flags and ORV_ACCESS_READ as access mode. On failure the object stays
    // empty.
    //
    // badArguments for an empty name; dataSourceAlreadyOpen where the object has a data source;
    // noTemporaryContext to noBoundContext where no context can be created; the 16-bit library
    // result, sign-extended (normalised after a creation only).
    pyORV3::Status open(std::string fileName, std::uint32_t flags);

    // Ends the object's data source: an attached one is forgotten, an owned one flushed (unless
    // bit 0 of the flags is set), closed and released. The object is empty afterwards, also where
    // that fails.
    pyORV3::Status close(std::uint32_t flags);

    // Class argument of `copyTo`: the whole data source.
    static constexpr std::uint32_t allClasses = 0xFFFFFFFF;

    // Copies one class into the destination, or the whole data source. The class argument is a
    // class number, or a code whose high 16 bits are one. noBlock where the destination does
    // not hold the class's block.
    pyORV3::Status copyTo(FileAccess& destination, std::uint32_t classArgument);

    // Copies the whole data source; takes no lock. dataSourceAlreadyOpen where one side has no data
    // source.
    pyORV3::Status duplicateTo(FileAccess& destination);

    // Creates a block of `count` units of the class. The spectrum class with count 0 gets as many
    // channels as the data source says. The last two arguments are not read.
    pyORV3::Status createBlock(std::uint32_t classArgument, std::uint32_t count, std::uint32_t,
                               std::uint32_t);

    // Reads a parameter into the value, which is cleared first. Record 0 stands for record 1.
    //
    // The status of ParameterMetadata::lookup or deserialize; memoryExhausted where memory is
    // exhausted (reportCaught); the library's.
    pyORV3::Status getParameter(std::uint32_t code, com::tarsel::utility::Variant& value,
                                std::uint16_t record, std::uint16_t entry);

    // Writes a parameter. Record 0 stands for record 1.
    //
    // The status of ParameterMetadata::lookup or serialize; the library's.
    pyORV3::Status setParameter(std::uint32_t code, const com::tarsel::utility::Variant& value,
                                std::uint16_t record, std::uint16_t entry);

    // Copies the analysis sequence into the destination and keeps the destination's own settings
    // (analysis_sequence.cpp). What was written stays written when a later step fails.
    pyORV3::Status copySequenceTo(FileAccess& destination);

  private:
    // Traces a message of an operation, "FileAccess::" and its name, with a prefix that names the
    // file; returns the status.
    pyORV3::Status report(std::string_view context, std::string_view message,
                          pyORV3::Status status) const;

    // Traces a failed library call on a parameter.
    pyORV3::Status reportParameter(std::string_view context, std::string_view message,
                                   std::uint32_t code, std::uint16_t record, std::uint16_t entry,
                                   pyORV3::Status status) const;

    std::string fileName_;  // as it was passed to `open`
    OrvContext handle_ = 0;
    std::recursive_mutex mutex_;
    bool attached_ = false;
};

}  // namespace Tarsel::Datasources::QAR

#endif
