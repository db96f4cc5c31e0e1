// What an array handle refers to: a handle is one reference to contents that several handles may share.
//
// Where the operations are:
//   ArrayContents.cpp   handles, plain elements, the table of plain classes
//   ArrayApi.cpp        the host's operations on arrays of every class
//   ArrayStruct.cpp     struct arrays
//   ArrayObjects.cpp    object and enumeration arrays, the is-a test
#pragma once

#include "embedded/arrays/SpareBlocks.h"
#include "host/ArrayApi.h"
#include "host/ClassSystem.h"

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vantik::detail {

class CallFrame;

using Dimensions = std::array<std::size_t, 2>; // rows, columns

// Base of all contents. The count of owners is atomic, so contents may be shared by handles of several threads; class
// and dimensions never change.
class ArrayContents : public boost::intrusive_ref_counter<ArrayContents, boost::thread_safe_counter> {
public:
    ArrayContents(vxClassID classId, std::size_t rows, std::size_t columns); // std::bad_alloc for too many elements
    virtual ~ArrayContents();
    ArrayContents(const ArrayContents&) = delete;
    ArrayContents& operator=(const ArrayContents&) = delete;

    virtual const char* className() const noexcept = 0;

    const vxClassID ClassId;
    const Dimensions Size;
    const std::size_t Count; // product of the dimensions
};

using ContentsPtr = boost::intrusive_ptr<ArrayContents>;

// Elements of one size in one block, in column order: char, logical and the numbers.
class PlainContents final : public ArrayContents, public SpareBlocks<PlainContents> {
public:
    enum class Fill { Zero, Undefined };

    PlainContents(vxClassID classId, std::size_t rows, std::size_t columns, Fill fill);
    PlainContents(const PlainContents& other); // a copy of the elements
    const char* className() const noexcept override;

    template <class T>
    T* elements() noexcept {
        return static_cast<T*>(Block ? Block.get() : static_cast<void*>(Small));
    }
    template <class T>
    const T* elements() const noexcept {
        return static_cast<const T*>(Block ? Block.get() : static_cast<const void*>(Small));
    }
    std::size_t byteCount() const noexcept { return ByteCount; }

private:
    struct Free {
        void operator()(void* block) const noexcept { std::free(block); }
    };
    std::size_t ByteCount;
    std::unique_ptr<void, Free> Block;             // null: the elements are in `Small`
    alignas(std::max_align_t) std::byte Small[64]; // numbers and short texts, which most arrays are
};

// Values by field and element. The contents own the values; a missing value is null.
class StructContents final : public ArrayContents {
public:
    StructContents(std::size_t rows, std::size_t columns, std::vector<std::string> fieldNames);
    StructContents(const StructContents& other); // new handles on the same values
    ~StructContents() override;
    const char* className() const noexcept override;

    // Number of a field; the number of fields where none has that name.
    std::size_t fieldNumber(std::string_view name) const noexcept;
    vxArray_tag*& value(std::size_t index, std::size_t field) noexcept {
        return Values[index * FieldNames.size() + field];
    }
    vxArray_tag* value(std::size_t index, std::size_t field) const noexcept {
        return Values[index * FieldNames.size() + field];
    }

    const std::vector<std::string> FieldNames;

private:
    std::vector<vxArray_tag*> Values; // owned; the fields of an element are adjacent
};

// References to objects of one class.
class ObjectContents final : public ArrayContents {
public:
    ObjectContents(std::string name, std::vector<vcos::COSInterfacePtr> elements);
    const char* className() const noexcept override { return Name.c_str(); }

    const std::string Name;
    const std::vector<vcos::COSInterfacePtr> Elements;
};

// Members of one enumeration.
class EnumerationContents final : public ArrayContents {
public:
    EnumerationContents(std::string name, std::vector<std::string> members);
    const char* className() const noexcept override { return Name.c_str(); }

    const std::string Name;
    const std::vector<std::string> Members;
};

} // namespace vantik::detail

// A handle. It is used on one thread at a time.
struct vxArray_tag : vantik::detail::SpareBlocks<vxArray_tag> {
    explicit vxArray_tag(vantik::detail::ContentsPtr contents) noexcept;
    ~vxArray_tag();
    vxArray_tag(const vxArray_tag&) = delete;
    vxArray_tag& operator=(const vxArray_tag&) = delete;

    vantik::detail::ContentsPtr Contents;       // null: the array of no class
    vantik::detail::CallFrame* Frame = nullptr; // null: persistent
    vxArray_tag* Newer = nullptr;               // neighbours on the frame's list
    vxArray_tag* Older = nullptr;
    bool Nested = false; // a field's value: only the struct's contents destroy it
};

namespace matrix::detail::noninlined::vx_array_api {

// For this host alone: the contract asks for class names only.
inline vxClassID vxGetClassID(const vxArray_tag* array) noexcept {
    return array && array->Contents ? array->Contents->ClassId : vxUNKNOWN_CLASS;
}

} // namespace matrix::detail::noninlined::vx_array_api

namespace vantik::detail {

using ArrayOwner = std::unique_ptr<vxArray_tag, matrix::vxDestroy_deleter>;

// Makers. The new handle is on the innermost call frame of the thread, if there is one. All raise std::bad_alloc where
// there is no memory, and leave nothing behind then.
vxArray_tag* makeArray(ContentsPtr contents);
vxArray_tag* makeObjectArray(const std::string& className,
                             std::vector<vcos::COSInterfacePtr> elements); // 1-by-n; none: 0-by-0
vxArray_tag* makeEnumerationArray(const std::string& className,
                                  std::vector<std::string> members); // 1-by-n; none: 0-by-0
vxArray_tag* makeText(std::u16string_view text);                     // 1-by-n char
vxArray_tag* makeAsciiText(std::string_view ascii);                  // the same of ASCII, without a copy in between
vxArray_tag* makeLogical(bool value);
vxArray_tag* makeDouble(double value);
vxArray_tag* makeInt32(std::int32_t value);
vxArray_tag* makeUInt64(std::uint64_t value);
// Plain elements: all zero, or copied from `elements`, which holds rows by columns of them.
vxArray_tag* makePlain(vxClassID classId, std::size_t rows, std::size_t columns);
vxArray_tag* makePlainFrom(vxClassID classId, std::size_t rows, std::size_t columns, const void* elements);

// Elements of an object array; none for null and for every other class.
const std::vector<vcos::COSInterfacePtr>& objectElements(const vxArray_tag* array);

// Product of the dimensions; 0 for null and for the array of no class.
std::size_t elementCount(const vxArray_tag* array) noexcept;

// The number in a numeric or logical element, or 0 where the class is another one.
double elementAsDouble(const vxArray_tag* array, std::size_t index) noexcept;

bool isNumeric(vxClassID classId) noexcept; // double, uint8, int32, uint64
// Bytes of one element of a plain class (char, logical and the numbers); 0 for every other class.
std::size_t elementSize(vxClassID classId) noexcept;

// The contents where they are of that kind, else null. `writableContents` first makes them this handle's own.
const PlainContents* plainContents(const vxArray_tag* array) noexcept;
const StructContents* structContents(const vxArray_tag* array) noexcept;
PlainContents* writablePlainContents(vxArray_tag* array);
StructContents* writableStructContents(vxArray_tag* array);

// Text of a char array, read in column order.
std::u16string_view textElements(const PlainContents& contents) noexcept;

// How many handles live in this process, field values included.
std::size_t liveArrays() noexcept;

} // namespace vantik::detail
