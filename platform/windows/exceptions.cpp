#include "platform/exceptions.h"

#if defined(__GNUC__) && defined(__i386__)

#include "platform/platform.h"

extern "C" {

// The interface of the compiler's runtime to the tables. What is found for an address is the table
// entry of its function, or null where no registered table has one.
struct FunctionBases {
    void* text;
    void* data;
    void* function;
};
// NOLINTBEGIN(*reserved-identifier,cert-dcl*,readability-identifier-naming): the names are given
const void* _Unwind_Find_FDE(void* address, FunctionBases* bases);
void __register_frame(void* tables);

// Set by the linker: where this module lies in memory.
extern const IMAGE_DOS_HEADER __ImageBase;
// NOLINTEND(*reserved-identifier,cert-dcl*,readability-identifier-naming)
}

namespace platform {

namespace {

using FindEntry = decltype(&_Unwind_Find_FDE);
using RegisterTables = decltype(&__register_frame);

constexpr const char* sharedRuntime = "libgcc_s_dw2-1.dll";

// One runtime's register of tables.
struct TableRegister {
    FindEntry findEntry = nullptr;
    RegisterTables registerTables = nullptr;

    bool isPresent() const { return findEntry != nullptr && registerTables != nullptr; }

    // The module's own entry for one of its functions; null while its tables are not registered.
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

// The start of the section of this module that holds the address: all its tables lie in one.
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

// Registers with one runtime what another one knows.
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

// Where the shared runtime is in the process already, the start-up code of the module has
// registered the tables there and not with the module's own runtime.
void registerWithOwnRuntime() {
    if (const HMODULE library = GetModuleHandleA(sharedRuntime)) {
        copyRegistration(registerOf(library), ownRegister);
    }
}

// The module's own runtime takes part in the catching of what comes through the shared one, and
// makes itself ready for that when it catches an exception of its own for the first time.
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
    // The shared runtime stays in the process from now on, and the registration with it.
    if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN, sharedRuntime, &library) != 0) {
        copyRegistration(ownRegister, registerOf(library));
    }
}

}  // namespace platform

#else

void platform::receiveExceptionsOfLoadedLibraries() {}

#endif
