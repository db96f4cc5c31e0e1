// One host and its objects for Python: the GIL is released while the host runs, and taken for what it calls.
#pragma once

#include "python/extension/HostValues.h"
#include "python/extension/SignalWatch.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace netrove::python {

class HostObject;

class HostCore final : public ObjectValues, public std::enable_shared_from_this<HostCore> {
public:
    HostCore();
    ~HostCore() override;
    HostCore(const HostCore&) = delete;
    HostCore& operator=(const HostCore&) = delete;

    void load(const std::string& module);
    py::object create(const std::string& className, const py::args& arguments);
    py::object callBuiltin(const std::string& name, const py::args& arguments);
    py::tuple describe(const std::string& className);
    std::vector<std::string> classNames();
    void treatAsFailure(const std::string& identifier);
    void onImpersonation(const py::object& entry, const py::object& exit);
    py::dict classes() const { return Known; } // for descriptions that the Python part has asked for
    void close();                              // drops the objects that are left with their connections

    // For any thread.
    void interrupt() noexcept;
    void clearInterrupt();
    void interruptAfter(double seconds);
    bool interruptPending();
    bool wasInterrupted();

    // A class of Python as a class of the host.
    using Types = std::vector<std::string>;
    struct MethodRow {
        std::string Name;
        Held Attribute; // its name in Python, interned
        bool Declared;
        Types Inputs;
        Types Outputs;
    };
    void define(const py::type& type, const std::string& name, const std::vector<std::string>& bases,
                const std::vector<MethodRow>& methods);

    bool defines(const py::object& value) const; // its class
    py::object wrap(const py::object& instance); // as the host sees it; None for what is not an object

    py::object objectFromHost(vantik::Array object) override;
    std::optional<vantik::Array> objectForHost(const py::handle& value) override;

private:
    friend class HostObject;
    class Occupied;

    vantik::Host& existing(); // raises without one
    vantik::Host& open();     // the same where no operation can begin
    template <class Run>
    auto perform(Run run);
    template <class Run>
    auto released(Run run);
    bool asksToStop() noexcept;
    void warn(const vantik::Message& message) noexcept;
    void drop(vantik::Object object) noexcept;
    std::vector<vantik::Array> hostValues(const py::tuple& arguments, const std::string& place);
    const std::string* classNameOf(const py::handle& value) const;
    py::object seen(vantik::Object object);
    py::tuple pythonValues(std::span<const vantik::Array> values, const Types& types);
    std::vector<vantik::Array> runMethod(const MethodRow& row, std::span<const vantik::Array> inputs);

    std::uint64_t Generation = processGeneration();
    std::unique_ptr<vantik::Host> Own;

    // All with the GIL.
    std::map<PyObject*, std::pair<Held, std::string>> Classes; // of Python, and their names in the host
    std::set<HostObject*> Objects;                             // that Python holds
    std::vector<vantik::Object> Dropped; // by a thread that must not touch them, while another one is in the host
    py::dict Known;
    py::object Adopted;       // what the constructor of a class of Python takes in place of a new object
    unsigned long Thread = 0; // that is in the host
    int Depth = 0;            // of operations, one within the other

    // Of the innermost operation; on its thread.
    const SignalWatch* Watch = nullptr;
    bool AskedToStop = false;  // for a signal
    std::exception_ptr Raised; // by a handler of a signal or a filter of warnings: ends the operation
};

// An object of the host that Python holds.
class HostObject {
public:
    HostObject(std::shared_ptr<HostCore> core, vantik::Object value);
    ~HostObject();
    HostObject(const HostObject&) = delete;
    HostObject& operator=(const HostObject&) = delete;

    py::object get(const std::string& property, bool isVector);
    void set(const std::string& property, const py::object& value, const std::string& place);
    // Results in a list, each with what its place in `vectors` says.
    py::list call(const std::string& method, const py::tuple& arguments, int wanted, const std::vector<bool>& vectors);
    std::shared_ptr<HostCore> host() const { return Core; }
    std::string className();
    bool isA(const std::string& className);

private:
    friend class HostCore;

    std::shared_ptr<HostCore> Core;
    vantik::Object Value; // none once the host is closed
};

void defineHost(py::module_& module);

} // namespace netrove::python
