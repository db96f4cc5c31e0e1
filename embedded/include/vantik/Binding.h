/// @file
/// For bindings of other languages: elements of arrays in place, and objects that carry a value of the program's.
#pragma once

#include "vantik/Array.h"
#include "vantik/Object.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vantik {

/// Classes of numbers and truth values. An element of a logical array is one byte; anything but 0 is true.
enum class ElementClass { Logical, Uint8, Int32, Uint64, Double };

///@{
/// Any thread; the caller owns the Array. Elements are in column order and of the type that the class is named for.
/// Raises std::bad_alloc.
__attribute__((visibility("default"))) Array makeElements(ElementClass kind, std::size_t rows,
                                                          std::size_t columns); ///< all zero
/// Nothing for an array of another class.
__attribute__((visibility("default"))) std::optional<ElementClass> elementClass(const Array& array);
/// In place, valid until the Array is written, assigned to or destroyed; none for an array of another class.
__attribute__((visibility("default"))) std::span<const std::byte> elements(const Array& array);
/// The same for writing; first makes the contents this Array's own.
__attribute__((visibility("default"))) std::span<std::byte> writableElements(Array& array);
/// Names of the members that an enumeration array holds; nothing for an array of another class.
__attribute__((visibility("default"))) std::optional<std::vector<std::string>> members(const Array& array);
///@}

///@{
/// An object of a class that a HostClass has defined carries one value, such as the object of another language that it
/// stands for, which is dropped with it. `attach` replaces it, and returns false for an object of another class;
/// `attached` returns null where there is none. Both raise VANTIK:vcos:NoObject.
__attribute__((visibility("default"))) bool attach(const Object& object, std::shared_ptr<void> value);
__attribute__((visibility("default"))) std::shared_ptr<void> attached(const Object& object);
///@}

} // namespace vantik
