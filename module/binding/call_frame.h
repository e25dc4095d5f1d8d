// The call frame: all methods of the module are called from Python through it.
//
// A method is a plain function. Its parameters are the values that its format parses, in order,
// followed by a PythonReference for its value if it has one. It returns an Outcome. The frame
// parses the argument tuple, calls the method (inside the guarded region if the method can throw)
// and returns to Python
// - the mapped status, for a method without a value;
// - the tuple (mapped status, value), for a method with one, or its value on failure;
// - the integer, for a method that returns std::int32_t.
// Arguments that do not match the format give the status badArguments without a call. Each failure
// is reported to the diagnostics sink with the name of the method, the failed step and the status
// before the mapping.
//
// If there is no memory for the value, the method leaves it empty with MemoryError pending, and the
// frame returns null, as it does if it cannot create the tuple. Otherwise no Python error is
// pending.
#ifndef PYORV3_MODULE_BINDING_CALL_FRAME_H
#define PYORV3_MODULE_BINDING_CALL_FRAME_H

#include <cstdint>
#include <tuple>
#include <type_traits>

#include "module/binding/argument_format.h"
#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// Returns a new int.
PyObject* integerObject(std::int32_t integer);

// Reports a failure of the method and returns its mapped status as a new int, signed 32-bit. Null
// with a Python error only if memory is exhausted.
PyObject* bareResult(const char* method, Outcome outcome);

// Returns the tuple (mapped status, value). If the value is empty after a failure, uses the value
// on failure, unless a Python error is pending. Null if both are missing.
PyObject* tupleResult(PythonReference tuple, const char* method, Outcome outcome,
                      PythonReference value, PythonReference (*valueOnFailure)());

// Values on failure.
PythonReference zero();         // the int 0
PythonReference tupleOfZero();  // the tuple (0,)
PythonReference emptyText();    // the str ''

// Message for bad arguments of a method without a message of its own.
inline constexpr FixedText argumentsFailed =
    "PyArg_Parse() Failed. Check number of or type of arguments passed.";

// Selects if a method runs inside the guarded region.
enum class Guard : bool { none, exceptions };

namespace detail {

// Splits the parameters of a method into the parsed ones and its value.
template <typename Function>
struct Signature;

template <typename Result, typename... Parameters>
struct Signature<Result (*)(Parameters...)> {
    static constexpr bool hasValue = (std::is_same_v<Parameters, PythonReference&> || ...);
    static constexpr bool isInteger = std::is_same_v<Result, std::int32_t>;
    static constexpr std::size_t parsedCount = sizeof...(Parameters) - (hasValue ? 1 : 0);

    template <std::size_t... indices>
    static auto parsedTypes(std::index_sequence<indices...>)
        -> std::tuple<std::tuple_element_t<indices, std::tuple<Parameters...>>...>;
    using Parsed = decltype(parsedTypes(std::make_index_sequence<parsedCount>()));
};

// Parses the arguments into a tuple of values; an empty format accepts all arguments.
template <FixedText format, typename Parsed>
bool parse(PyObject* arguments, Parsed& parsed) {
    if constexpr (format.view().empty()) {
        static_assert(std::tuple_size_v<Parsed> == 0);
        return true;
    } else {
        return std::apply(
            [arguments](auto&... outputs) { return parseArguments<format>(arguments, outputs...); },
            parsed);
    }
}

// Calls the method if the arguments match.
template <Guard guard, FixedText argumentText, typename Work>
Outcome run(bool matches, Work work) {
    if (!matches) {
        return {badArguments, argumentText.text.data()};
    }
    return guard == Guard::exceptions ? guardedRegion(work) : work();
}

// The function that Python calls: the frame around one method.
template <FixedText name, FixedText format, auto function, Guard guard, auto valueOnFailure,
          FixedText argumentText>
PyObject* callMethod(PyObject* /*module*/, PyObject* arguments) {
    using MethodSignature = Signature<decltype(function)>;
    static constexpr const char* method = name.text.data();
    typename MethodSignature::Parsed parsed{};
    const bool matches = parse<format>(arguments, parsed);
    if constexpr (MethodSignature::isInteger) {
        return matches ? integerObject(std::apply(function, parsed))
                       : bareResult(method, {badArguments, argumentText.text.data()});
    } else if constexpr (MethodSignature::hasValue) {
        // Allocate the tuple first: if that fails, nothing must have been done.
        PythonReference tuple(PyTuple_New(2));
        if (!tuple) {
            return nullptr;
        }
        // Outside the guarded region, so that a value created before an exception stays.
        PythonReference value;
        const Outcome outcome = run<guard, argumentText>(
            matches, [&] { return std::apply(function, std::tuple_cat(parsed, std::tie(value))); });
        return tupleResult(std::move(tuple), method, outcome, std::move(value), valueOnFailure);
    } else {
        return bareResult(method, run<guard, argumentText>(
                                      matches, [&] { return std::apply(function, parsed); }));
    }
}

template <FixedText name>
constexpr PyMethodDef row(PyCFunction function) {
    return {name.text.data(), function, METH_VARARGS, nullptr};
}

}  // namespace detail

// Row of the method table for a method that does not throw.
template <FixedText name, FixedText format, auto function, auto valueOnFailure = zero,
          FixedText argumentText = argumentsFailed>
constexpr PyMethodDef method() {
    return detail::row<name>(
        detail::callMethod<name, format, function, Guard::none, valueOnFailure, argumentText>);
}

// Row of the method table for a method that runs in the guarded region.
template <FixedText name, FixedText format, auto function, auto valueOnFailure = zero,
          FixedText argumentText = argumentsFailed>
constexpr PyMethodDef guardedMethod() {
    return detail::row<name>(detail::callMethod<name, format, function, Guard::exceptions,
                                                valueOnFailure, argumentText>);
}

}  // namespace pyORV3

#endif
