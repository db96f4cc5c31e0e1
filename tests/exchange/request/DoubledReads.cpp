#include "tests/exchange/request/DoubledReads.h"

#include <cstdarg>
#include <stdexcept>
#include <utility>

// libcurl's type checks wrap the two functions in macros; here they are defined.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>
#undef curl_easy_setopt

#include <dlfcn.h>

namespace {

// One easy handle per scope and one scope at a time is all that these tests use.
struct Interposed {
    curl_read_callback Read = nullptr;
    void* ReadData = nullptr;
    bool PausePending = false; // the second read asked for a pause that has not been ended yet
    bool EndPending = false;   // the second read found the end
    testsupport::DoubledReads Counts;
};
Interposed& interposed() {
    static Interposed state;
    return state;
}

template <class Function>
Function* original(const char* name) {
    void* address = ::dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        throw std::runtime_error(std::string(name) + " is not in libcurl");
    }
    return reinterpret_cast<Function*>(address);
}

std::size_t readTwice(char* buffer, std::size_t size, std::size_t count, void*) {
    Interposed& state = interposed();
    if (state.PausePending) {
        return CURL_READFUNC_PAUSE;
    }
    if (std::exchange(state.EndPending, false)) {
        return 0;
    }
    const std::size_t room = size * count;
    const std::size_t first = state.Read(buffer, 1, room, state.ReadData);
    if (first == 0 || first >= room) { // the end, a full buffer, or one of the special answers
        return first;
    }
    ++state.Counts.Seconds;
    const std::size_t second = state.Read(buffer + first, 1, room - first, state.ReadData);
    if (second == CURL_READFUNC_PAUSE) {
        ++state.Counts.Pauses;
        state.PausePending = true;
        return first;
    }
    if (second == 0) {
        ++state.Counts.Ends;
        state.EndPending = true;
        return first;
    }
    return second > room ? second : first + second;
}

} // namespace

namespace testsupport {

DoubledReads takeDoubledReads() {
    return std::exchange(interposed().Counts, {});
}

} // namespace testsupport

// libcurl's prototypes have an enumeration before the ellipsis, and clang warns of what va_start makes of one.
#pragma GCC diagnostic ignored "-Wvarargs"

extern "C" {

// Every option's value is one machine word, so it is passed on as a pointer whatever it is.
__attribute__((visibility("default"))) CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    static auto* const setOption = original<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
    std::va_list values;
    va_start(values, option);
    void* value = va_arg(values, void*);
    va_end(values);
    Interposed& state = interposed();
    if (option == CURLOPT_READFUNCTION) {
        state.Read = reinterpret_cast<curl_read_callback>(value);
        state.PausePending = false;
        state.EndPending = false;
        return setOption(handle, option, &readTwice);
    }
    if (option == CURLOPT_READDATA) {
        state.ReadData = value;
    }
    return setOption(handle, option, value);
}

__attribute__((visibility("default"))) CURLcode curl_easy_pause(CURL* handle, int mask) {
    static auto* const pause = original<CURLcode(CURL*, int)>("curl_easy_pause");
    if ((mask & CURLPAUSE_SEND) == 0) {
        interposed().PausePending = false;
    }
    return pause(handle, mask);
}
}
