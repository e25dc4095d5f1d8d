#include "platform/exceptions.h"

#if defined(__GNUC__) && defined(__i386__)

#include "platform/platform.h"

extern "C" {

// The interface of the runtime of the compiler to the tables. A look-up of an address returns the
// table entry of its function, or null if no registered table has one.
struct FunctionBases {
    void* text;
    void* data;
    void* function;
};
// NOLINTBEGIN(*reserved-identifier,cert-dcl*,readability-identifier-naming): the names are given
const void* _Unwind_Find_FDE(void* address, FunctionBases* bases);
void __register_frame(void* tables);

// Set by the linker: the address of this module in memory.
extern const IMAGE_DOS_HEADER __ImageBase;
// NOLINTEND(*reserved-identifier,cert-dcl*,readability-identifier-naming)
}

namespace platform {

namespace {

using FindEntry = decltype(&_Unwind_Find_FDE);
using RegisterTables = decltype(&__register_frame);

constexpr const char* sharedRuntime = "libgcc_s_dw2-1.dll";

// The table register of one runtime.
struct TableRegister {
    FindEntry findEntry = nullptr;
    RegisterTables registerTables = nullptr;

    bool isPresent() const { return findEntry != nullptr && registerTables != nullptr; }

    // The entry of this module for one of its functions; null if its tables are not registered.
    const void* ownEntry() const {
        FunctionBases bases{};
        return findEntry(reinterpret_cast<void*>(&receiveExceptionsOfLoadedLibraries), &bases);
    }
};

template <typename Function>
Function entryPoint(HMODULE library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

TableRegister registerOf(HMODULE library) {
    return {entryPoint<FindEntry>(library, "_Unwind_Find_FDE"),
            entryPoint<RegisterTables>(library, "__register_frame")};
}

// Returns the start of the section of this module that contains the address and all tables.
void* sectionStart(const void* address) {
    const auto* const image = reinterpret_cast<const char*>(&__ImageBase);
    const auto* const headers =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(image + __ImageBase.e_lfanew);
    const auto offset = static_cast<DWORD>(static_cast<const char*>(address) - image);
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
    for (WORD i = 0; i < headers->FileHeader.NumberOfSections; ++i, ++section) {
        if (offset - section->VirtualAddress < section->Misc.VirtualSize) {
            return const_cast<char*>(image) + section->VirtualAddress;
        }
    }
    return nullptr;
}

// Registers with one runtime the tables of another.
void copyRegistration(const TableRegister& from, const TableRegister& to) {
    if (!from.isPresent() || !to.isPresent() || to.ownEntry() != nullptr) {
        return;
    }
    const void* const entry = from.ownEntry();
    if (void* const tables = entry == nullptr ? nullptr : sectionStart(entry)) {
        to.registerTables(tables);
    }
}

const TableRegister ownRegister{&_Unwind_Find_FDE, &__register_frame};

// If the shared runtime is already in the process, the start-up code of the module has registered
// the tables there and not with the runtime of the module.
void registerWithOwnRuntime() {
    if (const HMODULE library = GetModuleHandleA(sharedRuntime)) {
        copyRegistration(registerOf(library), ownRegister);
    }
}

// The runtime of the module also takes part in catching exceptions of the shared one. It
// initialises for that when it catches its first own exception.
bool catchOwnException() {
    try {
        throw 0;
    } catch (int) {
        return true;
    }
}

[[maybe_unused]] const bool isReady = [] {
    registerWithOwnRuntime();
    return catchOwnException();
}();

}  // namespace

void receiveExceptionsOfLoadedLibraries() {
    HMODULE library = nullptr;
    // The shared runtime and the registration stay until the process ends.
    if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN, sharedRuntime, &library) != 0) {
        copyRegistration(ownRegister, registerOf(library));
    }
}

}  // namespace platform

#else

void platform::receiveExceptionsOfLoadedLibraries() {}

#endif
