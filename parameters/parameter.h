// Parameter: what the dictionary says of one parameter code, and the conversions of its value
// between bytes and Python objects.
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
    // An empty record: numbers 0, texts empty.
    Parameter() noexcept = default;

    // The record of a code; a failure of load is thrown as a long that carries its status.
    explicit Parameter(std::uint32_t code);

    virtual ~Parameter() = default;
    Parameter(const Parameter&) = delete;
    Parameter& operator=(const Parameter&) = delete;
    Parameter(Parameter&&) = delete;
    Parameter& operator=(Parameter&&) = delete;

    // Fills the record from the dictionary. Code 0 gives parameterUnknown and leaves the record
    // as it is; a failed lookup gives its status and leaves code and class code alone filled.
    [[nodiscard]] pyORV3::Status load(std::uint32_t code);

    // Makes a Python object of value bytes: bool, int, float, or str (dates as ISO 8601 text). A
    // data type that is not known or too few bytes give badArguments. The object stays empty, with
    // Python's error pending, when Python has no memory for it.
    [[nodiscard]] pyORV3::Status deserialize(const Utility::ByteStream& stream,
                                             pyORV3::PythonReference& object) const;

    // Empties the stream and fills it with the value bytes of a Python object. A data type that
    // is not known, an object that does not fit it or a text that is no date give badArguments.
    // Throws std::bad_alloc.
    [[nodiscard]] pyORV3::Status serialize(PyObject* object, Utility::ByteStream& stream) const;

    [[nodiscard]] std::uint32_t code() const noexcept { return code_; }
    // The upper 16 bits of the code, or the code itself when those are zero.
    [[nodiscard]] std::uint32_t classCode() const noexcept { return classCode_; }
    // The data type code.
    [[nodiscard]] std::uint32_t type() const noexcept { return type_; }
    // The value size in bytes, below 65,536; of a text its length plus one.
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
    // The longest text in characters, without the terminator.
    [[nodiscard]] std::uint32_t length() const noexcept { return attributes_[1]; }
    // At most 55 bytes, without trailing white space.
    [[nodiscard]] const char* name() const noexcept { return name_.data(); }
    // At most 255 bytes, without trailing white space.
    [[nodiscard]] const char* description() const noexcept { return description_.data(); }
    // True when a byte of the description is outside ASCII.
    [[nodiscard]] bool descriptionHasHighBytes() const noexcept;

    // The data source handle that a script named together with the parameter.
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
