/// @file
/// Objects of host classes.
#pragma once

#include "vantik/Array.h"

#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantik {

namespace detail {
class Scope;
}

/// A reference to one object; copies name the same object, which is destroyed with its last reference. Use it on the
/// thread that its Host runs on. Each operation raises Failure (or Interrupted), naming class, member and what was
/// expected: VANTIK:vcos:NoObject without an object, VANTIK:vcos:UnknownProperty or VANTIK:vcos:UnknownMethod with the
/// nearest name that there is, VANTIK:vcos:ForeignObject for a value that holds an object of another Host, and what the
/// class itself raises. An exception of the program's own callables passes through all of them unchanged.
/// Calls of the HTTP client's class that come to nothing warn: see kCopyWithoutOpen and kClearedByOpen in Http.h.
class __attribute__((visibility("default"))) Object {
public:
    Object() noexcept;            ///< no object
    explicit Object(Array value); ///< a scalar object array; anything else raises VANTIK:vcos:NoObject
    ~Object();
    ///@{
    /// Copies name the same object.
    Object(const Object&);
    Object(Object&&) noexcept;
    Object& operator=(Object) noexcept;
    ///@}

    explicit operator bool() const noexcept;    ///< it names an object
    std::string className() const;              ///< with its package
    bool isA(std::string_view className) const; ///< of that class, or derived from it; false for an unknown name

    /// A value of the program's own: it does not change when the object does. Some properties of a connection send the
    /// request when they are read, and raise what goes wrong with it.
    Array get(std::string_view property) const;

    /// Values are checked against the declared type, and converted where no information is lost: numbers and logicals
    /// become one another where every value fits exactly, text becomes the text of a property, a "vector" takes a row,
    /// a column, a scalar and any empty array. `Array()`, the empty array of no class, means no value: it clears a
    /// property that holds text, an array or an object, and a property that holds one number refuses it. A value that
    /// does not fit raises VANTIK:vcos:WrongPropertyType; a property without a setter VANTIK:vcos:ReadOnlyProperty.
    void set(std::string_view property, const Array& value) const;

    ///@{
    /// Calls a method with one result wanted (none, where it has none), or as many as stated; returns the results that
    /// the method delivered, which may be one where none was wanted. Inputs are converted as for `set`, except that
    /// `Array()` becomes the empty array of the declared class. Inputs are borrowed for the call, results are the
    /// caller's. Methods whose name ends in "Internal" are there for the host only. Raise VANTIK:vcos:WrongInputType,
    /// VANTIK:vcos:TooManyInputs, VANTIK:vcos:NotEnoughInputs and VANTIK:vcos:TooManyOutputs.
    Array call(std::string_view method, std::initializer_list<Array> arguments = {}) const;
    std::vector<Array> call(std::string_view method, std::initializer_list<Array> arguments, int resultsWanted) const;
    std::vector<Array> call(std::string_view method, std::span<const Array> arguments, int resultsWanted) const;
    ///@}

    ///@{
    /// The object as a value, to pass on.
    const Array& array() const noexcept { return Value; } ///< to pass the object as a value
    operator const Array&() const noexcept { return Value; }
    ///@}

private:
    Array Value;
};

} // namespace vantik
