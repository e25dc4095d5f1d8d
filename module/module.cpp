// The Python module: its definition and the table of its methods.
#include <exception>

#include "environment/suite_environment.h"
#include "module/binding/call_frame.h"
#include "module/block_methods.h"
#include "module/engine_methods.h"
#include "module/handle_methods.h"
#include "module/interface/orv.h"
#include "module/spectrum_methods.h"
#include "module/status/trace.h"
#include "parameters/parameter_methods.h"

namespace pyORV3 {

namespace {

constexpr FixedText getParameterArguments =
    "PyArg_Parse() Failed. Check number of or type of arguments passed.  This method's argument "
    "list should be (long, long, long, long)";
constexpr FixedText setParameterArguments =
    "PyArg_Parse() Failed. Check number of or type of arguments passed. This method's argument "
    "list should be (long, long, object, long, long) arguments";
constexpr FixedText metadataArguments =
    "getParameterMetaData:PyArg_Parse() Failed. Check number of or type of arguments passed. This "
    "method's argument list should be (int32_t, int32_t, string)";
constexpr FixedText sequenceArguments =
    "PyArg_Parse() Failed. Check number of or type of arguments passed. This method's argument "
    "list should be (long, long, long)";

// In slot order, in which scripts see the methods when they list the module.
PyMethodDef methods[] = {
    method<"open", "(slls)", open>(),
    method<"close", "(ll)", close>(),
    method<"getIsDirty", "(l)", getIsDirty>(),
    method<"setIsDirty", "(l)", setIsDirty>(),
    method<"getIsOpen", "(l)", getIsOpen>(),
    method<"flush", "(l)", flush>(),
    method<"createBlock", "(lll)", createBlock>(),
    method<"deleteBlock", "(ll)", deleteBlock>(),
    method<"delete", "(llll)", deleteOne>(),
    method<"deleteLevel", "(ll)", deleteLevel>(),
    method<"insert", "(llll)", insert>(),
    method<"count", "(lll)", count>(),
    method<"copyTo", "(lll)", copyTo>(),
    method<"moveRecordsTo", "(lllll)", moveRecordsTo>(),
    guardedMethod<"getParameterMetaData", "(lis)", getParameterMetaData, zero, metadataArguments>(),
    guardedMethod<"findNuclideByEnergy", "(lffl)", findNuclideByEnergy>(),
    guardedMethod<"findNuclideByName", "(lsl)", findNuclideByName>(),
    guardedMethod<"getParameter", "(llll)", getParameter, zero, getParameterArguments>(),
    guardedMethod<"setParameter", "(llOll)", setParameter, zero, setParameterArguments>(),
    guardedMethod<"getSpectrum", "(lll)", getSpectrum, tupleOfZero>(),
    guardedMethod<"setSpectrum", "(lOll)", setSpectrum>(),
    guardedMethod<"executeNativeEngine", "(ssll)", executeNativeEngine>(),
    guardedMethod<"enumerateDefinitions", "", enumerateDefinitions, emptyText>(),
    method<"control", "(lll)", control>(),
    method<"getStatus", "(l)", getStatus>(),
    guardedMethod<"copyAnalysisSequenceTo", "(ll)", copyAnalysisSequenceTo, zero,
                  sequenceArguments>(),
    method<"reverify", "(l)", reverify>(),
    {},
};
// clang-format on

PyModuleDef moduleDefinition = {
    PyModuleDef_HEAD_INIT, "pyORV3", nullptr, -1, methods, nullptr, nullptr, nullptr, nullptr,
};

// Starts writing reports to the file in the environment variable PYORV3_TRACE.
void startTrace() noexcept {
    try {
        if (const auto fileName = processVariable("PYORV3_TRACE")) {
            traceToFile(fileName->c_str());
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): without memory no reports
    }
}

}  // namespace

}  // namespace pyORV3

// Not PyMODINIT_FUNC: in the headers of Python 3.6 to 3.8 its visibility follows the options of the
// compiler, which hide everything.
extern "C" ORV_EXPORT PyObject* PyInit_pyORV3();

extern "C" PyObject* PyInit_pyORV3() {
    pyORV3::startTrace();
    return PyModule_Create2(&pyORV3::moduleDefinition, 3);
}
