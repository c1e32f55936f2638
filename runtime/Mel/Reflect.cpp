#include "Mel/Reflect.h"

namespace Mel {

void formatValueBegin(std::ostream& os, std::string_view typeName) {
    os << "Value('" << typeName << "', ** {";
}

void formatFieldName(std::ostream& os, std::string_view name, bool first) {
    if (!first) os << ", ";
    os << '\'' << name << "': ";
}

void formatValueEnd(std::ostream& os) {
    os << "})";
}

void formatBytes(std::ostream& os, const Bytes& b) {
    os << '\'' << b.toHex() << '\'';
}

void parseBytes(ValueParser& p, Bytes& b) {
    p.skipBlanks();
    size_t at = p.offset();
    std::string hex = p.parseQuoted();
    try {
        b = Bytes::fromHex(hex);
    } catch (const ParseException& e) {
        p.failAt(at, std::string("expected a quoted hex string: ") + e.what());
    }
}

namespace ReflectDetail {

size_t fieldIndex(std::span<const std::string_view> names, std::string_view name) noexcept {
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == name) return i;
    }
    return noField;
}

void throwNoField(std::string_view typeName, std::string_view name) {
    throw NotSupportedException(std::string(typeName) + " has no field '" + std::string(name) +
                                "'");
}

void throwReadOnly(std::string_view typeName, std::string_view name) {
    throw NotSupportedException("field '" + std::string(name) + "' of " + std::string(typeName) +
                                " is output only");
}

void failUnknownField(ValueParser& p, size_t at, std::string_view name, std::string_view typeName) {
    p.failAt(at, "unknown field '" + std::string(name) + "' of " + std::string(typeName));
}

void failFieldTwice(ValueParser& p, size_t at, std::string_view name) {
    p.failAt(at, "field '" + std::string(name) + "' given twice");
}

void failEnumerator(ValueParser& p, size_t at, std::string_view name) {
    p.failAt(at, "unknown enumerator '" + std::string(name) + "'");
}

void failArraySize(ValueParser& p, size_t at, size_t expected) {
    p.failAt(at, "expected a list of exactly " + std::to_string(expected) + " elements");
}

void throwNotReadable(ValueParser& p) {
    p.skipBlanks();
    throw NotSupportedException("at offset " + std::to_string(p.offset()) +
                                ": this type prints only; reading it back needs a melParse hook");
}

void failFromString(ValueParser& p, size_t at, const char* why) {
    p.failAt(at, std::string("not a valid value: ") + why);
}

} // namespace ReflectDetail

} // namespace Mel
