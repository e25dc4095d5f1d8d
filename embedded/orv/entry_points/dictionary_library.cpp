// Keeps the parameter dictionary that lies beside this library in memory.
//
// Callers load the dictionary at each lookup and release it again. While this library holds a
// reference of its own, that costs them a count instead of a mapping each time.
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
            library_ = nullptr;  // only a little time is lost, as when there is none beside it
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
