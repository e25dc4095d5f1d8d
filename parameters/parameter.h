// Parameter: the description of one parameter code in the dictionary, and the conversions of its
// value between bytes and Python objects.
#ifndef PYORV3_PARAMETERS_PARAMETER_H
#define PYORV3_PARAMETERS_PARAMETER_H

#include <array>
#include <cstdint>

#include "module/binding/python_reference.h"
#include "module/status/status.h"
#include "parameters/byte_stream.h"

namespace Tarsel::Datasources::QAR {

class Parameter {
  public:
    // Creates an empty record: numbers 0, strings empty.
    Parameter() noexcept = default;

    // Loads the record of a code; throws the status as a long if load fails.
    explicit Parameter(std::uint32_t code);

    virtual ~Parameter() = default;
    Parameter(const Parameter&) = delete;
    Parameter& operator=(const Parameter&) = delete;
    Parameter(Parameter&&) = delete;
    Parameter& operator=(Parameter&&) = delete;

    // Loads the record from the dictionary. Code 0 gives parameterUnknown and leaves the record
    // unchanged; a failed lookup gives its status and sets only code and class code.
    [[nodiscard]] pyORV3::Status load(std::uint32_t code);

    // Creates a Python object from value bytes: bool, int, float, or str (dates as ISO 8601). An
    // unknown data type or too few bytes give badArguments. If memory is exhausted, the object
    // stays empty and a Python error is pending.
    [[nodiscard]] pyORV3::Status deserialize(const Utility::ByteStream& stream,
                                             pyORV3::PythonReference& object) const;

    // Replaces the content of the stream with the value bytes of a Python object. An unknown data
    // type, an object of the wrong kind or a string that is not a date give badArguments. Throws
    // std::bad_alloc.
    [[nodiscard]] pyORV3::Status serialize(PyObject* object, Utility::ByteStream& stream) const;

    [[nodiscard]] std::uint32_t code() const noexcept { return code_; }
    // Returns the upper 16 bits of the code, or the code if they are zero.
    [[nodiscard]] std::uint32_t classCode() const noexcept { return classCode_; }
    // The data type code.
    [[nodiscard]] std::uint32_t type() const noexcept { return type_; }
    // The value size in bytes, below 65,536; for a text its length plus one.
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
    // The max characters of a text, without the terminator.
    [[nodiscard]] std::uint32_t length() const noexcept { return attributes_[1]; }
    // At most 55 bytes, without trailing white space.
    [[nodiscard]] const char* name() const noexcept { return name_.data(); }
    // At most 255 bytes, without trailing white space.
    [[nodiscard]] const char* description() const noexcept { return description_.data(); }
    // True if a byte of the description is outside ASCII.
    [[nodiscard]] bool descriptionHasHighBytes() const noexcept;

    // The data source handle that the script passed.
    void setHandle(std::int32_t handle) noexcept { handle_ = handle; }

  private:
    std::uint32_t code_ = 0;
    std::uint32_t classCode_ = 0;
    std::uint32_t type_ = 0;
    std::uint32_t size_ = 0;
    std::array<std::uint32_t, 4> attributes_{};  // outputs 7, 8, 6 (low 16 bits) and 12
    std::uint32_t output11_ = 0;
    std::uint32_t reserved_ = 0;
    std::int32_t handle_ = 0;
    std::array<char, 56> name_{};
    std::array<char, 256> description_{};
};

}  // namespace Tarsel::Datasources::QAR

#endif
