// Array values: what goes into and comes out of properties and methods.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct vxArray_tag;

namespace vantik {

// A value with class, dimensions and contents. Copies share contents until one of them is written. Conversions that do
// not fit raise Failure, naming the class found and the one expected. An Array must not outlive the program's last Host
// where it holds objects.
class __attribute__((visibility("default"))) Array {
public:
    Array() noexcept;                  // the empty array of no class
    Array(const char* utf8);           // 1-by-n char
    Array(const std::string& utf8);    // 1-by-n char
    Array(std::string_view utf8);      // 1-by-n char; raises for text that is not UTF-8
    Array(const char16_t* text);       // 1-by-n char
    Array(const std::u16string& text); // 1-by-n char
    Array(std::u16string_view text);   // 1-by-n char
    Array(const void*) = delete;       // any other pointer would silently become a logical
    Array(bool value);                 // logical scalar
    Array(double value);               // double scalar
    Array(std::int32_t value);         // int32 scalar
    Array(std::uint64_t value);        // uint64 scalar
    Array(const Array& other);
    Array(Array&& other) noexcept;
    Array& operator=(Array other) noexcept;
    ~Array();

    static Array bytes(std::span<const std::byte> content);                                     // n-by-1 uint8
    static Array bytes(std::string_view content);                                               // n-by-1 uint8
    static Array doubles(std::span<const double> values);                                       // 1-by-n double
    static Array doubles(std::initializer_list<double> values);                                 // 1-by-n double
    static Array logicals(const std::vector<bool>& values);                                     // 1-by-n logical
    static Array enumeration(std::string_view className, std::span<const std::string> members); // 1-by-n
    using Field = std::pair<std::string, Array>;
    static Array structure(std::initializer_list<Field> fields); // 1-by-1 struct
    // 1-by-n struct with one element a row; each row holds its values in the order of the field names.
    static Array structures(const std::vector<std::string>& fieldNames, const std::vector<std::vector<Array>>& rows);

    std::string className() const; // "char", "uint8", "struct", …; empty for the array of no class
    std::vector<std::size_t> dimensions() const;
    std::size_t size() const; // product of the dimensions
    bool empty() const { return size() == 0; }
    bool isA(std::string_view className) const;

    std::string text() const;                    // char, as UTF-8
    std::u16string wideText() const;             // char
    double number() const;                       // numeric or logical scalar
    bool truth() const;                          // logical or numeric scalar
    std::uint64_t unsignedInteger() const;       // numeric scalar without sign and fraction
    std::span<const std::byte> bytes() const;    // uint8; valid until the Array is written or destroyed
    std::string_view byteText() const;           // uint8, the same bytes seen as characters
    std::vector<double> doubles() const;         // double or any other number
    std::vector<std::string> fieldNames() const; // struct
    Array field(std::string_view name, std::size_t index = 0) const; // struct; raises for a field that is not there

    // Writable bytes of a uint8 array; first makes the contents this Array's own.
    std::span<std::byte> writableBytes();

    // The handle behind the value: persistent, and null for the array of no class. `handle` is borrowed; `release`
    // passes ownership to the caller; `adopt` takes it.
    const vxArray_tag* handle() const noexcept { return Handle; }
    vxArray_tag* release() noexcept;
    static Array adopt(vxArray_tag* handle) noexcept;

private:
    vxArray_tag* Handle;
};

} // namespace vantik
