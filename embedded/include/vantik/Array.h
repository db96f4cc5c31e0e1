/// @file
/// Array values: what goes into and comes out of properties and methods.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

struct vxArray_tag;

namespace vantik {

/// A single character, which is neither a text nor a number.
template <class T>
concept CharacterType = std::same_as<T, char> || std::same_as<T, wchar_t> || std::same_as<T, char8_t> ||
                        std::same_as<T, char16_t> || std::same_as<T, char32_t>;
/// An integer that has no array class of its own.
template <class T>
concept OtherIntegerType = std::integral<T> && !CharacterType<T> && !std::same_as<T, bool> &&
                           !std::same_as<T, std::int32_t> && !std::same_as<T, std::uint64_t>;

/// A value with class, dimensions and contents. It owns its handle; copies share contents until one of them is written.
/// Nothing here needs a Host, and different Arrays may be used on different threads at once, copies of one another too;
/// one Array belongs to one thread at a time. An Array that holds objects belongs to their Host's thread and must not
/// outlive the program's last Host. Conversions that do not fit raise Failure, naming the class found and the one
/// expected; where there is no memory, std::bad_alloc is raised.
class __attribute__((visibility("default"))) Array {
public:
    Array() noexcept; ///< the empty array of no class, 0-by-0: "no value"

    ///@{
    /// Text in UTF-8, as 1-by-n char; n counts UTF-16 units, 0 for an empty text. Raise VANTIK:vx:NotUtf8. A
    /// null pointer is an empty text.
    Array(const char* utf8);
    Array(const std::string& utf8);
    Array(std::string_view utf8);
    ///@}
    ///@{
    /// Text in UTF-16, as 1-by-n char; any units are taken.
    Array(const char16_t* text);
    Array(const std::u16string& text);
    Array(std::u16string_view text);
    ///@}
    Array(const void*) = delete; ///< any other pointer would silently become a logical

    /// Scalars, 1-by-1.
    Array(bool value);          ///< logical
    Array(double value);        ///< double
    Array(std::int32_t value);  ///< int32
    Array(std::uint64_t value); ///< uint64
    /// Any other integer: int32 where its type fits there, uint64 where it is unsigned. The rest are wider and signed:
    /// int32, else uint64, else double, whichever holds the value. Raises VANTIK:vx:NumberNotHeld where none does.
    template <OtherIntegerType Integer>
    Array(Integer value) : Array(held(value)) {}
    template <CharacterType Character>
    Array(Character) = delete; ///< neither a text nor a number

    ///@{
    /// Copies share contents until one of them is written.
    Array(const Array& other);
    Array(Array&& other) noexcept;
    Array& operator=(Array other) noexcept;
    ///@}
    ~Array();

    static Array bytes(std::span<const std::byte> content);     ///< n-by-1 uint8, a copy of the bytes
    static Array bytes(std::string_view content);               ///< the same of characters, whatever their encoding
    static Array doubles(std::span<const double> values);       ///< 1-by-n double
    static Array doubles(std::initializer_list<double> values); ///< 1-by-n double
    static Array logicals(const std::vector<bool>& values);     ///< 1-by-n logical
    ///@{
    /// 1-by-n members of an enumeration class, by name. The names are checked where the value is handed to an object.
    static Array enumeration(std::string_view className, std::span<const std::string> members);
    static Array enumeration(std::string_view className, std::initializer_list<std::string_view> members);
    ///@}
    /// Name and value of a field of a struct.
    using Field = std::pair<std::string, Array>;
    /// 1-by-1 struct, its fields in the order given. Raises VANTIK:vx:DuplicateField and VANTIK:vx:EmptyFieldName.
    static Array structure(std::initializer_list<Field> fields);
    /// 1-by-n struct with one element for each row; each row holds its values in the order of the field names. Raises
    /// VANTIK:vx:RowLength for a row of another length, and as `structure`.
    static Array structures(const std::vector<std::string>& fieldNames, const std::vector<std::vector<Array>>& rows);

    std::string className() const; ///< "char", "uint8", "struct", the full name of a class; empty for no class
    std::vector<std::size_t> dimensions() const; ///< at least two: rows, columns
    std::size_t size() const;                    ///< product of the dimensions
    bool empty() const { return size() == 0; }   ///< no element
    bool isA(std::string_view className) const;  ///< of that class; for objects also of one derived from it

    /// Contents, as copies that the caller owns. Each raises VANTIK:vx:ExpectedClass (VANTIK:vx:ExpectedText for text)
    /// for an array of another class, and those for one element VANTIK:vx:ExpectedScalar.
    std::string text() const; ///< char, as UTF-8; VANTIK:vx:TextNotConvertible for half a character
    std::string textOr(std::string_view other) const; ///< the same, but `other` for an empty array of any class
    std::u16string wideText() const;                  ///< char
    double number() const;                            ///< numeric or logical scalar
    bool truth() const;                               ///< numeric or logical scalar; anything but 0 is true
    std::uint64_t unsignedInteger() const;       ///< numeric scalar; VANTIK:vx:ExpectedUnsignedInteger for the rest
    std::vector<double> doubles() const;         ///< any numbers or logicals
    std::vector<std::string> fieldNames() const; ///< struct
    /// One field of one element of a struct, counted from 0: a value of its own, which may be the array of no class.
    /// Raises VANTIK:vx:NoSuchField and VANTIK:vx:IndexOutOfRange.
    Array field(std::string_view name, std::size_t index = 0) const;

    /// Contents of a uint8 array, in place: valid until the Array is written, assigned to or destroyed.
    std::span<const std::byte> bytes() const;
    std::string_view byteText() const&; ///< the same bytes seen as characters
    std::string byteText() &&;          ///< of an Array that is about to go: a copy
    /// The same for writing; first makes the contents this Array's own.
    std::span<std::byte> writableBytes();

    ///@{
    /// The handle behind the value: persistent, and null for the array of no class. `handle` is borrowed; `release`
    /// passes ownership to the caller; `adopt` takes it.
    const vxArray_tag* handle() const noexcept { return Handle; }
    vxArray_tag* release() noexcept;
    static Array adopt(vxArray_tag* handle) noexcept;
    ///@}

private:
    template <class Integer>
    static Array held(Integer value) {
        if constexpr (sizeof(Integer) < sizeof(std::int32_t)) {
            return {static_cast<std::int32_t>(value)};
        } else if constexpr (std::is_unsigned_v<Integer>) {
            return {static_cast<std::uint64_t>(value)};
        } else {
            return wideInteger(value);
        }
    }
    static Array wideInteger(std::int64_t value);

    vxArray_tag* Handle;
};

/// Bytes seen as characters, in place.
inline std::string_view asText(std::span<const std::byte> bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace vantik
