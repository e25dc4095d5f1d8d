// The call frame: the one pattern by which Python calls every method of the module.
//
// A method is a plain function. Its parameters are what its format parses, in order; behind them,
// where the method has a value to give, a PythonReference to put it in. It returns its Outcome.
// The frame parses the argument tuple, calls the method (inside the guarded region where the
// method can meet a thrown value) and hands Python
//   - the mapped status alone, for a method without a value;
//   - the tuple (mapped status, value), for a method with one; a method that failed without a
//     value gives its value on failure;
//   - the integer itself, for a method that returns std::int32_t.
// Arguments that do not match the format give the status badArguments without calling the method.
// Every failure is reported to the diagnostics sink with the method's name, the step that failed
// and the status before the mapping.
//
// A method whose value cannot be made leaves its place empty and Python's error, that memory is
// exhausted, pending: the frame then returns null, as where it cannot make the tuple. Otherwise no
// Python error is pending when it returns.
#ifndef PYORV3_MODULE_BINDING_CALL_FRAME_H
#define PYORV3_MODULE_BINDING_CALL_FRAME_H

#include <cstdint>
#include <tuple>
#include <type_traits>

#include "module/binding/argument_format.h"
#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// A new int.
PyObject* integerObject(std::int32_t integer);

// Reports a failure of the method and maps its status: a new int, seen as signed 32-bit. Null,
// with Python's error set, only when memory is exhausted.
PyObject* bareResult(const char* method, Outcome outcome);

// The same in the tuple, of two items, with the value, which after a failure may be empty: the
// value on failure takes its place unless a Python error is pending. Null where there is no value.
PyObject* tupleResult(PythonReference tuple, const char* method, Outcome outcome,
                      PythonReference value, PythonReference (*valueOnFailure)());

// Values on failure.
PythonReference zero();         // the int 0
PythonReference tupleOfZero();  // the tuple (0,)
PythonReference emptyText();    // the str ''

// The text that goes with the bad arguments of a method that has none of its own.
inline constexpr FixedText argumentsFailed =
    "PyArg_Parse() Failed. Check number of or type of arguments passed.";

// Whether a method's work runs inside the guarded region.
enum class Guard : bool { none, exceptions };

namespace detail {

// Splits a method's parameters into the parsed ones and the place of its value.
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

// Parses the arguments into the tuple of their values; an empty format looks at nothing.
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

// Runs the work where the arguments match.
template <Guard guard, FixedText argumentText, typename Work>
Outcome run(bool matches, Work work) {
    if (!matches) {
        return {badArguments, argumentText.text.data()};
    }
    return guard == Guard::exceptions ? guardedRegion(work) : work();
}

// What Python calls: the frame around one method.
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
        // Made before the work, whose result nobody would see without it.
        PythonReference tuple(PyTuple_New(2));
        if (!tuple) {
            return nullptr;
        }
        // Outside the guarded region: a value that was made before something was thrown stays.
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

// The method table's row of a method that meets no thrown value.
template <FixedText name, FixedText format, auto function, auto valueOnFailure = zero,
          FixedText argumentText = argumentsFailed>
constexpr PyMethodDef method() {
    return detail::row<name>(
        detail::callMethod<name, format, function, Guard::none, valueOnFailure, argumentText>);
}

// The method table's row of a method that runs in the guarded region.
template <FixedText name, FixedText format, auto function, auto valueOnFailure = zero,
          FixedText argumentText = argumentsFailed>
constexpr PyMethodDef guardedMethod() {
    return detail::row<name>(detail::callMethod<name, format, function, Guard::exceptions,
                                                valueOnFailure, argumentText>);
}

}  // namespace pyORV3

#endif
