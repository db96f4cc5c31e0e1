// A name in a folder that is to go, however the program ends.
#pragma once

#include <functional>
#include <string>
#include <utility>

namespace netrove::cli {

class TemporaryEntry {
public:
    // Nothing is there yet. `folder` is the descriptor of the folder; borrowed.
    TemporaryEntry(int folder, std::string name) : Folder(folder), Name(std::move(name)) {}
    ~TemporaryEntry(); // removes the entry where it is there
    TemporaryEntry(const TemporaryEntry&) = delete;
    TemporaryEntry& operator=(const TemporaryEntry&) = delete;

    const char* name() const { return Name.c_str(); }

    // Each gives the result of its call, which is negative where it failed and has then changed nothing. From the call
    // that makes the entry to the one that takes it away, removeTemporaryEntries knows of it; never in between.
    int make(const std::function<int()>& call);
    int take(const std::function<int()>& call);

private:
    friend void removeTemporaryEntries() noexcept;

    int Folder;
    std::string Name;
    bool There = false;
};

// Removes all entries that are there, and holds up whoever would make another one: for a signal handler that ends the
// program after it. Waits for calls that are under way on other threads.
void removeTemporaryEntries() noexcept;

} // namespace netrove::cli
