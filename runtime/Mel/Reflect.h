// Generic string form, parsing back and field access for every value type (Mel/ValueType.h).
//   std::string s = Mel::valueToStrep(r);  // Value('Routing::Bgp::SrgbRange', ** {'base': 1})
//   auto back = Mel::valueFromStrep<SrgbRange>(s);  Mel::fieldSet(back, "base", "17000");
//
// Text form of a field, by its type (first match wins):
//   - a type declared with MEL_VALUE_TYPE: its own Value('...', ** {...}) form, recursively;
//   - a type with hooks found by argument-dependent lookup, declared beside the type:
//       void melFormat(std::ostream&, const X&);   void melParse(Mel::ValueParser&, X&);
//     A hook may also be given for a pointer type such as Mel::PtrConst<X>; hooks use
//     Mel::valueFormat / Mel::valueParse for their parts. Hooks match like any overload, so a
//     hook for a class also serves types implicitly convertible to it;
//   - bool: True / False; other integers (char types too): decimal;
//   - enums described with BOOST_DESCRIBE_ENUM: the enumerator's name quoted ('ipsec'), or the
//     number when the value has no name; parsing takes either. Other enums: the number;
//   - std::string: single-quoted with backslash escapes;
//   - Mel::Bytes: its lower-case hex digits, quoted ('c00804'; empty is '');
//   - std::optional, Mel::Ptr and PtrConst: None when empty, else the held value. A pointer reads
//     back only when its class derives from Mel::Object and is readable itself (a new object is
//     made); any other non-None pointer needs a melParse hook;
//   - std::array, C arrays, std::vector, boost::container vectors (anything with push_back):
//     [a, b];
//   - a type with toString() and a static fromString(std::string_view) (the Orvnet addresses, AS
//     numbers): toString() quoted, read back through fromString;
//   - as a last resort, a type with a toStrep() member: that text, quoted. It only prints: reading
//     it back throws Mel::NotSupportedException unless the type has a melParse hook.
// Parsing never asserts: malformed text, unknown field names and a type name other than the
// expected one throw Mel::ParseException ("at offset N: expected ..."); omitted fields keep the
// value they had (their defaults, for valueFromStrep).
#pragma once

#include "Mel/Bytes.h"
#include "Mel/Exception.h"
#include "Mel/Object.h"
#include "Mel/Ptr.h"
#include "Mel/ValueParser.h"
#include "Mel/ValueType.h"

#include <boost/describe/enumerators.hpp>
#include <boost/describe/members.hpp>
#include <boost/mp11/algorithm.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <optional>
#include <ostream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Mel {

// Writes / reads one value of any supported type (the hooks' entry points for nested values).
template <class T>
void valueFormat(std::ostream& os, const T& v);
template <class T>
void valueParse(ValueParser& p, T& v);

// Pieces of the Value form, for hooks that write one by hand:
//   formatValueBegin(os, "A::B"); formatFieldName(os, "x", true); os << 1; formatValueEnd(os);
// gives Value('A::B', ** {'x': 1}).
void formatValueBegin(std::ostream& os, std::string_view typeName);
void formatFieldName(std::ostream& os, std::string_view name, bool first);
void formatValueEnd(std::ostream& os);
void formatBytes(std::ostream& os, const Bytes& b);
void parseBytes(ValueParser& p, Bytes& b);

namespace ReflectDetail {

namespace bd = boost::describe;
namespace mp = boost::mp11;

// Block ordinary lookup, so that only hooks found by argument-dependent lookup are seen.
void melFormat() = delete;
void melParse() = delete;

template <class T>
concept HasFormatHook = requires(std::ostream& os, const T& v) {
    melFormat(os, v);
};
template <class T>
concept HasParseHook = requires(ValueParser& p, T& v) {
    melParse(p, v);
};
template <class T>
concept Described = std::is_class_v<T> && requires {
    melValueTypeName(static_cast<T**>(nullptr));
};
template <class T>
concept DescribedEnum = std::is_enum_v<T> && bd::has_describe_enumerators<T>::value;
template <class T>
concept HasToStrep = requires(const T& v) {
    { v.toStrep() } -> std::convertible_to<std::string>;
};
template <class T>
concept StringConvertible = requires(const T& v, std::string_view s) {
    { v.toString() } -> std::convertible_to<std::string>;
    { T::fromString(s) } -> std::convertible_to<T>;
};
template <class T>
concept GrowableList = requires(T& c, const T& cc, typename T::value_type x) {
    cc.begin();
    cc.end();
    c.clear();
    c.push_back(std::move(x));
};

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {};
template <class T>
struct IsStdArray : std::false_type {};
template <class T, size_t N>
struct IsStdArray<std::array<T, N>> : std::true_type {};
template <class T>
struct FixedSize : std::tuple_size<T> {};
template <class T, size_t N>
struct FixedSize<T[N]> : std::integral_constant<size_t, N> {};
template <class T>
inline constexpr bool dependentFalse = false;

template <Described T>
constexpr const char* typeNameOf() noexcept {
    return melValueTypeName(static_cast<T**>(nullptr));
}

// ---- The description of a class: its fields, in order, and their kinds.

enum class FieldKind { data, property, derived, setter, invalid };

template <class T>
using Members =
    bd::describe_members<T, bd::mod_any_access | bd::mod_any_member | bd::mod_inherited>;

// setter == getter + "Is"
constexpr bool isSetterName(const char* setter, const char* getter) noexcept {
    while (*getter) {
        if (*setter++ != *getter++) return false;
    }
    return setter[0] == 'I' && setter[1] == 's' && setter[2] == '\0';
}

constexpr std::string_view printedName(std::string_view n) noexcept {
    if (!n.empty() && n.back() == '_') n.remove_suffix(1);
    return n;
}

template <class L>
struct RawNames;
template <template <class...> class L, class... D>
struct RawNames<L<D...>> {
    static constexpr std::array<const char*, sizeof...(D)> names{D::name...};
};

template <class T, class D>
constexpr FieldKind fieldKind() noexcept {
    using P = std::remove_cv_t<decltype(D::pointer)>;
    constexpr auto& names = RawNames<Members<T>>::names;
    if constexpr (std::is_member_object_pointer_v<P>) {
        return FieldKind::data;
    } else if constexpr (std::is_member_function_pointer_v<P>) {
        if constexpr (std::is_invocable_v<P, const T&>) {
            if constexpr (!std::is_void_v<std::invoke_result_t<P, const T&>>) {
                for (const char* n : names) {
                    if (isSetterName(n, D::name)) return FieldKind::property;
                }
                return FieldKind::derived;
            }
        }
        for (const char* n : names) {
            if (isSetterName(D::name, n)) return FieldKind::setter;
        }
        return FieldKind::invalid;
    } else {
        return FieldKind::invalid;
    }
}

template <class T>
struct IsFieldQ {
    template <class D>
    using fn = std::bool_constant<fieldKind<T, D>() != FieldKind::setter &&
                                  fieldKind<T, D>() != FieldKind::invalid>;
};
template <class T>
struct IsInvalidQ {
    template <class D>
    using fn = std::bool_constant<fieldKind<T, D>() == FieldKind::invalid>;
};
template <class D>
struct IsSetterOfQ {
    template <class E>
    using fn = std::bool_constant<isSetterName(E::name, D::name)>;
};

template <class L>
struct PrintedNames;
template <template <class...> class L, class... D>
struct PrintedNames<L<D...>> {
    static constexpr std::array<std::string_view, sizeof...(D)> names{printedName(D::name)...};
};

template <size_t N>
constexpr bool namesUnique(const std::array<std::string_view, N>& names) noexcept {
    for (size_t i = 0; i < N; ++i) {
        for (size_t j = i + 1; j < N; ++j) {
            if (names[i] == names[j]) return false;
        }
    }
    return true;
}

template <class T>
struct Description {
    static_assert(mp::mp_none_of_q<Members<T>, IsInvalidQ<T>>::value,
                  "MEL_VALUE_TYPE lists something that is neither a non-static data member, a "
                  "const getter x() nor the setter xIs of a listed getter");
    using Fields = mp::mp_copy_if_q<Members<T>, IsFieldQ<T>>;
    static constexpr size_t count = mp::mp_size<Fields>::value;
    static constexpr const std::array<std::string_view, count>& names = PrintedNames<Fields>::names;
    static_assert(namesUnique(names), "MEL_VALUE_TYPE: two fields print under the same name");
};

template <class T, class D>
using SetterOf = mp::mp_at<Members<T>, mp::mp_find_if_q<Members<T>, IsSetterOfQ<D>>>;

inline constexpr size_t noField = size_t(-1);
size_t fieldIndex(std::span<const std::string_view> names, std::string_view name) noexcept;
[[noreturn]] void throwNoField(std::string_view typeName, std::string_view name);
[[noreturn]] void throwReadOnly(std::string_view typeName, std::string_view name);
[[noreturn]] void failUnknownField(ValueParser& p, size_t at, std::string_view name,
                                   std::string_view typeName);
[[noreturn]] void failFieldTwice(ValueParser& p, size_t at, std::string_view name);
[[noreturn]] void failEnumerator(ValueParser& p, size_t at, std::string_view name);
[[noreturn]] void failArraySize(ValueParser& p, size_t at, size_t expected);
[[noreturn]] void throwNotReadable(ValueParser& p);
[[noreturn]] void failFromString(ValueParser& p, size_t at, const char* why);

template <StringConvertible T>
void parseFromString(ValueParser& p, T& v) {
    p.skipBlanks();
    size_t at = p.offset();
    std::string text = p.parseQuoted();
    try {
        v = T::fromString(text);
    } catch (const Exception& e) {
        failFromString(p, at, e.what());
    }
}

// ---- Per-field access.

template <class T, class D>
void formatFieldValue(std::ostream& os, const T& v) {
    if constexpr (fieldKind<T, D>() == FieldKind::data) {
        Mel::valueFormat(os, v.*D::pointer);
    } else {
        Mel::valueFormat(os, std::invoke(D::pointer, v));
    }
}

// Parses the text of one field into v, or into a temporary that the setter takes. With `whole`, the
// text must end after the value, and a data member is left unchanged when parsing fails.
template <class T, class D>
void parseFieldValue(ValueParser& p, T& v, bool whole) {
    constexpr FieldKind kind = fieldKind<T, D>();
    if constexpr (kind == FieldKind::data) {
        auto& member = v.*D::pointer;
        using M = std::remove_reference_t<decltype(member)>;
        if constexpr (std::is_copy_constructible_v<M> && std::is_move_assignable_v<M>) {
            if (whole) {
                M tmp = member;
                Mel::valueParse(p, tmp);
                p.expectEnd();
                member = std::move(tmp);
                return;
            }
        }
        Mel::valueParse(p, member);
        if (whole) p.expectEnd();
    } else if constexpr (kind == FieldKind::property) {
        using V = std::decay_t<std::invoke_result_t<decltype(D::pointer), const T&>>;
        using S = SetterOf<T, D>;
        static_assert(std::is_invocable_v<decltype(S::pointer), T&, V&&>,
                      "MEL_VALUE_TYPE: the setter xIs does not take the getter's value");
        V tmp = std::invoke(D::pointer, std::as_const(v));
        Mel::valueParse(p, tmp);
        if (whole) p.expectEnd();
        std::invoke(S::pointer, v, std::move(tmp));
    } else {
        p.skipValue();
        if (whole) p.expectEnd();
    }
}

template <class T>
void formatDescribed(std::ostream& os, const T& v) {
    formatValueBegin(os, typeNameOf<T>());
    bool first = true;
    mp::mp_for_each<typename Description<T>::Fields>([&](auto d) {
        using D = decltype(d);
        formatFieldName(os, printedName(D::name), first);
        first = false;
        formatFieldValue<T, D>(os, v);
    });
    formatValueEnd(os);
}

template <class T>
void parseDescribed(ValueParser& p, T& v) {
    using Desc = Description<T>;
    p.valueBegin(typeNameOf<T>());
    std::array<bool, Desc::count> seen{};
    std::string name;
    size_t at = 0;
    for (bool first = true; p.fieldNext(first, name, &at); first = false) {
        size_t index = fieldIndex(Desc::names, name);
        if (index == noField) failUnknownField(p, at, name, typeNameOf<T>());
        if constexpr (Desc::count > 0) {
            if (seen[index]) failFieldTwice(p, at, name);
            seen[index] = true;
            mp::mp_with_index<Desc::count>(index, [&](auto i) {
                parseFieldValue<T, mp::mp_at_c<typename Desc::Fields, i>>(p, v, false);
            });
        }
    }
}

template <class T>
void parsePtr(ValueParser& p, Ptr<T>& v) {
    if (p.consume("None")) {
        v = nullptr;
        return;
    }
    using U = std::remove_const_t<T>;
    if constexpr (std::is_base_of_v<Object, U> && std::is_default_constructible_v<U> &&
                  (Described<U> || HasParseHook<U>)) {
        Ptr<U> obj(new U());
        Mel::valueParse(p, *obj);
        v = std::move(obj);
    } else {
        throwNotReadable(p);
    }
}

template <DescribedEnum E>
const char* enumeratorName(E e) noexcept {
    const char* r = nullptr;
    mp::mp_for_each<bd::describe_enumerators<E>>([&](auto d) {
        if (!r && e == d.value) r = d.name;
    });
    return r;
}

template <DescribedEnum E>
bool enumeratorFromName(std::string_view name, E& e) noexcept {
    bool found = false;
    mp::mp_for_each<bd::describe_enumerators<E>>([&](auto d) {
        if (!found && name == d.name) {
            found = true;
            e = d.value;
        }
    });
    return found;
}

template <class T>
void callFormatHook(std::ostream& os, const T& v) {
    melFormat(os, v);
}
template <class T>
void callParseHook(ValueParser& p, T& v) {
    melParse(p, v);
}

} // namespace ReflectDetail

// ---- The generic formatter and parser.

template <class T>
void valueFormat(std::ostream& os, const T& v) {
    namespace D = ReflectDetail;
    if constexpr (D::Described<T>) {
        D::formatDescribed(os, v);
    } else if constexpr (D::HasFormatHook<T>) {
        D::callFormatHook(os, v);
    } else if constexpr (std::is_same_v<T, bool>) {
        os << (v ? "True" : "False");
    } else if constexpr (std::is_integral_v<T>) {
        if constexpr (std::is_signed_v<T>) {
            os << int64_t(v);
        } else {
            os << uint64_t(v);
        }
    } else if constexpr (std::is_enum_v<T>) {
        const char* name = nullptr;
        if constexpr (D::DescribedEnum<T>) name = D::enumeratorName(v);
        if (name) {
            formatQuoted(os, name);
        } else {
            Mel::valueFormat(os, static_cast<std::underlying_type_t<T>>(v));
        }
    } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
        formatQuoted(os, v);
    } else if constexpr (std::is_same_v<T, Bytes>) {
        formatBytes(os, v);
    } else if constexpr (D::IsOptional<T>::value || D::IsPtr<T>::value) {
        if (v) {
            Mel::valueFormat(os, *v);
        } else {
            os << "None";
        }
    } else if constexpr (D::IsStdArray<T>::value || std::is_bounded_array_v<T> ||
                         D::GrowableList<T>) {
        os << '[';
        bool first = true;
        for (const auto& e : v) {
            if (!first) os << ", ";
            first = false;
            Mel::valueFormat(os, e);
        }
        os << ']';
    } else if constexpr (D::StringConvertible<T>) {
        formatQuoted(os, v.toString());
    } else if constexpr (D::HasToStrep<T>) {
        formatQuoted(os, v.toStrep());
    } else {
        static_assert(D::dependentFalse<T>, "Mel::valueFormat: this type has no text form; declare "
                                            "it with MEL_VALUE_TYPE or give it melFormat/melParse");
    }
}

template <class T>
void valueParse(ValueParser& p, T& v) {
    namespace D = ReflectDetail;
    if constexpr (D::Described<T>) {
        D::parseDescribed(p, v);
    } else if constexpr (D::HasParseHook<T>) {
        D::callParseHook(p, v);
    } else if constexpr (std::is_same_v<T, bool>) {
        v = p.parseBool();
    } else if constexpr (std::is_integral_v<T>) {
        if constexpr (std::is_signed_v<T>) {
            v = static_cast<T>(
                p.parseSigned(std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
        } else {
            v = static_cast<T>(p.parseUnsigned(std::numeric_limits<T>::max()));
        }
    } else if constexpr (std::is_enum_v<T>) {
        char c = p.peek();
        if (c == '\'' || c == '"') {
            size_t at = p.offset();
            std::string name = p.parseQuoted();
            bool found = false;
            if constexpr (D::DescribedEnum<T>) found = D::enumeratorFromName(name, v);
            if (!found) D::failEnumerator(p, at, name);
        } else {
            std::underlying_type_t<T> n{};
            Mel::valueParse(p, n);
            v = static_cast<T>(n);
        }
    } else if constexpr (std::is_same_v<T, std::string>) {
        v = p.parseQuoted();
    } else if constexpr (std::is_same_v<T, Bytes>) {
        parseBytes(p, v);
    } else if constexpr (D::IsOptional<T>::value) {
        if (p.consume("None")) {
            v.reset();
        } else {
            if (!v) v.emplace();
            Mel::valueParse(p, *v);
        }
    } else if constexpr (D::IsPtr<T>::value) {
        D::parsePtr(p, v);
    } else if constexpr (D::IsStdArray<T>::value || std::is_bounded_array_v<T>) {
        constexpr size_t n = D::FixedSize<T>::value;
        p.listBegin();
        size_t at = p.offset() - 1;
        size_t i = 0;
        for (bool first = true; p.listNext(first); first = false) {
            if (i == n) D::failArraySize(p, at, n);
            Mel::valueParse(p, v[i++]);
        }
        if (i != n) D::failArraySize(p, at, n);
    } else if constexpr (D::GrowableList<T>) {
        v.clear();
        p.listBegin();
        for (bool first = true; p.listNext(first); first = false) {
            typename T::value_type e{};
            Mel::valueParse(p, e);
            v.push_back(std::move(e));
        }
    } else if constexpr (D::StringConvertible<T>) {
        D::parseFromString(p, v);
    } else if constexpr (D::HasToStrep<T>) {
        D::throwNotReadable(p);
    } else {
        static_assert(D::dependentFalse<T>, "Mel::valueParse: this type cannot be read from text; "
                                            "declare it with MEL_VALUE_TYPE or give it melParse");
    }
}

// ---- Whole values.

// The text form of v (for a described class, "Value('Name', ** {'field': value, ...})").
template <class T>
std::string valueToStrep(const T& v) {
    std::ostringstream os;
    valueFormat(os, v);
    return std::move(os).str();
}

// Parses text into v; the whole text must be one value. Fields that the text omits keep v's
// values. After a ParseException v may be partly updated.
template <class T>
void valueFromStrepInto(T& v, std::string_view text) {
    ValueParser p(text);
    valueParse(p, v);
    p.expectEnd();
}

// A default-constructed T filled from text.
template <class T>
T valueFromStrep(std::string_view text) {
    T v{};
    valueFromStrepInto(v, text);
    return v;
}

template <class T>
T strepToValue(std::string_view text) {
    return valueFromStrep<T>(text);
}

// ---- Fields of a described class by name. Unknown names throw Mel::NotSupportedException.

template <class T>
concept ValueType = ReflectDetail::Described<T>;

template <ValueType T>
constexpr std::string_view valueTypeName() noexcept {
    return ReflectDetail::typeNameOf<T>();
}

// Every field name in printed order, output-only fields included.
template <ValueType T>
std::span<const std::string_view> fieldNames() noexcept {
    return ReflectDetail::Description<T>::names;
}

// The text of one field, exactly as it appears after "'name': " in the Value form.
template <ValueType T>
std::string fieldGet(const T& v, std::string_view name) {
    using Desc = ReflectDetail::Description<T>;
    size_t index = ReflectDetail::fieldIndex(Desc::names, name);
    if (index == ReflectDetail::noField) ReflectDetail::throwNoField(valueTypeName<T>(), name);
    std::ostringstream os;
    if constexpr (Desc::count > 0) {
        boost::mp11::mp_with_index<Desc::count>(index, [&](auto i) {
            ReflectDetail::formatFieldValue<T, boost::mp11::mp_at_c<typename Desc::Fields, i>>(os,
                                                                                               v);
        });
    }
    return std::move(os).str();
}

// Sets one field from the text fieldGet gives. The whole text must be the value (else
// Mel::ParseException, leaving a data member unchanged); output-only fields throw
// Mel::NotSupportedException.
template <ValueType T>
void fieldSet(T& v, std::string_view name, std::string_view text) {
    using Desc = ReflectDetail::Description<T>;
    size_t index = ReflectDetail::fieldIndex(Desc::names, name);
    if (index == ReflectDetail::noField) ReflectDetail::throwNoField(valueTypeName<T>(), name);
    if constexpr (Desc::count > 0) {
        boost::mp11::mp_with_index<Desc::count>(index, [&](auto i) {
            using D = boost::mp11::mp_at_c<typename Desc::Fields, i>;
            if constexpr (ReflectDetail::fieldKind<T, D>() == ReflectDetail::FieldKind::derived) {
                ReflectDetail::throwReadOnly(valueTypeName<T>(), name);
            } else {
                ValueParser p(text);
                ReflectDetail::parseFieldValue<T, D>(p, v, true);
            }
        });
    }
}

// False for output-only fields.
template <ValueType T>
bool fieldWritable(std::string_view name) {
    using Desc = ReflectDetail::Description<T>;
    size_t index = ReflectDetail::fieldIndex(Desc::names, name);
    if (index == ReflectDetail::noField) ReflectDetail::throwNoField(valueTypeName<T>(), name);
    bool writable = false;
    if constexpr (Desc::count > 0) {
        boost::mp11::mp_with_index<Desc::count>(index, [&](auto i) {
            using D = boost::mp11::mp_at_c<typename Desc::Fields, i>;
            writable = ReflectDetail::fieldKind<T, D>() != ReflectDetail::FieldKind::derived;
        });
    }
    return writable;
}

// Calls f(std::string_view name, member&) for every data-member field in printed order (const
// members when obj is const). Getter-based fields are not visited: they have no reference to give.
template <class T, class F>
requires ValueType<std::remove_const_t<T>>
void forEachField(T& obj, F&& f) {
    using U = std::remove_const_t<T>;
    boost::mp11::mp_for_each<typename ReflectDetail::Description<U>::Fields>([&](auto d) {
        using D = decltype(d);
        if constexpr (ReflectDetail::fieldKind<U, D>() == ReflectDetail::FieldKind::data) {
            f(ReflectDetail::printedName(D::name), obj.*D::pointer);
        }
    });
}

// The same over two objects of one type: f(name, a's member, b's member).
template <class T, class U, class F>
requires ValueType<std::remove_const_t<T>> &&
    std::is_same_v<std::remove_const_t<T>, std::remove_const_t<U>>
void forEachFieldPair(T& a, U& b, F&& f) {
    using V = std::remove_const_t<T>;
    boost::mp11::mp_for_each<typename ReflectDetail::Description<V>::Fields>([&](auto d) {
        using D = decltype(d);
        if constexpr (ReflectDetail::fieldKind<V, D>() == ReflectDetail::FieldKind::data) {
            f(ReflectDetail::printedName(D::name), a.*D::pointer, b.*D::pointer);
        }
    });
}

// Copies every writable field (data members, and getter/setter pairs through the setter) from src
// to dst, except those named in skip.
template <ValueType T>
void copyFields(T& dst, const T& src, std::initializer_list<std::string_view> skip = {}) {
    boost::mp11::mp_for_each<typename ReflectDetail::Description<T>::Fields>([&](auto d) {
        using D = decltype(d);
        constexpr auto kind = ReflectDetail::fieldKind<T, D>();
        std::string_view name = ReflectDetail::printedName(D::name);
        for (std::string_view s : skip) {
            if (s == name) return;
        }
        if constexpr (kind == ReflectDetail::FieldKind::data) {
            dst.*D::pointer = src.*D::pointer;
        } else if constexpr (kind == ReflectDetail::FieldKind::property) {
            using S = ReflectDetail::SetterOf<T, D>;
            std::invoke(S::pointer, dst, std::invoke(D::pointer, src));
        }
    });
}

} // namespace Mel
