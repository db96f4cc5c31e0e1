#include "embedded/objects/SlotValue.h"

#include "embedded/messages/HostFailure.h"
#include "embedded/scope/Scope.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>

namespace vantik::detail {

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace {

constexpr double kTwoToThe64 = 18446744073709551616.0;

// The same value in another type, or nothing where that type lacks it.
template <class To, class From>
std::optional<To> exactly(From value) {
    if constexpr (std::is_same_v<To, From>) {
        return value;
    } else if constexpr (std::is_same_v<From, bool>) {
        return static_cast<To>(value ? 1 : 0);
    } else if constexpr (std::is_same_v<To, bool>) {
        return value == From(0) ? std::optional(false) : value == From(1) ? std::optional(true) : std::nullopt;
    } else if constexpr (std::is_same_v<From, double>) {
        // Both limits are powers of two, or zero, and so exact as doubles.
        const double beyond =
            std::is_same_v<To, std::uint64_t> ? kTwoToThe64 : static_cast<double>(std::numeric_limits<To>::max()) + 1;
        const double lowest = static_cast<double>(std::numeric_limits<To>::min());
        if (!(value >= lowest && value < beyond) || value != std::trunc(value)) {
            return std::nullopt;
        }
        return static_cast<To>(value);
    } else if constexpr (std::is_same_v<To, double>) {
        const double wide = static_cast<double>(value);
        if constexpr (std::is_same_v<From, std::uint64_t>) {
            if (wide >= kTwoToThe64 || static_cast<std::uint64_t>(wide) != value) {
                return std::nullopt;
            }
        }
        return wide;
    } else {
        return std::in_range<To>(value) ? std::optional(static_cast<To>(value)) : std::nullopt;
    }
}

// Calls `use` with a null pointer of the element type of a class of numbers; false for every other class.
template <class Use>
bool withElementType(vxClassID classId, Use use) {
    switch (classId) {
    case vxLOGICAL_CLASS:
        return use(static_cast<bool*>(nullptr));
    case vxUINT8_CLASS:
        return use(static_cast<std::uint8_t*>(nullptr));
    case vxINT32_CLASS:
        return use(static_cast<std::int32_t*>(nullptr));
    case vxUINT64_CLASS:
        return use(static_cast<std::uint64_t*>(nullptr));
    case vxDOUBLE_CLASS:
        return use(static_cast<double*>(nullptr));
    default:
        return false;
    }
}

template <class To, class From>
bool convertElements(const vxArray_tag* from, void* to, std::size_t count) {
    const auto* source = static_cast<const From*>(vx::vxGetData(from));
    auto* target = static_cast<To*>(to);
    for (std::size_t index = 0; index < count; ++index) {
        // A logical may be any byte; to be read as a bool it must be 0 or 1.
        const auto value = [&] {
            if constexpr (std::is_same_v<From, bool>) {
                return reinterpret_cast<const unsigned char*>(source)[index] != 0;
            } else {
                return source[index];
            }
        }();
        const std::optional<To> converted = exactly<To>(value);
        if (!converted) {
            return false;
        }
        target[index] = *converted;
    }
    return true;
}

// All elements of `from` as elements of a class of numbers, stored at `to`. False where some value does not fit, or one
// of the classes is not a class of numbers.
bool convertNumbers(const vxArray_tag* from, vxClassID classId, void* to, std::size_t count) {
    return withElementType(classId, [&](auto* toType) {
        return withElementType(vx::vxGetClassID(from), [&](auto* fromType) {
            return convertElements<std::remove_pointer_t<decltype(toType)>, std::remove_pointer_t<decltype(fromType)>>(
                from, to, count);
        });
    });
}

bool isNothing(const vxArray_tag* array) {
    return !array || vx::vxGetClassID(array) == vxUNKNOWN_CLASS;
}

bool isRowOrColumn(const vxArray_tag* array) {
    const std::size_t* sizes = vx::vxGetDimensions(array);
    return vx::vxGetNumberOfDimensions(array) <= 2 && (elementCount(array) == 0 || sizes[0] == 1 || sizes[1] == 1);
}

std::string numberText(const vxArray_tag* array) {
    char text[32];
    const auto* data = vx::vxGetData(array);
    const std::to_chars_result result =
        vx::vxGetClassID(array) == vxUINT64_CLASS
            ? std::to_chars(text, std::end(text), *static_cast<const std::uint64_t*>(data))
            : std::to_chars(text, std::end(text), elementAsDouble(array, 0));
    return {text, result.ptr};
}

// What a refused value is, in the words of a type: "double scalar 2.5", "2-by-3 char", "example.Stream scalar".
std::string describe(const vxArray_tag* array) {
    if (isNothing(array)) {
        return "nothing";
    }
    const std::string className = vx::vxGetClassName(array);
    if (elementCount(array) == 1) {
        const vxClassID classId = vx::vxGetClassID(array);
        const bool number = isNumeric(classId) || classId == vxLOGICAL_CLASS;
        return className + " scalar" + (number ? " " + numberText(array) : std::string());
    }
    const std::size_t* sizes = vx::vxGetDimensions(array);
    return std::to_string(sizes[0]) + "-by-" + std::to_string(sizes[1]) + " " + className;
}

[[noreturn]] void refuse(const TypeWord& type, const vxArray_tag* given, const SlotPlace& place) {
    constexpr const char* kKeys[] = {"WrongPropertyType", "WrongInputType", "WrongOutputType"};
    std::vector<resource_core::MsgArgument> arguments{std::string(place.ClassName), std::string(place.Member)};
    if (place.Use != SlotPlace::Role::Property) {
        arguments.emplace_back(static_cast<std::int64_t>(place.Position));
    }
    arguments.emplace_back(type.Text);
    arguments.emplace_back(describe(given));
    raiseHostFailure("VANTIK:vcos", kKeys[static_cast<int>(place.Use)], std::move(arguments));
}

// The declared class fits the array, whatever its shape.
bool classFits(const TypeWord& type, const vxArray_tag* given) {
    const vxClassID classId = vx::vxGetClassID(given);
    switch (type.Content) {
    case TypeWord::Kind::Plain:
        return classId == type.Plain;
    case TypeWord::Kind::Struct:
        return classId == vxSTRUCT_CLASS;
    case TypeWord::Kind::Object:
        return type.ClassName.empty() ? classId == vxOBJECT_CLASS
                                      : (classId == vxOBJECT_CLASS || classId == vxENUMERATION_CLASS) &&
                                            vx::vxIsA(given, type.ClassName.c_str());
    default:
        return true;
    }
}

bool shapeFits(const TypeWord& type, const vxArray_tag* given) {
    switch (type.Form) {
    case TypeWord::Shape::Scalar:
        return elementCount(given) == 1;
    case TypeWord::Shape::Vector:
        return isRowOrColumn(given);
    default:
        return true;
    }
}

vxArray_tag* makeEmpty(const TypeWord& type) {
    switch (type.Content) {
    case TypeWord::Kind::Plain:
        return makePlain(type.Plain, 0, 0);
    case TypeWord::Kind::Struct:
        return vx::vxCreateStructMatrix(0, 0, 0, nullptr);
    case TypeWord::Kind::Object:
        return Scope::current().Classes.enumerationMembers(type.ClassName) ? makeEnumerationArray(type.ClassName, {})
                                                                           : makeObjectArray(type.ClassName, {});
    default:
        return vx::vxCreateEmptyUnknownArrayNotOnArrayList();
    }
}

template <class T>
std::uint64_t bitsOf(T value) noexcept {
    if constexpr (std::is_same_v<T, double>) {
        return std::bit_cast<std::uint64_t>(value);
    } else {
        // A signed number keeps its sign in the wider cell.
        return static_cast<std::uint64_t>(value);
    }
}

} // namespace

SlotValue::SlotValue(const TypeWord& type, vxArray_tag* given, const SlotPlace& place) {
    const bool nothing = isNothing(given);
    if (type.liesInSlot()) {
        const bool fits = !nothing && elementCount(given) == 1 && withElementType(type.Plain, [&](auto* kind) {
            std::remove_pointer_t<decltype(kind)> value{};
            const bool exact = convertNumbers(given, type.Plain, &value, 1);
            Slot.Bits = bitsOf(value);
            return exact;
        });
        if (!fits) {
            refuse(type, given, place);
        }
        return;
    }
    if (nothing && place.Use == SlotPlace::Role::Property) {
        return; // null
    }
    switch (type.Content) {
    case TypeWord::Kind::Any:
        pointTo(given);
        return;
    case TypeWord::Kind::UnicodeString:
        if (!nothing) {
            if (vx::vxGetClassID(given) != vxCHAR_CLASS || !isRowOrColumn(given)) {
                refuse(type, given, place);
            }
            Text = matrix::get_ustring(given);
        }
        pointTo(&Text);
        return;
    default:
        break;
    }
    const bool takesEmpty = type.Form != TypeWord::Shape::Scalar;
    if (!nothing && classFits(type, given) && shapeFits(type, given)) {
        pointTo(given);
    } else if (takesEmpty && (nothing || elementCount(given) == 0)) {
        own(makeEmpty(type));
    } else if (!nothing && type.Content == TypeWord::Kind::Plain && shapeFits(type, given)) {
        const std::size_t* sizes = vx::vxGetDimensions(given);
        if (withElementType(type.Plain, [](auto*) { return true; })) {
            own(makePlain(type.Plain, sizes[0], sizes[1]));
        }
        if (!Made || !convertNumbers(given, type.Plain, vx::vxGetData(Made.get()), elementCount(given))) {
            refuse(type, given, place);
        }
    } else {
        refuse(type, given, place);
    }
}

vxArray_tag* SlotValue::takeArray() {
    if (Made) {
        return Made.release();
    }
    return arrayIn(Slot) ? vx::vxCreateSharedDataCopy(arrayIn(Slot)) : nullptr;
}

void SlotValue::pointTo(const void* target) noexcept {
    Slot.Bits = reinterpret_cast<std::uintptr_t>(target);
}

void SlotValue::own(vxArray_tag* made) noexcept {
    Made.reset(made);
    pointTo(made);
}

vcos::COSValue slotOf(const vxArray_tag* array) noexcept {
    return {reinterpret_cast<std::uintptr_t>(array)};
}

vxArray_tag* arrayIn(const vcos::COSValue& slot) noexcept {
    // A slot holds any value as bits. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<vxArray_tag*>(static_cast<std::uintptr_t>(slot.Bits));
}

vxArray_tag* arrayFromSlot(const TypeWord& type, const vcos::COSValue& slot) {
    if (type.Content == TypeWord::Kind::UnicodeString) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        const auto* text = reinterpret_cast<const std::u16string*>(static_cast<std::uintptr_t>(slot.Bits));
        return makeText(text ? std::u16string_view(*text) : std::u16string_view());
    }
    if (!type.liesInSlot()) {
        return arrayIn(slot);
    }
    switch (type.Plain) {
    case vxLOGICAL_CLASS:
        return makeLogical(slot.Bits != 0);
    case vxINT32_CLASS:
        return makeInt32(static_cast<std::int32_t>(static_cast<std::uint32_t>(slot.Bits)));
    case vxUINT64_CLASS:
        return makeUInt64(slot.Bits);
    default:
        return makeDouble(std::bit_cast<double>(slot.Bits));
    }
}

} // namespace vantik::detail
