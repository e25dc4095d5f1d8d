#include "module/ground/caught_failure.h"

#include <exception>
#include <new>
#include <string>

#include "module/ground/trace.h"

namespace pyORV3 {

namespace {

Status report(std::string_view context, std::string_view message, Status status) {
    trace(context, failureLevel, message, status);
    return status;
}

Status reportNumber(std::string_view context, Status status) {
    return status == success ? success : report(context, "Caught exception", status);
}

}  // namespace

Status reportCaught(std::string_view context) {
    try {
        throw;
    } catch (const std::string& text) {
        return report(context, text.empty() ? "Exception thrown with empty Error String" : text,
                      unknownException);
    } catch (unsigned int number) {
        return reportNumber(context, number);
    } catch (int number) {
        return reportNumber(context, static_cast<Status>(number));
    } catch (short number) {
        return reportNumber(context, signExtended(number));
    } catch (const std::bad_alloc&) {
        return report(context, "Caught exception", memoryExhausted);
    } catch (const std::exception& exception) {
        return report(context,
                      std::string("Caught STL Exception.  Description: ") + exception.what(),
                      unknownException);
    } catch (...) {
        return report(context, "Caught Unknown exception.", unknownException);
    }
}

}  // namespace pyORV3
