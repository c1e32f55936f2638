#include "AsPath/AsSegmentType.h"

#include <string>

namespace Routing::Bgp {

std::string_view AsSegmentType::segmentDelimiterStrep(AsSegmentType type, bool opening) noexcept {
    switch (type.value()) {
    case asSet_:
        return opening ? "{" : "}";
    case asSequence_:
        return "";
    case asConfedSequence_:
        return opening ? "(" : ")";
    case asConfedSet_:
        return opening ? "[" : "]";
    default:
        return "?";
    }
}

std::string AsSegmentType::toString() const {
    switch (code_) {
    case asSet_:
        return "AS_SET";
    case asSequence_:
        return "AS_SEQUENCE";
    case asConfedSequence_:
        return "AS_CONFED_SEQUENCE";
    case asConfedSet_:
        return "AS_CONFED_SET";
    default:
        return "AS_SEGMENT_TYPE_" + std::to_string(code_);
    }
}

} // namespace Routing::Bgp
