#include "fileaccess/library_context.h"

namespace Tarsel::Datasources::QAR {

OrvResult enumerateNode(OrvContext context, OrvNodeRecord& node, NodeSelector selector) {
    std::uint16_t count = 1;
    return OrvNodeEnumeration(context, &node, &count, static_cast<std::uint16_t>(selector));
}

}  // namespace Tarsel::Datasources::QAR
