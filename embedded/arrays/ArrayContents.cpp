#include "embedded/arrays/Array.h"
#include "embedded/arrays/CallFrame.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace vantik::detail {

namespace {

std::atomic<std::size_t> livingHandles{0};

// Read by column, and small. NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct PlainClass {
    vxClassID ClassId;
    const char* Name;
    std::size_t ElementSize; // bytes
    bool Numeric;
};

constexpr PlainClass kPlainClasses[] = {
    {vxCHAR_CLASS, "char", sizeof(char16_t), false},         {vxLOGICAL_CLASS, "logical", 1, false},
    {vxUINT8_CLASS, "uint8", sizeof(std::uint8_t), true},    {vxINT32_CLASS, "int32", sizeof(std::int32_t), true},
    {vxUINT64_CLASS, "uint64", sizeof(std::uint64_t), true}, {vxDOUBLE_CLASS, "double", sizeof(double), true},
};

// Null for a class without plain elements.
const PlainClass* plainClass(vxClassID classId) noexcept {
    const auto* found = std::find_if(std::begin(kPlainClasses), std::end(kPlainClasses),
                                     [classId](const PlainClass& row) { return row.ClassId == classId; });
    return found == std::end(kPlainClasses) ? nullptr : found;
}

// No object may be larger than this, or differences of addresses would overflow.
constexpr std::size_t kLargestBlock = std::numeric_limits<std::ptrdiff_t>::max();

std::size_t product(std::size_t left, std::size_t right) {
    std::size_t result = 0;
    if (__builtin_mul_overflow(left, right, &result)) {
        throw std::bad_alloc();
    }
    return result;
}

std::size_t blockSize(vxClassID classId, std::size_t count) {
    const PlainClass* row = plainClass(classId);
    if (!row) {
        throw std::invalid_argument("an array of class " + std::to_string(classId) + " has no plain elements");
    }
    const std::size_t size = product(count, row->ElementSize);
    if (size > kLargestBlock) {
        throw std::bad_alloc();
    }
    return size;
}

void* allocateBlock(std::size_t size, PlainContents::Fill fill) {
    // calloc knows which pages are fresh from the system and leaves those alone, so a large array costs no memory
    // before it is written.
    void* block = fill == PlainContents::Fill::Zero ? std::calloc(size, 1) : std::malloc(size);
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

template <class T>
vxArray_tag* makeScalar(vxClassID classId, T value) {
    return makePlainFrom(classId, 1, 1, &value);
}

#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t kMostSpare = 0; // so that a use after the end is seen
#else
constexpr std::size_t kMostSpare = 64;
#endif

// What waits on a thread. Without a destructor, since arrays may come and go while the thread ends.
template <class Object>
struct Spare {
    struct Block {
        Block* Next;
    };
    static_assert(sizeof(Object) >= sizeof(Block));

    Block* First;
    std::size_t Room; // for more of them; 0 before the first one and after the end
    bool Begun;

    void begin() noexcept {
        struct AtThreadsEnd {
            ~AtThreadsEnd() { SpareBlocks<Object>::end(); }
        };
        static thread_local const AtThreadsEnd atEnd;
        static_cast<void>(atEnd);
        Begun = true;
        Room = kMostSpare;
    }

    static thread_local Spare Own;
};
template <class Object>
constinit thread_local Spare<Object> Spare<Object>::Own = {nullptr, 0, false};

} // namespace

template <class Object>
void* SpareBlocks<Object>::operator new(std::size_t size) {
    Spare<Object>& own = Spare<Object>::Own;
    if (!own.First) {
        return ::operator new(size);
    }
    ++own.Room;
    return std::exchange(own.First, own.First->Next);
}

template <class Object>
void SpareBlocks<Object>::operator delete(void* block) noexcept {
    Spare<Object>& own = Spare<Object>::Own;
    if (!own.Begun) {
        own.begin();
    }
    if (own.Room == 0) {
        ::operator delete(block);
        return;
    }
    --own.Room;
    own.First = new (block) typename Spare<Object>::Block{own.First};
}

template <class Object>
void SpareBlocks<Object>::end() noexcept {
    Spare<Object>& own = Spare<Object>::Own;
    own.Begun = true;
    own.Room = 0;
    while (own.First) {
        ::operator delete(std::exchange(own.First, own.First->Next));
    }
}

template class SpareBlocks<PlainContents>;
template class SpareBlocks<vxArray_tag>;

void endSpareBlocks() noexcept {
    SpareBlocks<PlainContents>::end();
    SpareBlocks<vxArray_tag>::end();
}

ArrayContents::ArrayContents(vxClassID classId, std::size_t rows, std::size_t columns)
    : ClassId(classId), Size{rows, columns}, Count(product(rows, columns)) {}

ArrayContents::~ArrayContents() = default;

PlainContents::PlainContents(vxClassID classId, std::size_t rows, std::size_t columns, Fill fill)
    : ArrayContents(classId, rows, columns), ByteCount(blockSize(classId, Count)),
      Block(ByteCount <= sizeof Small ? nullptr : allocateBlock(ByteCount, fill)) {
    if (!Block && fill == Fill::Zero) {
        std::memset(Small, 0, sizeof Small);
    }
}

PlainContents::PlainContents(const PlainContents& other)
    : PlainContents(other.ClassId, other.Size[0], other.Size[1], Fill::Undefined) {
    std::memcpy(elements<std::byte>(), other.elements<std::byte>(), ByteCount);
}

const char* PlainContents::className() const noexcept {
    return plainClass(ClassId)->Name;
}

vxArray_tag* makeArray(ContentsPtr contents) {
    auto* array = new vxArray_tag(std::move(contents));
    if (CallFrame* frame = CallFrame::current()) {
        frame->link(array);
    }
    return array;
}

vxArray_tag* makeText(std::u16string_view text) {
    return makePlainFrom(vxCHAR_CLASS, 1, text.size(), text.data());
}

vxArray_tag* makeAsciiText(std::string_view ascii) {
    boost::intrusive_ptr<PlainContents> contents(
        new PlainContents(vxCHAR_CLASS, 1, ascii.size(), PlainContents::Fill::Undefined));
    std::copy(ascii.begin(), ascii.end(), contents->elements<char16_t>());
    return makeArray(std::move(contents));
}

vxArray_tag* makeLogical(bool value) {
    return makeScalar<std::uint8_t>(vxLOGICAL_CLASS, value ? 1 : 0);
}

vxArray_tag* makeDouble(double value) {
    return makeScalar(vxDOUBLE_CLASS, value);
}

vxArray_tag* makeInt32(std::int32_t value) {
    return makeScalar(vxINT32_CLASS, value);
}

vxArray_tag* makeUInt64(std::uint64_t value) {
    return makeScalar(vxUINT64_CLASS, value);
}

vxArray_tag* makePlain(vxClassID classId, std::size_t rows, std::size_t columns) {
    return makeArray(new PlainContents(classId, rows, columns, PlainContents::Fill::Zero));
}

vxArray_tag* makePlainFrom(vxClassID classId, std::size_t rows, std::size_t columns, const void* elements) {
    boost::intrusive_ptr<PlainContents> contents(
        new PlainContents(classId, rows, columns, PlainContents::Fill::Undefined));
    if (contents->byteCount() != 0) {
        std::memcpy(contents->elements<std::byte>(), elements, contents->byteCount());
    }
    return makeArray(std::move(contents));
}

std::size_t elementCount(const vxArray_tag* array) noexcept {
    return array && array->Contents ? array->Contents->Count : 0;
}

double elementAsDouble(const vxArray_tag* array, std::size_t index) noexcept {
    const PlainContents* contents = plainContents(array);
    if (!contents || index >= contents->Count) {
        return 0;
    }
    switch (contents->ClassId) {
    case vxLOGICAL_CLASS:
    case vxUINT8_CLASS:
        return contents->elements<std::uint8_t>()[index];
    case vxINT32_CLASS:
        return contents->elements<std::int32_t>()[index];
    case vxUINT64_CLASS:
        return static_cast<double>(contents->elements<std::uint64_t>()[index]);
    case vxDOUBLE_CLASS:
        return contents->elements<double>()[index];
    default:
        return 0;
    }
}

bool isNumeric(vxClassID classId) noexcept {
    const PlainClass* row = plainClass(classId);
    return row && row->Numeric;
}

std::size_t elementSize(vxClassID classId) noexcept {
    const PlainClass* row = plainClass(classId);
    return row ? row->ElementSize : 0;
}

const PlainContents* plainContents(const vxArray_tag* array) noexcept {
    if (!array || !array->Contents || !plainClass(array->Contents->ClassId)) {
        return nullptr;
    }
    return static_cast<const PlainContents*>(array->Contents.get());
}

PlainContents* writablePlainContents(vxArray_tag* array) {
    const PlainContents* contents = plainContents(array);
    if (!contents) {
        return nullptr;
    }
    if (contents->use_count() > 1) {
        array->Contents = new PlainContents(*contents);
    }
    return static_cast<PlainContents*>(array->Contents.get());
}

std::u16string_view textElements(const PlainContents& contents) noexcept {
    return {contents.elements<char16_t>(), contents.Count};
}

std::size_t liveArrays() noexcept {
    return livingHandles.load(std::memory_order_relaxed);
}

} // namespace vantik::detail

vxArray_tag::vxArray_tag(vantik::detail::ContentsPtr contents) noexcept : Contents(std::move(contents)) {
    vantik::detail::livingHandles.fetch_add(1, std::memory_order_relaxed);
}

vxArray_tag::~vxArray_tag() {
    vantik::detail::livingHandles.fetch_sub(1, std::memory_order_relaxed);
}
