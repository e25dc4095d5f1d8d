// Parameters that a file adds to the dictionary.
//
// The environment variable ORV_DICTIONARY names a JSON file, which is read once, when the first
// parameter is looked up that the table has not:
//
//     {"qar_dictionary": 1, "parameters": [
//       {"code": 542113793, "name": "QAR_D_HUMIDITY", "type": "double", "scope": "record",
//        "description": "Humidity of the room in percent"},
//       {"code": 542113794, "name": "QAR_C_ROOM", "type": "str", "length": 64, "scope": "entry",
//        "description": "Name of the room"}]}
//
// type: byte, short, long, longlong, float, double, str or Date. length: of a text, its most
// characters. What the table has under the same code or name stands. The file comes from outside: a
// file that cannot be read, is larger than 4 MiB or has any parameter that is not as above adds
// nothing at all, and lookups say so.
#ifndef PYORV3_EMBEDDED_PQAR_DICTIONARY_EXTENSION_H
#define PYORV3_EMBEDDED_PQAR_DICTIONARY_EXTENSION_H

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "embedded/pqar/parameter_table.h"

namespace embedded {

// Constant once it is made; any thread may use it. What it hands out lives as long as it does.
class DictionaryExtension {
  public:
    // The extension of this process, empty where no file is named.
    static const DictionaryExtension& ofProcess();

    // The extension that a JSON text makes.
    explicit DictionaryExtension(std::string_view json);
    DictionaryExtension(DictionaryExtension&&) = default;
    DictionaryExtension(const DictionaryExtension&) = delete;  // whose parameters would show ours
    DictionaryExtension& operator=(DictionaryExtension&&) = delete;
    DictionaryExtension& operator=(const DictionaryExtension&) = delete;
    ~DictionaryExtension() = default;

    // All parameters, ascending by code.
    [[nodiscard]] const std::vector<ParameterDescription>& parameters() const {
        return parameters_;
    }

    // Whether there is a file that cannot be used.
    [[nodiscard]] bool isUnusable() const { return unusable_; }

  private:
    DictionaryExtension() = default;
    static DictionaryExtension unusable();

    std::deque<std::string> texts_;  // whose characters the parameters show
    std::vector<ParameterDescription> parameters_;
    bool unusable_ = false;
};

}  // namespace embedded

#endif
