// Keeps the parameter dictionary beside this library in memory.
//
// Callers load and release the dictionary at each lookup. While this library holds a reference,
// that is a change of a counter instead of a mapping of the file.
#include <dlfcn.h>

#include <exception>
#include <string>

namespace {

class DictionaryLibrary {
  public:
    DictionaryLibrary() noexcept {
        try {
            Dl_info info{};
            if (dladdr(this, &info) != 0) {
                const std::string self = info.dli_fname;
                const std::string path = self.substr(0, self.rfind('/') + 1) + "pqar.so";
                library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
            }
        } catch (const std::exception&) {
            library_ = nullptr;  // lookups are only slower then
        }
    }
    ~DictionaryLibrary() {
        if (library_ != nullptr) {
            dlclose(library_);
        }
    }
    DictionaryLibrary(const DictionaryLibrary&) = delete;
    DictionaryLibrary& operator=(const DictionaryLibrary&) = delete;
    DictionaryLibrary(DictionaryLibrary&&) = delete;
    DictionaryLibrary& operator=(DictionaryLibrary&&) = delete;

  private:
    void* library_ = nullptr;
};

const DictionaryLibrary dictionary;

}  // namespace
