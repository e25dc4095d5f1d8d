#include "platform/posix/libraries.h"

#include <dlfcn.h>
#include <link.h>
#include <strings.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/posix/environment.h"
#include "platform/posix/errors.h"

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

// Goes straight to the loader, which needs no look at the file for a library that it has mapped.
void* open(const std::string& path) {
    return path.size() < PATH_MAX ? dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
}

void* openInLibraryPath(const std::string& file) {
    const std::string folders =
        platform::environmentVariable("LD_LIBRARY_PATH").value_or(std::string());
    for (std::string_view rest = folders; !rest.empty();) {
        const auto length = std::min(rest.find_first_of(":;"), rest.size());
        const std::string_view folder = rest.substr(0, length);
        rest.remove_prefix(std::min(length + 1, rest.size()));
        if (!folder.starts_with('/')) {
            continue;
        }
        if (void* library = open(std::string(folder) + "/" + file)) {
            return library;
        }
    }
    return nullptr;
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

void* openInSystemFolders(const std::string& file) {
    static const bool safe = loaderSearchesAbsoluteFolders();
    return safe ? open(file) : nullptr;
}

void* find(const std::string& file) {
    if (file.find('/') != std::string::npos) {
        return open(file);
    }
    void* library = openInLibraryPath(file);
    if (library == nullptr && !ownFolder().empty()) {
        library = open(ownFolder() + file);
    }
    return library != nullptr ? library : openInSystemFolders(file);
}

// The loader looks a name up in the libraries that a library needs as well; Windows does not.
bool isDefinedIn(HMODULE library, const void* address) {
    const link_map* expected = nullptr;
    Dl_info symbol{};
    void* actual = nullptr;
    return dlinfo(library, RTLD_DI_LINKMAP, &expected) == 0 &&
           dladdr1(address, &symbol, &actual, RTLD_DL_LINKMAP) != 0 && actual == expected;
}

}  // namespace

HMODULE LoadLibraryA(LPCSTR name) {
    void* library = name != nullptr && *name != '\0' ? find(nativeName(name)) : nullptr;
    if (library == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
    }
    return static_cast<HMODULE>(library);
}

FARPROC GetProcAddress(HMODULE library, LPCSTR name) {
    void* address = library != nullptr && name != nullptr ? dlsym(library, name) : nullptr;
    if (address == nullptr || !isDefinedIn(library, address)) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(address);
}

BOOL FreeLibrary(HMODULE library) {
    if (library == nullptr || dlclose(library) != 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}
