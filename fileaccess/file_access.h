// FileAccess: one data source of the data-access library, with its own lock and diagnostics.
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

// An object is empty, owns the data source that it opened, or is attached to a data source of the
// caller, which it never closes.
//
// Every operation returns a status, 0 for success, and traces failures. Operations on a data source
// return noDataSource if the object, or the source or the destination of a copy, does not have one,
// and badArguments if source and destination are the same object. Library results are normalised
// (normalizeStatus) unless an operation states otherwise.
//
// Every operation holds the recursive mutex of the object. A copy locks its source, then its
// destination, and unlocks in reverse order. Two threads that copied two objects into each other
// would deadlock, so an object must not be shared between threads. The module creates its objects
// inside one call and never shares them.
class FileAccess {
  public:
    // Creates an empty object. Both constructors load the environment of the suite.
    FileAccess();

    // Attaches the object to the handle; empty if it is 0.
    explicit FileAccess(OrvContext handle);

    // Closes an owned data source without flushing it.
    ~FileAccess();

    FileAccess(const FileAccess&) = delete;
    FileAccess& operator=(const FileAccess&) = delete;
    FileAccess(FileAccess&&) = delete;
    FileAccess& operator=(FileAccess&&) = delete;

    // Opens a data source for an empty object: creates the file if the flags have
    // ORV_ACCESS_CREATE, otherwise opens it with the flags and ORV_ACCESS_READ. After a failure the
    // object stays empty.
    //
    // Returns badArguments for an empty name; dataSourceAlreadyOpen if the object has a data
    // source; noTemporaryContext to noBoundContext if no context can be created; otherwise the
    // 16-bit result of the library, sign-extended (normalised only after a creation).
    pyORV3::Status open(std::string fileName, std::uint32_t flags);

    // Detaches an attached data source; flushes (unless bit 0 of the flags is set), closes and
    // releases an owned one. The object is empty afterwards, even after a failure.
    pyORV3::Status close(std::uint32_t flags);

    // Class argument of `copyTo`: the whole data source.
    static constexpr std::uint32_t allClasses = 0xFFFFFFFF;

    // Copies one class or the whole data source into the destination. The class argument is a class
    // number or a code whose high 16 bits are one. noBlock if the destination does not have the
    // block of the class.
    pyORV3::Status copyTo(FileAccess& destination, std::uint32_t classArgument);

    // Copies the whole data source without a lock. dataSourceAlreadyOpen if one side does not have
    // a data source.
    pyORV3::Status duplicateTo(FileAccess& destination);

    // Creates a block of `count` units of the class. The spectrum class with count 0 gets the
    // channel count of the data source. The last two arguments are not used.
    pyORV3::Status createBlock(std::uint32_t classArgument, std::uint32_t count, std::uint32_t,
                               std::uint32_t);

    // Reads a parameter into the value, which is cleared first. Record 0 means record 1. Returns
    // the status of ParameterMetadata::lookup, of deserialize or of the library, or memoryExhausted
    // if memory is exhausted (reportCaught).
    pyORV3::Status getParameter(std::uint32_t code, com::tarsel::utility::Variant& value,
                                std::uint16_t record, std::uint16_t entry);

    // Writes a parameter. Record 0 means record 1. Returns the status of ParameterMetadata::lookup,
    // of serialize or of the library.
    pyORV3::Status setParameter(std::uint32_t code, const com::tarsel::utility::Variant& value,
                                std::uint16_t record, std::uint16_t entry);

    // Copies the analysis sequence into the destination, which keeps its own settings
    // (analysis_sequence.cpp). Values that were written before a failure stay.
    pyORV3::Status copySequenceTo(FileAccess& destination);

  private:
    // Traces a message of an operation, with "FileAccess::" and its name as context and the file as
    // prefix; returns the status.
    pyORV3::Status report(std::string_view context, std::string_view message,
                          pyORV3::Status status) const;

    // Traces a failed library call on a parameter.
    pyORV3::Status reportParameter(std::string_view context, std::string_view message,
                                   std::uint32_t code, std::uint16_t record, std::uint16_t entry,
                                   pyORV3::Status status) const;

    std::string fileName_;  // the argument of `open`
    OrvContext handle_ = 0;
    std::recursive_mutex mutex_;
    bool attached_ = false;
};

}  // namespace Tarsel::Datasources::QAR

#endif
