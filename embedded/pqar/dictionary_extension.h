// Parameters that a file adds to the dictionary.
//
// The environment variable ORV_DICTIONARY is the path of a JSON file. It is read once, at the first
// lookup of a parameter outside the table:
//
//     {"qar_dictionary": 1, "parameters": [
//       {"code": 542113793, "name": "QAR_D_HUMIDITY", "type": "double", "scope": "record",
//        "description": "Humidity of the room in percent"},
//       {"code": 542113794, "name": "QAR_C_ROOM", "type": "str", "length": 64, "scope": "entry",
//        "description": "Name of the room"}]}
//
// type: byte, short, long, longlong, float, double, str or Date. length: of a str, its max
// characters. A code or name in the table takes precedence. The file is not trusted: if it cannot
// be read, is larger than 4 MiB or has an invalid parameter, none of its parameters is added, and
// lookups report this.
#ifndef PYORV3_EMBEDDED_PQAR_DICTIONARY_EXTENSION_H
#define PYORV3_EMBEDDED_PQAR_DICTIONARY_EXTENSION_H

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "embedded/pqar/parameter_table.h"

namespace embedded {

// Constant after construction. Safe for concurrent use by multiple threads. Its parameters live as
// long as the object.
class DictionaryExtension {
  public:
    // Returns the extension of this process; empty if the variable is not set.
    static const DictionaryExtension& ofProcess();

    // Parses the extension in a JSON text. Throws std::exception if it is invalid.
    explicit DictionaryExtension(std::string_view json);
    DictionaryExtension(DictionaryExtension&&) = default;
    DictionaryExtension(const DictionaryExtension&) =
        delete;  // its parameters would refer to our strings
    DictionaryExtension& operator=(DictionaryExtension&&) = delete;
    DictionaryExtension& operator=(const DictionaryExtension&) = delete;
    ~DictionaryExtension() = default;

    // All parameters, ascending by code.
    [[nodiscard]] const std::vector<ParameterDescription>& parameters() const {
        return parameters_;
    }

    // True if the file cannot be used.
    [[nodiscard]] bool isUnusable() const { return unusable_; }

  private:
    DictionaryExtension() = default;
    static DictionaryExtension unusable();

    std::deque<std::string> texts_;  // the parameters refer to them
    std::vector<ParameterDescription> parameters_;
    bool unusable_ = false;
};

}  // namespace embedded

#endif
