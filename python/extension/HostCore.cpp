#include "python/extension/HostCore.h"

#include "vantik/Binding.h"
#include "vantik/Failure.h"
#include "vantik/Http.h"

#include <netrove/error.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <new>
#include <tuple>
#include <utility>

namespace netrove::python {

namespace {

// What the Python part has for what the host hands out. Never freed: it lives as long as the interpreter.
struct Makers {
    PyObject* Failure = nullptr; // (identifier, arguments, text, interrupted, by program) to an exception
    PyObject* Object = nullptr;  // a HostObject to what Python programs see of it
    PyObject* ObjectType = nullptr;
    PyObject* Warning = nullptr; // shows (identifier, text)
} makers;

[[noreturn]] void raiseFailure(const vantik::Failure& failure, bool interrupted, bool byProgram) {
    py::list arguments;
    for (const vantik::MessageArgument& argument : failure.message().Arguments) {
        arguments.append(py::cast(argument));
    }
    const py::object exception = py::handle(makers.Failure)(
        failure.identifier(), arguments, vantik::withoutSecrets(failure.what()), interrupted, byProgram);
    PyErr_SetObject(py::type::of(exception).ptr(), exception.ptr());
    throw py::error_already_set();
}

// Makes Python's exceptions of the host's failures. With the GIL.
template <class Run>
auto raisingFailures(Run run) {
    try {
        return run();
    } catch (const vantik::Interrupted& stop) {
        raiseFailure(stop, true, stop.byProgram());
    } catch (const vantik::Failure& failure) {
        raiseFailure(failure, false, false);
    }
}

// As the Python part describes a method.
using MethodTuple = std::tuple<std::string, std::string, bool, HostCore::Types, HostCore::Types>;

// Python remembers where it found a name by the text object.
py::object interned(const std::string& name) {
    return py::reinterpret_steal<py::object>(PyUnicode_InternFromString(name.c_str()));
}

bool isVector(const std::string& typeWord) {
    return typeWord.ends_with(" vector");
}

} // namespace

// One operation of the thread that is in the host. Made and ended with the GIL.
class HostCore::Occupied {
public:
    explicit Occupied(HostCore& core)
        : Core(core), OuterWatch(core.Watch), OuterRaised(std::exchange(core.Raised, nullptr)) {
        Core.Thread = PyThread_get_thread_ident();
        ++Core.Depth;
    }
    ~Occupied() {
        Core.Watch = OuterWatch;
        Core.Raised = std::move(OuterRaised);
        if (Core.Depth == 1) {
            // What is dropped may drop more.
            while (!Core.Dropped.empty()) {
                const std::vector<vantik::Object> gone = std::exchange(Core.Dropped, {});
            }
        }
        --Core.Depth;
    }
    Occupied(const Occupied&) = delete;
    Occupied& operator=(const Occupied&) = delete;

private:
    HostCore& Core;
    const SignalWatch* OuterWatch;
    std::exception_ptr OuterRaised;
};

HostCore::HostCore() {
    const GilBreak released;
    Own = std::make_unique<vantik::Host>();
    Own->onInterruptCheck([this] { return asksToStop(); });
    Own->onWarning([this](const vantik::Message& message) { warn(message); });
}

// Connections are shared with the parent after a fork; to end one would end the parent's.
HostCore::~HostCore() {
    if (Generation != processGeneration()) {
        static_cast<void>(Own.release());
        return;
    }
    const GilBreak released;
    Own.reset();
}

vantik::Host& HostCore::existing() {
    requireOwnProcess(Generation);
    if (!Own) {
        throw Error(ErrorKind::Usage, "NETROVE:client:Usage", {}, "the host is closed");
    }
    return *Own;
}

vantik::Host& HostCore::open() {
    vantik::Host& host = existing();
    if (Depth != 0 && Thread != PyThread_get_thread_ident()) {
        throw Error(ErrorKind::Usage, "NETROVE:client:InUse", {},
                    "the host is in use by another thread: one operation at a time");
    }
    return host;
}

// Runs with the GIL, while no other thread may use the host or its objects.
template <class Run>
auto HostCore::perform(Run run) {
    vantik::Host& host = open();
    const Occupied occupied(*this); // at once: handlers of signals may let other threads run
    const SignalWatch watch;
    Watch = &watch;
    const Running running([&host] { host.interrupt(); });
    return raisingFailures([&] { return run(host); });
}

// The part of an operation that needs no Python.
template <class Run>
auto HostCore::released(Run run) {
    std::exception_ptr failure;
    std::optional<decltype(run())> result;
    {
        const py::gil_scoped_release noGil;
        try {
            result.emplace(run());
        } catch (...) {
            failure = std::current_exception();
        }
    }
    if (std::exchange(AskedToStop, false)) {
        Own->clearInterrupt();
    }
    if (Raised) {
        failure = std::exchange(Raised, nullptr);
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    return std::move(*result);
}

bool HostCore::asksToStop() noexcept {
    try {
        if (Watch != nullptr) {
            Watch->poll();
        }
        return false;
    } catch (...) {
        Raised = std::current_exception();
        AskedToStop = true;
        return true;
    }
}

void HostCore::warn(const vantik::Message& message) noexcept {
    const py::gil_scoped_acquire gil;
    try {
        py::handle(makers.Warning)(message.identifier(), vantik::withoutSecrets(message.Text));
    } catch (...) {
        Raised = std::current_exception();
    }
}

void HostCore::drop(vantik::Object object) noexcept {
    if (Generation != processGeneration()) {
        static_cast<void>(new (std::nothrow) vantik::Object(std::move(object)));
    } else if (object && Depth != 0 && Thread != PyThread_get_thread_ident()) {
        Dropped.push_back(std::move(object));
    }
}

std::vector<vantik::Array> HostCore::hostValues(const py::tuple& arguments, const std::string& place) {
    std::vector<vantik::Array> values;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        values.push_back(hostValue(arguments[index], "input " + std::to_string(index + 1) + " of " + place, *this));
    }
    return values;
}

void HostCore::load(const std::string& module) {
    perform([&](vantik::Host& host) {
        released([&] {
            host.load(module);
            return true;
        });
    });
}

py::object HostCore::create(const std::string& className, const py::args& arguments) {
    return perform([&](vantik::Host& host) {
        const std::vector<vantik::Array> inputs = hostValues(arguments, className);
        const vantik::Object object = released([&] { return host.create(className, std::span(inputs)); });
        return objectFromHost(object.array());
    });
}

py::object HostCore::callBuiltin(const std::string& name, const py::args& arguments) {
    return perform([&](vantik::Host& host) {
        const std::vector<vantik::Array> inputs = hostValues(arguments, name);
        return pythonValue(released([&] { return host.callBuiltin(name, std::span(inputs)); }), false, *this);
    });
}

py::tuple HostCore::describe(const std::string& className) {
    return perform([&](vantik::Host& host) {
        const vantik::ClassDescription found = host.describe(className);
        py::list properties;
        for (const vantik::PropertyDescription& property : found.Properties) {
            properties.append(py::make_tuple(property.Name, property.Type, property.Description, property.Settable));
        }
        py::list methods;
        for (const vantik::MethodDescription& method : found.Methods) {
            methods.append(
                py::make_tuple(method.Name, method.Inputs, method.Outputs, method.OptionalInputs, method.Declared));
        }
        return py::make_tuple(found.Name, found.BaseClasses, properties, methods, found.Members, found.Abstract);
    });
}

std::vector<std::string> HostCore::classNames() {
    return perform([](vantik::Host& host) { return host.classNames(); });
}

void HostCore::treatAsFailure(const std::string& identifier) {
    perform([&](vantik::Host& host) { host.treatAsFailure(identifier); });
}

void HostCore::onImpersonation(const py::object& entry, const py::object& exit) {
    const auto hook = [](const py::object& callable) -> std::function<void()> {
        if (callable.is_none()) {
            return {};
        }
        return [callable = held(callable)] {
            const py::gil_scoped_acquire gil;
            (*callable)();
        };
    };
    perform([&](vantik::Host& host) { host.onImpersonation(hook(entry), hook(exit)); });
}

void HostCore::close() {
    if (Generation != processGeneration() || !Own) {
        return;
    }
    if (Depth != 0) {
        throw Error(ErrorKind::Usage, "NETROVE:client:InUse", {}, "the host is in use, so it cannot be closed");
    }
    std::unique_ptr<vantik::Host> own = std::move(Own);
    std::vector<vantik::Object> left;
    for (HostObject* object : Objects) {
        left.push_back(std::move(object->Value));
    }
    {
        const GilBreak released;
        left.clear();
        own.reset();
    }
    Classes.clear();
}

void HostCore::interrupt() noexcept {
    if (Own && Generation == processGeneration()) {
        Own->interrupt();
    }
}

void HostCore::clearInterrupt() {
    existing().clearInterrupt();
}

void HostCore::interruptAfter(double seconds) {
    constexpr double longest = 1e9; // beyond that is never
    existing().interruptAfter(
        seconds < longest ? std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds))
                          : std::chrono::nanoseconds::max());
}

bool HostCore::interruptPending() {
    return existing().interruptPending();
}

bool HostCore::wasInterrupted() {
    return existing().wasInterrupted();
}

void HostCore::define(const py::type& type, const std::string& name, const std::vector<std::string>& bases,
                      const std::vector<MethodRow>& methods) {
    perform([&](vantik::Host& host) {
        vantik::HostClass definition(name);
        for (const std::string& base : bases) {
            definition.derivesFrom(base);
        }
        const Held made = held(type);
        definition.method(name.substr(name.rfind('.') + 1), [this, made, name](std::span<const vantik::Array> inputs) {
            const py::gil_scoped_acquire gil;
            py::object instance = std::exchange(Adopted, {});
            if (!instance) {
                instance = (*made)(*pythonValues(inputs.subspan(1), {}));
            }
            vantik::attach(vantik::Object(inputs[0]), held(std::move(instance)));
            return std::vector<vantik::Array>();
        });
        for (const MethodRow& row : methods) {
            const vantik::Method body = [this, row](std::span<const vantik::Array> inputs) {
                const py::gil_scoped_acquire gil;
                return runMethod(row, inputs);
            };
            if (row.Declared) {
                definition.method(row.Name, row.Inputs, row.Outputs, body);
            } else {
                definition.method(row.Name, body);
            }
        }
        definition.defineIn(host);
        Classes.insert_or_assign(type.ptr(), std::pair(made, name));
    });
}

py::tuple HostCore::pythonValues(std::span<const vantik::Array> values, const Types& types) {
    py::tuple all(values.size());
    for (std::size_t index = 0; index < values.size(); ++index) {
        all[index] = pythonValue(values[index], index < types.size() && isVector(types[index]), *this);
    }
    return all;
}

// Several results are a tuple.
std::vector<vantik::Array> HostCore::runMethod(const MethodRow& row, std::span<const vantik::Array> inputs) {
    const py::object instance = objectFromHost(inputs[0]);
    const py::object given = instance.attr(*row.Attribute)(*pythonValues(inputs.subspan(1), row.Inputs));
    std::vector<vantik::Array> results;
    const auto add = [&](const py::handle& value) {
        const std::string place = "result " + std::to_string(results.size() + 1) + " of " + row.Name;
        results.push_back(hostValue(value, place, *this));
    };
    if (PyTuple_Check(given.ptr())) {
        for (const py::handle value : given) {
            add(value);
        }
    } else if (!given.is_none() || !row.Outputs.empty()) {
        add(given);
    }
    return results;
}

py::object HostCore::objectFromHost(vantik::Array array) {
    vantik::Object object(std::move(array));
    if (const std::shared_ptr<void> instance = vantik::attached(object)) {
        return *static_cast<const py::object*>(instance.get());
    }
    return seen(std::move(object));
}

py::object HostCore::seen(vantik::Object object) {
    return py::handle(makers.Object)(std::make_unique<HostObject>(shared_from_this(), std::move(object)));
}

py::object HostCore::wrap(const py::object& instance) {
    return perform([&](vantik::Host&) -> py::object {
        std::optional<vantik::Array> object = objectForHost(instance);
        return object ? seen(vantik::Object(std::move(*object))) : py::none();
    });
}

// The name in the host of the nearest class that was defined; null for what is not of one.
const std::string* HostCore::classNameOf(const py::handle& value) const {
    if (Classes.empty()) {
        return nullptr;
    }
    for (const py::handle type : py::reinterpret_borrow<py::tuple>(Py_TYPE(value.ptr())->tp_mro)) {
        if (const auto known = Classes.find(type.ptr()); known != Classes.end()) {
            return &known->second.second;
        }
    }
    return nullptr;
}

bool HostCore::defines(const py::object& value) const {
    return classNameOf(value) != nullptr;
}

std::optional<vantik::Array> HostCore::objectForHost(const py::handle& value) {
    if (PyObject_TypeCheck(value.ptr(), reinterpret_cast<PyTypeObject*>(makers.ObjectType)) != 0) {
        const auto& object = value.attr("_core").cast<const HostObject&>();
        if (!object.Value) {
            throw Error(ErrorKind::Usage, "NETROVE:client:Usage", {}, "the host of this object is closed");
        }
        return object.Value.array();
    }
    const std::string* const name = classNameOf(value);
    if (name == nullptr) {
        return std::nullopt;
    }
    return perform([&](vantik::Host& host) {
        Adopted = py::reinterpret_borrow<py::object>(value);
        try {
            return released([&] { return vantik::Array(host.create(*name).array()); });
        } catch (...) {
            Adopted = {};
            throw;
        }
    });
}

HostObject::HostObject(std::shared_ptr<HostCore> core, vantik::Object value)
    : Core(std::move(core)), Value(std::move(value)) {
    Core->Objects.insert(this);
}

HostObject::~HostObject() {
    Core->Objects.erase(this);
    Core->drop(std::move(Value));
}

py::object HostObject::get(const std::string& property, bool isVector) {
    return Core->perform([&](vantik::Host&) {
        return pythonValue(Core->released([&] { return Value.get(property); }), isVector, *Core);
    });
}

void HostObject::set(const std::string& property, const py::object& value, const std::string& place) {
    Core->perform([&](vantik::Host&) {
        const vantik::Array given = hostValue(value, place, *Core);
        Core->released([&] {
            Value.set(property, given);
            return true;
        });
    });
}

py::list HostObject::call(const std::string& method, const py::tuple& arguments, int wanted,
                          const std::vector<bool>& vectors) {
    return Core->perform([&](vantik::Host&) {
        const std::vector<vantik::Array> inputs = Core->hostValues(arguments, method);
        py::list results;
        for (const vantik::Array& result :
             Core->released([&] { return Value.call(method, std::span(inputs), wanted); })) {
            const std::size_t index = results.size();
            results.append(pythonValue(result, index < vectors.size() && vectors[index], *Core));
        }
        return results;
    });
}

std::string HostObject::className() {
    return Core->perform([&](vantik::Host&) { return Value.className(); });
}

bool HostObject::isA(const std::string& className) {
    return Core->perform([&](vantik::Host&) { return Value.isA(className); });
}

void defineHost(py::module_& module) {
    defineHostValues(module);
    py::class_<HostCore, std::shared_ptr<HostCore>>(module, "HostCore")
        .def(py::init<>())
        .def("load", &HostCore::load)
        .def("create", &HostCore::create)
        .def("call_builtin", &HostCore::callBuiltin)
        .def("describe", &HostCore::describe)
        .def_property_readonly("classes", &HostCore::classes)
        .def("class_names", &HostCore::classNames)
        .def("treat_as_failure", &HostCore::treatAsFailure)
        .def("on_impersonation", &HostCore::onImpersonation)
        .def("close", &HostCore::close)
        .def("interrupt", &HostCore::interrupt)
        .def("clear_interrupt", &HostCore::clearInterrupt)
        .def("interrupt_after", &HostCore::interruptAfter)
        .def("interrupt_pending", &HostCore::interruptPending)
        .def("was_interrupted", &HostCore::wasInterrupted)
        .def("wrap", &HostCore::wrap)
        .def("defines", &HostCore::defines)
        .def("define", [](HostCore& self, const py::type& type, const std::string& name,
                          const std::vector<std::string>& bases, const std::vector<MethodTuple>& methods) {
            std::vector<HostCore::MethodRow> rows;
            rows.reserve(methods.size());
            for (const auto& [own, attribute, declared, inputs, outputs] : methods) {
                rows.push_back({own, held(interned(attribute)), declared, inputs, outputs});
            }
            self.define(type, name, bases, rows);
        });
    py::class_<HostObject>(module, "HostObject")
        .def("get", &HostObject::get)
        .def("set", &HostObject::set)
        .def("call", &HostObject::call)
        .def_property_readonly("host", &HostObject::host)
        .def("class_name", &HostObject::className)
        .def("is_a", &HostObject::isA);
    module.def("set_host_makers", [](const py::object& failure, const py::object& object, const py::object& objectType,
                                     const py::object& warning) {
        makers = {py::object(failure).release().ptr(), py::object(object).release().ptr(),
                  py::object(objectType).release().ptr(), py::object(warning).release().ptr()};
    });
    module.def("host_fields", [](const std::vector<std::pair<std::string, std::string>>& fields) {
        std::vector<vantik::HttpField> all;
        all.reserve(fields.size());
        for (const auto& [name, value] : fields) {
            all.push_back({name, value});
        }
        vantik::httpFields(all); // which checks them
    });
    module.def("host_timeouts", [](double connect, double response, double data) {
        const auto seconds = [](double limit) { return std::chrono::duration<double>(limit); };
        return arrayValue(
            vantik::httpTimeouts({.Connect = seconds(connect), .Response = seconds(response), .Data = seconds(data)}));
    });
    module.def("host_read_proxy", [](const std::string& text) {
        const vantik::HttpProxy proxy = vantik::readHttpProxy(text);
        py::dict found;
        found["Host"] = proxy.Host;
        found["Port"] = static_cast<double>(proxy.Port);
        found["Username"] = proxy.Username;
        found["Password"] = proxy.Password;
        return found;
    });
    module.def("host_components", &vantik::hostComponents);
    py::register_exception_translator([](std::exception_ptr failure) {
        try {
            if (failure) {
                std::rethrow_exception(std::move(failure));
            }
        } catch (const vantik::Failure& known) {
            try {
                raiseFailure(known, false, false);
            } catch (py::error_already_set& raised) {
                raised.restore();
            }
        }
    });
    module.attr("HTTP_CONNECTION") = vantik::kHttpConnectionClass;
    module.attr("AUTHENTICATION_SCHEME") = vantik::kAuthenticationSchemeClass;
    module.attr("PROXY_LOOKUP") = vantik::kProxyLookup;
    module.attr("INCOMPLETE_CONTENT") = vantik::kIncompleteContent;
    module.attr("COPY_WITHOUT_OPEN") = vantik::kCopyWithoutOpen;
    module.attr("CLEARED_BY_OPEN") = vantik::kClearedByOpen;
}

} // namespace netrove::python
