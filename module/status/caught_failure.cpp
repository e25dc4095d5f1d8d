#include "module/status/caught_failure.h"

#include <exception>
#include <new>
#include <string>

#include "module/status/trace.h"
#include "platform/exceptions.h"

namespace pyORV3 {

namespace {

Status reportNumber(std::string_view context, Status status) {
    return status == success ? success : trace(context, failureLevel, "Caught exception", status);
}

}  // namespace

PYORV3_MEETS_THREAD_END Status reportCaught(std::string_view context) {
    try {
        throw;
    } catch (const std::string& text) {
        return trace(context, failureLevel,
                     text.empty() ? "Exception thrown with empty Error String" : text,
                     unknownException);
    } catch (unsigned int number) {
        return reportNumber(context, thrownStatus(number));
    } catch (int number) {
        return reportNumber(context, thrownStatus(static_cast<std::uint32_t>(number)));
    } catch (short number) {
        return reportNumber(context, signExtended(number));
    } catch (const std::bad_alloc&) {
        return trace(context, failureLevel, "Caught exception", memoryExhausted);
    } catch (const std::exception& exception) {
        return trace(context, failureLevel,
                     {"Caught STL Exception.  Description: ", exception.what()}, unknownException);
    } catch (platform::ThreadEnd&) {
        throw;
    } catch (...) {
        return trace(context, failureLevel, "Caught Unknown exception.", unknownException);
    }
}

}  // namespace pyORV3
