#include "python/extension/SignalWatch.h"

#include <netrove/descriptor.h>

#include <atomic>
#include <fcntl.h>
#include <string>

namespace netrove::python {

namespace {

std::atomic<unsigned long> mainThread = 0;

// From now on Python writes the number of each signal to `descriptor`; returns where it did so before. On the main
// thread, with the GIL.
int setWakeup(int descriptor) {
    // The module signal has it from there, and takes a tenth of a short program's time to load.
    static PyObject* const function = py::object(py::module_::import("_signal").attr("set_wakeup_fd")).release().ptr();
    static PyObject* const names = py::make_tuple("warn_on_full_buffer").release().ptr();
    const py::int_ number(descriptor);
    PyObject* const arguments[] = {number.ptr(), Py_False};
    const auto before = py::reinterpret_steal<py::object>(PyObject_Vectorcall(function, arguments, 1, names));
    if (!before) {
        throw py::error_already_set();
    }
    return before.cast<int>();
}

// Python writes the number of each signal into it.
class SignalPipe {
public:
    SignalPipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        Read = ends[0];
        Write = ends[1];
    }
    int Read;
    int Write;
    std::string Seen; // for the descriptor that Python wrote to before
};

// Never closed: a signal may come at any time. After a fork parent and child would read what the other is sent.
SignalPipe& signalPipe() {
    static SignalPipe* ends = new SignalPipe;
    static std::uint64_t owner = processGeneration();
    if (owner != processGeneration()) {
        owner = processGeneration();
        ends = new SignalPipe;
    }
    return *ends;
}

} // namespace

void setMainThread(unsigned long ident) {
    mainThread = ident;
}

int SignalWatch::readEnd() {
    return signalPipe().Read;
}

SignalWatch::SignalWatch() : Active(PyThread_get_thread_ident() == mainThread) {
    if (!Active) {
        return;
    }
    Before = setWakeup(signalPipe().Write);
    if (PyErr_CheckSignals() != 0) {
        const py::error_already_set raised;
        setWakeup(Before);
        throw raised;
    }
}

SignalWatch::~SignalWatch() {
    if (!Active) {
        return;
    }
    try {
        setWakeup(Before);
    } catch (py::error_already_set&) {
        return; // it has been closed meanwhile, and nobody waits for it
    }
    SignalPipe& own = signalPipe();
    if (Before == own.Write) {
        return; // that of an enclosing call
    }
    char bytes[64];
    for (ssize_t count = 0; (count = read(own.Read, bytes, sizeof bytes)) > 0;) {
        own.Seen.append(bytes, static_cast<std::size_t>(count));
    }
    if (Before >= 0 && !own.Seen.empty()) {
        // What the other's buffer cannot hold it does without, as it would have.
        [[maybe_unused]] const ssize_t written = write(Before, own.Seen.data(), own.Seen.size());
    }
    own.Seen.clear();
}

void SignalWatch::poll() const {
    if (!Active) {
        return;
    }
    SignalPipe& own = signalPipe();
    char bytes[64];
    const ssize_t count = read(own.Read, bytes, sizeof bytes);
    if (count <= 0) {
        return;
    }
    const py::gil_scoped_acquire gil;
    own.Seen.append(bytes, static_cast<std::size_t>(count));
    if (PyErr_CheckSignals() != 0) {
        throw py::error_already_set();
    }
}

} // namespace netrove::python
