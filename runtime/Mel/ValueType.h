// Declares a class's fields once, for the Value('...') text form, parsing and get/set by name.
//   class SrgbRange { uint32_t base_ = 0; uint32_t range_ = 0;
//       MEL_VALUE_TYPE(SrgbRange, "Routing::Bgp::SrgbRange", (base_, range_)) };
//
// The macro goes inside the class, so private members may be listed; it leaves the access level
// as it was. A field's printed name is the member's name with one trailing underscore removed.
// Fields print in the order listed; with MEL_VALUE_TYPE_DERIVED the listed (described) bases'
// fields come first.
//
// Besides data members the list may name member functions (house naming: getter x, setter xIs):
//   - a const getter x() listed together with its setter xIs(value) is a read-write field x;
//   - a const getter listed without a setter is an output-only field: printed, skipped when
//     parsing, refused by fieldSet (for a value derived from the stored ones);
//   - the setter alone names no field.
// Listed functions must not be overloaded. Data members must not be const.
// This header is deliberately light; the machinery that uses the description is Mel/Reflect.h.
#pragma once

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

// Fields: a parenthesised list of member names, possibly empty: (a_, b_) or ().
#define MEL_VALUE_TYPE(C, typeName, Fields) MEL_VALUE_TYPE_DERIVED(C, typeName, (), Fields)

// Bases: a parenthesised list of base classes that are value types themselves; undescribed bases
// are simply not listed.
#define MEL_VALUE_TYPE_DERIVED(C, typeName, Bases, Fields)                                         \
    BOOST_DESCRIBE_CLASS(C, Bases, Fields, (), ())                                                 \
    [[maybe_unused]] friend constexpr const char* melValueTypeName(C**) noexcept {                 \
        return typeName;                                                                           \
    }
