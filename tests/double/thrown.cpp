#include "tests/double/thrown.h"

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>

namespace recording {
namespace {

struct Unexpected {};

template <typename Integer>
void raiseInteger(std::int64_t value) {
    throw static_cast<Integer>(value);
}

struct Kind {
    std::string_view name;
    void (*raise)(std::int64_t value);
};

constexpr std::array<Kind, 9> kinds{{
    {"short", raiseInteger<short>},
    {"int", raiseInteger<int>},
    {"long", raiseInteger<long>},
    {"unsigned int", raiseInteger<unsigned int>},
    {"unsigned long", raiseInteger<unsigned long>},
    {"bad_alloc", [](std::int64_t) { throw std::bad_alloc(); }},
    {"runtime_error", [](std::int64_t) { throw std::runtime_error("scripted"); }},
    {"text", [](std::int64_t) { throw "scripted"; }},
    {"struct", [](std::int64_t) { throw Unexpected(); }},
}};

}  // namespace

bool isKnown(std::string_view kind) {
    return std::ranges::find(kinds, kind, &Kind::name) != kinds.end();
}

void raise(std::string_view kind, std::int64_t value) {
    const auto* const found = std::ranges::find(kinds, kind, &Kind::name);
    if (found != kinds.end()) {
        found->raise(value);
    }
    throw std::logic_error("unknown kind of thrown value");
}

}  // namespace recording
