#include "python/extension/HostValues.h"

#include "vantik/Binding.h"
#include "vantik/Failure.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace netrove::python {

namespace {

using vantik::ElementClass;

// Numbers, truth values or members of an enumeration, which Python reads where they are.
struct ArrayValue {
    vantik::Array Content;
};

// The classes for each type of numbers, the first one first that holds all values.
using Classes = std::span<const ElementClass>;
constexpr ElementClass kLogical[] = {ElementClass::Logical};
constexpr ElementClass kUint8[] = {ElementClass::Uint8};
constexpr ElementClass kInt32[] = {ElementClass::Int32};
constexpr ElementClass kUint64[] = {ElementClass::Uint64};
constexpr ElementClass kDouble[] = {ElementClass::Double};
constexpr ElementClass kWide[] = {ElementClass::Int32, ElementClass::Uint64, ElementClass::Double};

struct ClassRow {
    std::string_view Name;
    Classes Only;
    const char* Format; // of Python's struct
};
// In the order of ElementClass.
constexpr ClassRow kClassRows[] = {
    {"logical", kLogical, "?"}, {"uint8", kUint8, "B"},   {"int32", kInt32, "i"},
    {"uint64", kUint64, "Q"},   {"double", kDouble, "d"},
};

const ClassRow& rowOf(ElementClass kind) {
    return kClassRows[static_cast<std::size_t>(kind)];
}

[[noreturn]] void refuseValue(const std::string& place, const std::string& why) {
    throw py::type_error(place + ": " + why);
}

std::string typeName(const py::handle& value) {
    return Py_TYPE(value.ptr())->tp_name;
}

// Half a number of floating point.
struct Half {
    char Bytes[2];
    operator double() const { return PyFloat_Unpack2(Bytes, std::endian::native == std::endian::little ? 1 : 0); }
};
// A truth value, which may be any byte.
struct Truth {
    unsigned char Byte;
};

// The same number in another type, if that has it.
template <class To, class From>
bool convert(const From& from, To& to) {
    if constexpr (std::same_as<From, Truth>) {
        to = static_cast<To>(from.Byte != 0);
        return true;
    } else if constexpr (std::same_as<From, Half>) {
        return convert(static_cast<double>(from), to);
    } else if constexpr (std::floating_point<To>) {
        to = static_cast<To>(from);
        if constexpr (std::integral<From>) {
            constexpr double beyond = std::same_as<From, std::uint64_t> ? 0x1p64 : 0x1p63;
            return to < beyond && static_cast<From>(to) == from;
        }
        return true;
    } else if constexpr (std::floating_point<From>) {
        // Limits that are powers of two, or zero, are exact.
        const double value = static_cast<double>(from);
        const double beyond = std::ldexp(1.0, std::numeric_limits<To>::digits);
        if (!(value >= static_cast<double>(std::numeric_limits<To>::min()) && value < beyond) ||
            std::trunc(value) != value) {
            return false;
        }
        to = static_cast<To>(value);
        return true;
    } else {
        to = static_cast<To>(from); // NOLINT(bugprone-signed-char-misuse): a number of eight bits, no letter
        return std::in_range<To>(from);
    }
}

// Elements of one type somewhere in memory.
struct Grid {
    const char* Data;
    std::size_t Rows, Columns;
    std::ptrdiff_t RowStep, ColumnStep; // in bytes
};

template <class To, class From>
bool fill(std::span<std::byte> room, const Grid& grid) {
    if constexpr (std::same_as<To, From>) {
        if (grid.RowStep == sizeof(From) &&
            (grid.Columns <= 1 || grid.ColumnStep == static_cast<std::ptrdiff_t>(grid.Rows * sizeof(From)))) {
            if (!room.empty()) {
                std::memcpy(room.data(), grid.Data, room.size());
            }
            return true;
        }
    }
    std::byte* target = room.data();
    for (std::size_t column = 0; column < grid.Columns; ++column) {
        const char* source = grid.Data + static_cast<std::ptrdiff_t>(column) * grid.ColumnStep;
        for (std::size_t row = 0; row < grid.Rows; ++row, source += grid.RowStep, target += sizeof(To)) {
            From from;
            To to;
            std::memcpy(&from, source, sizeof from);
            if (!convert(from, to)) {
                return false;
            }
            std::memcpy(target, &to, sizeof to);
        }
    }
    return true;
}

template <class From>
bool fillAs(ElementClass kind, std::span<std::byte> room, const Grid& grid) {
    switch (kind) {
    case ElementClass::Logical:
        if constexpr (std::same_as<From, Truth>) {
            return fill<std::uint8_t, Truth>(room, grid);
        }
        return false;
    case ElementClass::Uint8:
        return fill<std::uint8_t, From>(room, grid);
    case ElementClass::Int32:
        return fill<std::int32_t, From>(room, grid);
    case ElementClass::Uint64:
        return fill<std::uint64_t, From>(room, grid);
    case ElementClass::Double:
        return fill<double, From>(room, grid);
    }
    return false;
}

template <class From>
vantik::Array arrayOf(const Grid& grid, Classes classes, const std::string& place) {
    for (const ElementClass kind : classes) {
        vantik::Array array = vantik::makeElements(kind, grid.Rows, grid.Columns);
        if (fillAs<From>(kind, vantik::writableElements(array), grid)) {
            return array;
        }
    }
    refuseValue(place, classes.size() == 1 ? "some value is not one of the class " + std::string(rowOf(classes[0]).Name)
                                           : "no class of numbers holds all values exactly");
}

// One dimension: bytes are a column, everything else is a row.
template <class From>
vantik::Array vectorOf(std::span<const From> values, Classes classes, const std::string& place) {
    const bool isColumn = classes[0] == ElementClass::Uint8;
    return arrayOf<From>({reinterpret_cast<const char*>(values.data()), isColumn ? values.size() : 1,
                          isColumn ? 1 : values.size(), static_cast<std::ptrdiff_t>(sizeof(From)),
                          static_cast<std::ptrdiff_t>(sizeof(From))},
                         classes, place);
}

// The memory of a Python object as long as this lives.
class BufferView {
public:
    BufferView(const py::handle& object, const std::string& place) {
        if (PyObject_GetBuffer(object.ptr(), &View, PyBUF_RECORDS_RO) != 0) {
            PyErr_Clear();
            refuseValue(place, "the memory of " + typeName(object) + " cannot be read");
        }
    }
    ~BufferView() { PyBuffer_Release(&View); }
    BufferView(const BufferView&) = delete;
    BufferView& operator=(const BufferView&) = delete;
    const Py_buffer* operator->() const { return &View; }

private:
    Py_buffer View{};
};

// The character for one element's type, in this machine's byte order; NUL for every other format.
char typeCharacter(const char* format, Py_ssize_t size) {
    std::string_view text = format == nullptr ? "B" : format;
    const char native = std::endian::native == std::endian::little ? '<' : '>';
    if (text.size() == 2 && (text[0] == '@' || text[0] == '=' || text[0] == native || size == 1)) {
        text.remove_prefix(1);
    }
    return text.size() == 1 ? text[0] : '\0';
}

vantik::Array arrayOfType(char type, Py_ssize_t size, const Grid& grid, Classes only, const std::string& place) {
    const auto as = [&]<class From>(std::type_identity<From>, Classes natural) {
        return arrayOf<From>(grid, only.empty() ? natural : only, place);
    };
    if (type == '?') {
        return as(std::type_identity<Truth>(), kLogical);
    }
    if (std::string_view("BcHILQN").find(type) != std::string_view::npos) {
        switch (size) {
        case 1:
            return as(std::type_identity<std::uint8_t>(), kUint8);
        case 2:
            return as(std::type_identity<std::uint16_t>(), kInt32);
        case 4:
            return as(std::type_identity<std::uint32_t>(), kUint64);
        case 8:
            return as(std::type_identity<std::uint64_t>(), kUint64);
        default:
            break;
        }
    } else if (std::string_view("bhilqn").find(type) != std::string_view::npos) {
        switch (size) {
        case 1:
            return as(std::type_identity<std::int8_t>(), kInt32);
        case 2:
            return as(std::type_identity<std::int16_t>(), kInt32);
        case 4:
            return as(std::type_identity<std::int32_t>(), kInt32);
        case 8:
            return as(std::type_identity<std::int64_t>(), kWide);
        default:
            break;
        }
    } else if (type == 'e') {
        return as(std::type_identity<Half>(), kDouble);
    } else if (type == 'f') {
        return as(std::type_identity<float>(), kDouble);
    } else if (type == 'd') {
        return as(std::type_identity<double>(), kDouble);
    }
    refuseValue(place, "elements of this type cannot be given to the host");
}

vantik::Array arrayOfBuffer(const py::handle& object, Classes only, const std::string& place) {
    const BufferView view(object, place);
    if (view->ndim > 2) {
        refuseValue(place, "an array of " + std::to_string(view->ndim) + " dimensions; the host has two");
    }
    const char type = typeCharacter(view->format, view->itemsize);
    if (type == '\0') {
        refuseValue(place, "elements of the type '" + std::string(view->format) + "' cannot be given to the host");
    }
    Grid grid{static_cast<const char*>(view->buf), 1, 1, view->itemsize, view->itemsize};
    if (view->ndim == 2) {
        grid = {static_cast<const char*>(view->buf), static_cast<std::size_t>(view->shape[0]),
                static_cast<std::size_t>(view->shape[1]), view->strides[0], view->strides[1]};
    } else if (view->ndim == 1) {
        const auto count = static_cast<std::size_t>(view->shape[0]);
        const bool isColumn = only.empty() ? view->itemsize == 1 && std::string_view("Bc").find(type) < 2
                                           : only[0] == ElementClass::Uint8;
        grid = {static_cast<const char*>(view->buf), isColumn ? count : 1, isColumn ? 1 : count, view->strides[0],
                view->strides[0]};
    }
    return arrayOfType(type, view->itemsize, grid, only, place);
}

vantik::Array textForHost(const py::handle& value) {
    const auto units = py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(
        value.ptr(), std::endian::native == std::endian::little ? "utf-16-le" : "utf-16-be", "surrogatepass"));
    if (!units) {
        throw py::error_already_set();
    }
    const std::string_view bytes(units);
    std::u16string text(bytes.size() / 2, u'\0');
    std::memcpy(text.data(), bytes.data(), bytes.size());
    return {text};
}

// An integer in 64 bits, and whether it takes all of them without a sign.
std::pair<bool, std::uint64_t> bitsOf(const py::handle& value, const std::string& place) {
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow == 0) {
        return {false, static_cast<std::uint64_t>(number)};
    }
    const unsigned long long large = overflow > 0 ? PyLong_AsUnsignedLongLong(value.ptr()) : 0;
    if (overflow < 0 || PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        refuseValue(place, "no class of numbers holds " + std::string(py::str(value)) + " exactly");
    }
    return {true, large};
}

vantik::Array integerOf(const py::handle& value, const std::string& place) {
    const auto [isLarge, bits] = bitsOf(value, place);
    if (isLarge) {
        return {bits};
    }
    const std::int64_t one[] = {static_cast<std::int64_t>(bits)};
    return vectorOf<std::int64_t>(one, kWide, place);
}

// Values within values are converted on the stack, and so is what the host does with them. Raises RecursionError.
class Nested {
public:
    Nested() {
        if (Depth == kDeepest) {
            PyErr_SetString(PyExc_RecursionError, "a value for the host is nested too deeply");
            throw py::error_already_set();
        }
        ++Depth;
    }
    ~Nested() { --Depth; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

private:
    static constexpr int kDeepest = 100;
    static thread_local int Depth;
};
thread_local int Nested::Depth = 0;

std::string elementPlace(const std::string& place, std::size_t index) {
    return place + "[" + std::to_string(index) + "]";
}

// Numbers and truth values of Python in a list. Integers among others become double, if they are held exactly.
vantik::Array numbersOf(const std::vector<py::object>& items, Classes only, const std::string& place) {
    bool areTruths = true;
    bool areIntegers = true;
    for (std::size_t index = 0; index < items.size(); ++index) {
        const py::object& item = items[index];
        if (!PyLong_Check(item.ptr()) && !PyFloat_Check(item.ptr())) {
            refuseValue(elementPlace(place, index), "a value of the type " + typeName(item) + " in a list of numbers");
        }
        areTruths = areTruths && PyBool_Check(item.ptr());
        areIntegers = areIntegers && PyLong_Check(item.ptr());
    }
    if (areTruths && !items.empty()) {
        std::vector<Truth> values;
        values.reserve(items.size());
        for (const py::object& item : items) {
            values.push_back({static_cast<unsigned char>(item.is(py::handle(Py_True)) ? 1 : 0)});
        }
        return vectorOf<Truth>(values, only.empty() ? Classes(kLogical) : only, place);
    }
    std::vector<std::int64_t> integers;
    std::vector<std::uint64_t> large; // the same, where some need it
    std::vector<double> doubles;
    bool needLarge = false;
    std::optional<std::size_t> negative;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (PyFloat_Check(items[index].ptr())) {
            doubles.push_back(PyFloat_AS_DOUBLE(items[index].ptr()));
            continue;
        }
        const auto [isLarge, bits] = bitsOf(items[index], elementPlace(place, index));
        const auto number = static_cast<std::int64_t>(bits);
        needLarge = needLarge || isLarge;
        if (!isLarge && number < 0) {
            negative = index;
        }
        integers.push_back(number);
        large.push_back(bits);
        double& asDouble = doubles.emplace_back();
        if (!(isLarge ? convert(bits, asDouble) : convert(number, asDouble)) && !areIntegers) {
            refuseValue(elementPlace(place, index), "an integer that no double holds exactly, among others");
        }
    }
    if (!areIntegers || items.empty()) {
        return vectorOf<double>(doubles, only.empty() ? Classes(kDouble) : only, place);
    }
    if (!needLarge) {
        return vectorOf<std::int64_t>(integers, only.empty() ? Classes(kWide) : only, place);
    }
    if (negative) {
        refuseValue(elementPlace(place, *negative), "a negative number, where another one needs the class uint64");
    }
    return vectorOf<std::uint64_t>(large, only.empty() ? Classes(kUint64) : only, place);
}

std::vector<py::object> itemsOf(const py::handle& sequence) {
    std::vector<py::object> items;
    for (const py::handle item : sequence) {
        items.push_back(py::reinterpret_borrow<py::object>(item));
    }
    return items;
}

// One element for each mapping, all with the names of the first.
vantik::Array structOf(const std::vector<py::object>& rows, bool single, const std::string& place,
                       ObjectValues& objects) {
    const Nested nested;
    std::vector<std::string> names;
    std::vector<std::vector<vantik::Array>> values;
    for (std::size_t index = 0; index < rows.size(); ++index) {
        const std::string here = single ? place : elementPlace(place, index);
        if (!PyDict_Check(rows[index].ptr())) {
            refuseValue(here, "a value of the type " + typeName(rows[index]) + " in a list of dict");
        }
        const auto row = py::reinterpret_borrow<py::dict>(rows[index]);
        if (index == 0) {
            for (const auto& [name, value] : row) {
                if (!py::isinstance<py::str>(name)) {
                    refuseValue(here, "the name of a field is text, not " + typeName(name));
                }
                names.push_back(name.cast<std::string>());
            }
        }
        std::vector<vantik::Array> fields;
        for (const std::string& name : names) {
            if (!row.contains(name)) {
                refuseValue(here, "there is no '" + name + "', which the first one has");
            }
            fields.push_back(hostValue(row[name.c_str()], here + "['" + name + "']", objects));
        }
        if (row.size() != names.size()) {
            refuseValue(here, "there are names that the first one does not have");
        }
        values.push_back(std::move(fields));
    }
    return vantik::Array::structures(names, values);
}

// A list or tuple: of numbers, or of dicts.
vantik::Array sequenceOf(const py::handle& value, const std::string& place, ObjectValues& objects) {
    const std::vector<py::object> items = itemsOf(value);
    if (!items.empty() && PyDict_Check(items[0].ptr())) {
        return structOf(items, false, place, objects);
    }
    return numbersOf(items, {}, place);
}

py::object dictOf(const vantik::Array& value, const std::vector<std::string>& names, std::size_t index,
                  ObjectValues& objects) {
    py::dict result;
    for (const std::string& name : names) {
        result[py::str(name)] = pythonValue(value.field(name, index), false, objects);
    }
    return result;
}

py::object structFrom(const vantik::Array& value, bool isVector, ObjectValues& objects) {
    const std::vector<std::string> names = value.fieldNames();
    if (value.size() == 1 && !isVector) {
        return dictOf(value, names, 0, objects);
    }
    py::list rows;
    for (std::size_t index = 0; index < value.size(); ++index) {
        rows.append(dictOf(value, names, index, objects));
    }
    return rows;
}

py::object textFrom(const vantik::Array& value) {
    const std::u16string text = value.wideText();
    int order = std::endian::native == std::endian::little ? -1 : 1;
    auto result = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF16(
        reinterpret_cast<const char*>(text.data()), static_cast<Py_ssize_t>(text.size() * 2), "surrogatepass", &order));
    if (!result) {
        throw py::error_already_set();
    }
    return result;
}

py::object scalarFrom(ElementClass kind, const vantik::Array& value) {
    switch (kind) {
    case ElementClass::Logical:
        return py::bool_(value.truth());
    case ElementClass::Double:
        return py::float_(value.number());
    case ElementClass::Uint64:
        return py::int_(value.unsignedInteger());
    default:
        return py::int_(static_cast<long long>(value.number()));
    }
}

// A vector has one dimension in Python.
py::buffer_info bufferOf(const ArrayValue& self) {
    const auto kind = vantik::elementClass(self.Content);
    if (!kind) {
        throw py::type_error("members of an enumeration have no memory to be read; see tolist()");
    }
    const std::span<const std::byte> bytes = vantik::elements(self.Content);
    const std::vector<std::size_t> size = self.Content.dimensions();
    const auto rows = static_cast<py::ssize_t>(size[0]);
    const auto columns = static_cast<py::ssize_t>(size[1]);
    const py::ssize_t count = rows * columns;
    const py::ssize_t step = *kind == ElementClass::Double || *kind == ElementClass::Uint64 ? 8
                             : *kind == ElementClass::Int32                                 ? 4
                                                                                            : 1;
    auto* const data = const_cast<std::byte*>(bytes.data()); // which nobody writes to
    const char* const format = rowOf(*kind).Format;
    if (rows <= 1 || columns <= 1) {
        return {data, step, format, 1, {count}, {step}, true};
    }
    return {data, step, format, 2, {rows, columns}, {step, step * rows}, true};
}

bool isNumbers(const ArrayValue& self) {
    return vantik::elementClass(self.Content).has_value();
}

// What Python does with it: the memory, or the names.
py::object viewOf(const py::object& self) {
    const auto& own = self.cast<const ArrayValue&>();
    if (!isNumbers(own)) {
        return py::cast(vantik::members(own.Content));
    }
    return py::memoryview(self);
}

py::object listOf(const py::object& self) {
    const py::object view = viewOf(self);
    return PyList_Check(view.ptr()) ? view : view.attr("tolist")();
}

py::object isEqual(const py::object& self, const py::object& other) {
    const bool isArray = py::isinstance<ArrayValue>(other);
    if (isArray) {
        const auto& one = self.cast<const ArrayValue&>().Content;
        const auto& two = other.cast<const ArrayValue&>().Content;
        if (one.className() != two.className() || one.dimensions() != two.dimensions()) {
            return py::bool_(false);
        }
    } else if (PyObject_CheckBuffer(other.ptr()) != 0) {
        return py::bool_(viewOf(self).equal(other));
    } else if (!PyList_Check(other.ptr()) && !PyTuple_Check(other.ptr())) {
        return py::reinterpret_borrow<py::object>(Py_NotImplemented);
    }
    return py::bool_(listOf(self).equal(isArray ? listOf(other) : py::list(other)));
}

std::string described(const ArrayValue& self) {
    const std::vector<std::size_t> size = self.Content.dimensions();
    return "<netrove.host.Array " + std::to_string(size[0]) + "-by-" + std::to_string(size[1]) + " " +
           self.Content.className() + ">";
}

ArrayValue arrayFrom(const py::object& value, const std::optional<std::string>& className) {
    const std::string place = "value";
    if (!className) {
        struct NoObjects final : ObjectValues {
            py::object objectFromHost(vantik::Array) override { return py::none(); }
            std::optional<vantik::Array> objectForHost(const py::handle&) override { return std::nullopt; }
        } none;
        vantik::Array content = hostValue(value, place, none);
        if (!vantik::elementClass(content) && !vantik::members(content)) {
            refuseValue(place, "an array has numbers or truth values, not " + typeName(value));
        }
        return {std::move(content)};
    }
    for (const ClassRow& row : kClassRows) {
        if (row.Name != *className) {
            continue;
        }
        if (PyObject_CheckBuffer(value.ptr()) != 0) {
            return {arrayOfBuffer(value, row.Only, place)};
        }
        const bool isList = PyList_Check(value.ptr()) || PyTuple_Check(value.ptr());
        return {numbersOf(isList ? itemsOf(value) : std::vector<py::object>{value}, row.Only, place)};
    }
    throw py::value_error("there is no class of numbers '" + *className + "': logical, uint8, int32, uint64, double");
}

} // namespace

ObjectValues::~ObjectValues() = default;

vantik::Array hostValue(const py::handle& value, const std::string& place, ObjectValues& objects) {
    PyObject* const object = value.ptr();
    if (value.is_none()) {
        return {};
    }
    if (PyBool_Check(object)) {
        return {object == Py_True};
    }
    if (PyLong_Check(object)) {
        return integerOf(value, place);
    }
    if (PyFloat_Check(object)) {
        return {PyFloat_AS_DOUBLE(object)};
    }
    if (PyUnicode_Check(object)) {
        return textForHost(value);
    }
    if (py::isinstance<ArrayValue>(value)) {
        return value.cast<const ArrayValue&>().Content;
    }
    if (auto known = objects.objectForHost(value)) {
        return std::move(*known);
    }
    if (PyObject_CheckBuffer(object) != 0) {
        return arrayOfBuffer(value, {}, place);
    }
    if (PyDict_Check(object)) {
        return structOf({py::reinterpret_borrow<py::object>(value)}, true, place, objects);
    }
    if (PyList_Check(object) || PyTuple_Check(object)) {
        return sequenceOf(value, place, objects);
    }
    if (PyIndex_Check(object)) {
        const auto number = py::reinterpret_steal<py::object>(PyNumber_Index(object));
        if (!number) {
            throw py::error_already_set();
        }
        return integerOf(number, place);
    }
    refuseValue(place, "a value of the type " + typeName(value) + " cannot be given to the host");
}

py::object pythonValue(vantik::Array value, bool isVector, ObjectValues& objects) {
    const std::string name = value.className();
    if (name.empty()) {
        return py::none();
    }
    if (name == "char") {
        return textFrom(value);
    }
    if (name == "struct") {
        return structFrom(value, isVector, objects);
    }
    const auto kind = vantik::elementClass(value);
    if (kind && *kind != ElementClass::Uint8 && !isVector && value.size() == 1) {
        return scalarFrom(*kind, value);
    }
    if (kind || vantik::members(value)) {
        return arrayValue(std::move(value));
    }
    return objects.objectFromHost(std::move(value));
}

py::object arrayValue(vantik::Array value) {
    return py::cast(ArrayValue{std::move(value)});
}

void defineHostValues(py::module_& module) {
    py::class_<ArrayValue>(module, "Array", py::buffer_protocol())
        .def(py::init(&arrayFrom), py::arg("value"), py::arg("class_name") = py::none())
        .def_static(
            "enumeration",
            [](const std::string& className, const std::vector<std::string>& members) {
                return ArrayValue{vantik::Array::enumeration(className, std::span<const std::string>(members))};
            },
            py::arg("class_name"), py::arg("members"))
        .def_buffer(&bufferOf)
        .def_property_readonly("class_name", [](const ArrayValue& self) { return self.Content.className(); })
        .def_property_readonly("dimensions",
                               [](const ArrayValue& self) {
                                   const std::vector<std::size_t> size = self.Content.dimensions();
                                   return py::make_tuple(size[0], size[1]);
                               })
        .def_property_readonly("members", [](const ArrayValue& self) { return vantik::members(self.Content); })
        .def("tolist", &listOf)
        .def(
            "decode",
            [](const py::object& self, const std::string& encoding, const std::string& errors) {
                return viewOf(self).attr("tobytes")().attr("decode")(encoding, errors);
            },
            py::arg("encoding") = "utf-8", py::arg("errors") = "strict")
        .def("__len__", [](const ArrayValue& self) { return self.Content.size(); })
        .def("__getitem__",
             [](const py::object& self, const py::object& key) -> py::object { return viewOf(self)[key]; })
        .def("__iter__", [](const py::object& self) { return py::iter(listOf(self)); })
        .def("__bytes__", [](const py::object& self) { return viewOf(self).attr("tobytes")(); })
        .def("__eq__", &isEqual)
        .def("__repr__", &described)
        .attr("__hash__") = py::none();
}

} // namespace netrove::python
