#include "platform/posix/libraries.h"

#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/posix/environment.h"
#include "platform/posix/system.h"

namespace {

std::string nativeName(std::string_view name) {
    constexpr std::string_view windowsSuffix = ".dll";
    if (name.size() >= windowsSuffix.size() &&
        strncasecmp(name.data() + name.size() - windowsSuffix.size(), windowsSuffix.data(),
                    windowsSuffix.size()) == 0) {
        name.remove_suffix(windowsSuffix.size());
        return std::string(name) + ".so";
    }
    return std::string(name);
}

// A reference of the loader to a library; empty where there is none.
struct Unloader {
    void operator()(void* library) const { dlclose(library); }
};
using Reference = std::unique_ptr<void, Unloader>;

struct Opened {
    Reference reference;
    bool wasMapped = false;  // something else has the library in memory
};

// Goes straight to the loader, which needs no look at the file for a library that it has mapped.
Opened open(const std::string& path) {
    if (path.size() >= PATH_MAX) {
        return {};
    }
    constexpr int mode = RTLD_NOW | RTLD_LOCAL;
    if (void* mapped = dlopen(path.c_str(), mode | RTLD_NOLOAD)) {
        return {Reference(mapped), true};
    }
    return {Reference(dlopen(path.c_str(), mode)), false};
}

Opened openInLibraryPath(const std::string& file, std::string_view folders) {
    for (std::string_view rest = folders; !rest.empty();) {
        const auto length = std::min(rest.find_first_of(":;"), rest.size());
        const std::string_view folder = rest.substr(0, length);
        rest.remove_prefix(std::min(length + 1, rest.size()));
        if (!folder.starts_with('/')) {
            continue;
        }
        if (Opened opened = open(std::string(folder) + "/" + file); opened.reference) {
            return opened;
        }
    }
    return {};
}

// The file of the program or library that holds this code; empty where the loader was given a
// relative name of the library, which may mean another file by now.
std::string ownFile() {
    static const int anchor = 0;
    Dl_info symbol{};
    void* entry = nullptr;
    if (dladdr1(&anchor, &symbol, &entry, RTLD_DL_LINKMAP) == 0) {
        return {};
    }
    const std::string name = static_cast<const link_map*>(entry)->l_name;
    if (name.empty()) {  // the program
        std::error_code error;
        return std::filesystem::read_symlink("/proc/self/exe", error).string();
    }
    return name.front() == '/' ? name : std::string();
}

// The folder of this code with its last slash, empty where it is not known.
const std::string& ownFolder() {
    static const std::string folder = [] {
        const std::string file = ownFile();
        return file.substr(0, file.rfind('/') + 1);
    }();
    return folder;
}

// Beside this code, and in the folder there in which an installed package has its libraries.
Opened openBesideThisCode(const std::string& file) {
    if (ownFolder().empty()) {
        return {};
    }
    Opened opened = open(ownFolder() + file);
    return opened.reference ? std::move(opened) : open(ownFolder() + "pyORV3.libs/" + file);
}

// Asks the loader for the folders it searches: it keeps LD_LIBRARY_PATH as it was when the process
// started, where an empty entry means the current folder.
bool loaderSearchesAbsoluteFolders() {
    const std::unique_ptr<void, int (*)(void*)> program(dlopen(nullptr, RTLD_LAZY), dlclose);
    Dl_serinfo sizes{};
    if (!program || dlinfo(program.get(), RTLD_DI_SERINFOSIZE, &sizes) != 0) {
        return false;
    }
    const auto storage = std::make_unique<unsigned char[]>(sizes.dls_size);
    auto* search = new (storage.get()) Dl_serinfo(sizes);
    if (dlinfo(program.get(), RTLD_DI_SERINFO, search) != 0) {
        return false;
    }
    const Dl_serpath* folders = search->dls_serpath;
    return std::all_of(folders, folders + search->dls_cnt,
                       [](const Dl_serpath& folder) { return folder.dls_name[0] == '/'; });
}

bool loaderIsSafe() {
    static const bool safe = loaderSearchesAbsoluteFolders();
    return safe;
}

Opened openInSystemFolders(const std::string& file) {
    return loaderIsSafe() ? open(file) : Opened{};
}

Opened find(const std::string& file, std::string_view libraryPath) {
    if (file.find('/') != std::string::npos) {
        return open(file);
    }
    Opened opened = openInLibraryPath(file, libraryPath);
    if (!opened.reference) {
        opened = openBesideThisCode(file);
    }
    return opened.reference ? std::move(opened) : openInSystemFolders(file);
}

// The loader looks a name up in the libraries that a library needs as well; Windows does not.
bool isDefinedIn(void* library, const void* address) {
    const link_map* expected = nullptr;
    Dl_info symbol{};
    void* actual = nullptr;
    return dlinfo(library, RTLD_DI_LINKMAP, &expected) == 0 &&
           dladdr1(address, &symbol, &actual, RTLD_DL_LINKMAP) != 0 && actual == expected;
}

}  // namespace

// A library that callers have loaded, and its entry points as far as they were asked for.
struct platform::Library {
    std::string name;         // as the callers gave it
    std::string libraryPath;  // LD_LIBRARY_PATH, by which it was found
    Reference reference;
    bool isKept;  // outlives its uses: something else had it in memory before this code
    std::size_t uses = 0;
    std::vector<std::pair<std::string, FARPROC>> entryPoints;
};

namespace {

using platform::Library;

// The libraries that are in use or kept.
//
// Loading what is mapped, finding an entry point and unloading each take the loader a walk over all
// libraries of the process, and the search a walk over the folders before. So a library that
// something else holds in memory is kept here from its first loading on and found again by its name
// alone, as long as LD_LIBRARY_PATH is the same; one that only callers have loaded goes with the
// last of them.
class Libraries {
  public:
    // Any thread may call any function.

    // One more use of the library; null where none is found.
    Library* load(std::string_view name) {
        std::string path = platform::environmentVariable("LD_LIBRARY_PATH").value_or(std::string());
        {
            const std::lock_guard lock(mutex_);
            if (Library* library = use(name, path)) {
                return library;
            }
        }
        // Not under the lock: the library's own start-up code may load others.
        Opened opened = find(nativeName(name), path);
        if (!opened.reference) {
            return nullptr;
        }
        const std::lock_guard lock(mutex_);
        if (Library* library = use(name, path)) {
            return library;
        }
        return add(name, std::move(path), std::move(opened));
    }

    FARPROC entryPoint(Library* library, std::string_view name) {
        const std::lock_guard lock(mutex_);
        for (const auto& [known, address] : library->entryPoints) {
            if (known == name) {
                return address;
            }
        }
        const std::string text(name);
        void* address = dlsym(library->reference.get(), text.c_str());
        if (address == nullptr || !isDefinedIn(library->reference.get(), address)) {
            return nullptr;
        }
        return library->entryPoints.emplace_back(text, reinterpret_cast<FARPROC>(address)).second;
    }

    // One use less.
    void release(Library* library) {
        std::unique_ptr<Library> unused;  // goes when the lock is free again
        const std::lock_guard lock(mutex_);
        if (--library->uses == 0 && !library->isKept) {
            unused = take(library);
        }
    }

    // Around a fork, so that the new process does not find a lock that nobody will release.
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

  private:
    using List = std::vector<std::unique_ptr<Library>>;

    Library* use(std::string_view name, std::string_view libraryPath) {
        for (const auto& library : libraries_) {
            if (library->name == name && library->libraryPath == libraryPath) {
                ++library->uses;
                return library.get();
            }
        }
        return nullptr;
    }

    Library* add(std::string_view name, std::string libraryPath, Opened opened) {
        bool isKept = opened.wasMapped;
        for (const auto& library : libraries_) {
            // What had it in memory may have been a caller.
            isKept = isKept && (library->isKept || library->reference != opened.reference);
        }
        // What was found by another LD_LIBRARY_PATH is not wanted any more.
        std::erase_if(libraries_, [name](const std::unique_ptr<Library>& library) {
            return library->uses == 0 && library->name == name;
        });
        libraries_.push_back(std::make_unique<Library>(Library{std::string(name),
                                                               std::move(libraryPath),
                                                               std::move(opened.reference),
                                                               isKept,
                                                               1,
                                                               {}}));
        return libraries_.back().get();
    }

    std::unique_ptr<Library> take(const Library* library) {
        const auto position =
            std::find_if(libraries_.begin(), libraries_.end(),
                         [library](const auto& item) { return item.get() == library; });
        std::unique_ptr<Library> taken = std::move(*position);
        libraries_.erase(position);
        return taken;
    }

    std::mutex mutex_;
    List libraries_;
};

Libraries& libraries() {
    // Never destroyed: threads may still be at work while the process ends.
    static Libraries& all = []() -> Libraries& {
        pthread_atfork([] { libraries().lock(); }, [] { libraries().unlock(); },
                       [] { libraries().unlock(); });
        return *std::make_unique<Libraries>().release();
    }();
    return all;
}

// Made while this code is loaded, before a thread could be in the middle of it: a process forked
// then would wait for ever for the thread that it has not.
[[maybe_unused]] const bool createdAtLoading = []() noexcept {
    try {
        libraries();
        ownFolder();
        return loaderIsSafe();
    } catch (const std::exception&) {  // made at the first use then
        return false;
    }
}();

}  // namespace

HMODULE LoadLibraryA(LPCSTR name) {
    HMODULE library = name != nullptr && *name != '\0' ? libraries().load(name) : nullptr;
    if (library == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
    }
    return library;
}

FARPROC GetProcAddress(HMODULE library, LPCSTR name) {
    FARPROC address =
        library != nullptr && name != nullptr ? libraries().entryPoint(library, name) : nullptr;
    if (address == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
    }
    return address;
}

BOOL FreeLibrary(HMODULE library) {
    if (library == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    libraries().release(library);
    return TRUE;
}
