// What runs without the GIL, so that the interpreter can end it before it ends itself, and what a forked child gets.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <functional>
#include <optional>

namespace netrove::python {

namespace py = pybind11;

// How many forks lie between the first process and this one. What holds threads and connections belongs to the process
// that made it.
std::uint64_t processGeneration() noexcept;
// Raises Error of kind Usage in a process that `generation` is not of.
void requireOwnProcess(std::uint64_t generation);

// From its construction to its destruction the interpreter does not end: something runs that `stop` ends within a
// second. A thread that asked for the GIL later would be ended in the middle of it. Raises Error of kind Usage once the
// interpreter is about to end.
class Running {
public:
    explicit Running(std::function<void()> stop);
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    std::uint64_t Number;
};

// Runs something short with the GIL, on any thread; not at all if the interpreter has come to its end.
void withGil(const std::function<void()>& run);

// Without the GIL for something that ends by itself, unless the interpreter is about to end.
class GilBreak {
public:
    GilBreak();

private:
    std::optional<Running> Keeps;
    std::optional<py::gil_scoped_release> Released; // goes first
};

// Stops everything that runs, waits for it and refuses what would begin. With the GIL, which it releases meanwhile.
void stopAll();

// Once, when the module is loaded.
void watchForks();

} // namespace netrove::python
