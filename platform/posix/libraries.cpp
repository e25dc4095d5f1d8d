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

// Owns a reference of the loader to a library, or nothing.
struct Unloader {
    void operator()(void* library) const { dlclose(library); }
};
using Reference = std::unique_ptr<void, Unloader>;

struct Opened {
    Reference reference;
    bool wasMapped = false;  // other code has the library in memory
};

// True if the path is a pipe, a device or a directory. The loader would wait for the writer of a
// pipe, even if it only looks for a mapped library.
bool isOtherThanFile(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

// A mapped library is found even if its file has been deleted.
Opened open(const std::string& path) {
    const bool isPath = path.find('/') != std::string::npos;
    if (path.size() >= PATH_MAX || (isPath && isOtherThanFile(path))) {
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

// Returns the file of the program or library that contains this code; empty if the loader got a
// relative name, which may mean another file by now.
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

// Returns the directory of this code with its last slash, or an empty string if it is unknown.
const std::string& ownFolder() {
    static const std::string folder = [] {
        const std::string file = ownFile();
        return file.substr(0, file.rfind('/') + 1);
    }();
    return folder;
}

// The directory of this code and the library directory of an installed package there.
Opened openBesideThisCode(const std::string& file) {
    if (ownFolder().empty()) {
        return {};
    }
    Opened opened = open(ownFolder() + file);
    return opened.reference ? std::move(opened) : open(ownFolder() + "pyORV3.libs/" + file);
}

// Queries the search directories of the loader: it keeps the LD_LIBRARY_PATH of the start of the
// process, in which an empty entry means the current directory.
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

// The loader also searches the dependencies of a library for a name; Windows does not.
bool isDefinedIn(void* library, const void* address) {
    const link_map* expected = nullptr;
    Dl_info symbol{};
    void* actual = nullptr;
    return dlinfo(library, RTLD_DI_LINKMAP, &expected) == 0 &&
           dladdr1(address, &symbol, &actual, RTLD_DL_LINKMAP) != 0 && actual == expected;
}

}  // namespace

// A loaded library with the entry points that were looked up.
struct platform::Library {
    std::string name;         // the argument of the callers
    std::string libraryPath;  // LD_LIBRARY_PATH, by which it was found
    Reference reference;
    bool isKept;  // outlives its uses: something else had it in memory before this code
    std::size_t uses = 0;
    std::vector<std::pair<std::string, FARPROC>> entryPoints;
};

namespace {

using platform::Library;

constexpr std::string_view keptLibrary = "pqar.dll";

// The libraries that are in use or kept.
//
// Loading a mapped library, finding an entry point and unloading each make the loader walk through
// all libraries of the process, and a search walks through the directories. So the dictionary,
// which most calls need, is kept here if other code has it in memory, and found by its name alone
// as long as LD_LIBRARY_PATH does not change. Every other library is unloaded with its last user,
// so that a rebuilt engine is loaded again.
class Libraries {
  public:
    // Safe for concurrent use by multiple threads.

    // Adds a use of the library; null if it is not found.
    Library* load(std::string_view name) {
        std::string path = platform::environmentVariable("LD_LIBRARY_PATH").value_or(std::string());
        {
            const std::lock_guard lock(mutex_);
            if (Library* library = use(name, path)) {
                return library;
            }
        }
        // Without the lock: the start-up code of the library may load others.
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

    // Removes a use.
    void release(Library* library) {
        std::unique_ptr<Library> unused;  // unloaded after the lock is released
        const std::lock_guard lock(mutex_);
        if (--library->uses == 0 && !library->isKept) {
            unused = take(library);
        }
    }

    // Locked during a fork, so that the child does not find a lock that is never released.
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
        bool isKept = opened.wasMapped && name == keptLibrary;
        for (const auto& library : libraries_) {
            // The other user may have been a caller.
            isKept = isKept && (library->isKept || library->reference != opened.reference);
        }
        // A library found through another LD_LIBRARY_PATH is obsolete.
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
    // Never destroyed: threads may still run while the process ends.
    static Libraries& all = []() -> Libraries& {
        pthread_atfork([] { libraries().lock(); }, [] { libraries().unlock(); },
                       [] { libraries().unlock(); });
        return *std::make_unique<Libraries>().release();
    }();
    return all;
}

// Created while this code is loaded: otherwise a child forked during initialisation would deadlock
// on a thread that does not exist there.
[[maybe_unused]] const bool createdAtLoading = []() noexcept {
    try {
        libraries();
        ownFolder();
        return loaderIsSafe();
    } catch (const std::exception&) {  // created at the first use instead
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
