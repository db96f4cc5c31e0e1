// A name in a folder that is removed however the program ends.
#pragma once

#include <netrove/api.h>

#include <functional>
#include <string>
#include <utility>

namespace netrove {

class NETROVE_API TemporaryEntry {
public:
    // Makes nothing yet. `folder` is the descriptor of the folder; borrowed.
    TemporaryEntry(int folder, std::string name) : Folder(folder), Name(std::move(name)) {}
    ~TemporaryEntry(); // removes the entry if it exists
    TemporaryEntry(const TemporaryEntry&) = delete;
    TemporaryEntry& operator=(const TemporaryEntry&) = delete;

    const char* name() const { return Name.c_str(); }
    void renew(std::string name); // removes the entry if it exists; the next one has this name

    // Each returns the result of its call, which is negative if it failed and changed nothing. The call of `make`
    // creates the entry, that of `take` moves it away; from the one to the other removeTemporaryEntries knows of it,
    // and it never runs during a call.
    int make(const std::function<int()>& call);
    int take(const std::function<int()>& call);

private:
    void remove();
    friend NETROVE_API void removeTemporaryEntries() noexcept;

    int Folder;
    std::string Name;
    bool There = false;
};

// Removes all entries, and blocks every thread that would make another one: for a signal handler that ends the program
// next. Waits for calls that are under way on other threads.
NETROVE_API void removeTemporaryEntries() noexcept;

} // namespace netrove
