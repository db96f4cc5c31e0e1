#include "tests/support/curl/CurlInterposer.h"
#include "tests/support/host/AllocationFaults.h"

#include <cstdarg>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>

// The wrapped functions. Their names are the linker's: a call of `name` comes to `__wrap_name`, and `__real_name` is
// the function itself.
using testsupport::AllocationsSpared;
using testsupport::CurlCall;
using testsupport::CurlFunction;
using testsupport::CurlInterposer;

namespace {

std::optional<int> record(CurlCall call) {
    const AllocationsSpared spared;
    CurlInterposer* interposer = CurlInterposer::current();
    return interposer == nullptr ? std::nullopt : interposer->enter(std::move(call));
}

CurlCall describeOption(CURLoption option, void* pointer) {
    const AllocationsSpared spared;
    CurlCall call{CurlFunction::EasySetopt};
    call.Id = option;
    call.Pointer = pointer;
    const curl_easyoption* known = curl_easy_option_by_id(option);
    if (pointer == nullptr || known == nullptr) {
        return call;
    }
    if (known->type == CURLOT_STRING) {
        call.Text = static_cast<const char*>(pointer);
    } else if (known->type == CURLOT_SLIST) {
        for (const auto* entry = static_cast<const curl_slist*>(pointer); entry != nullptr; entry = entry->next) {
            call.Lines.emplace_back(entry->data);
        }
    }
    return call;
}

CurlCall described(CurlFunction function, const char* text) {
    const AllocationsSpared spared;
    CurlCall call{function};
    call.Text = text;
    return call;
}

CurlCall numbered(CurlFunction function, std::int64_t number, int id = 0) {
    CurlCall call{function};
    call.Id = id;
    call.Number = number;
    return call;
}

// The failure that the test wants; or what its replacement answers; or what libcurl answers.
template <class Code, class... Arguments, class Real>
Code answer(CurlCall call, std::function<Code(Arguments...)> CurlInterposer::*replacement, const Real& real,
            Arguments... arguments) {
    if (const auto failure = record(std::move(call))) {
        return static_cast<Code>(*failure);
    }
    CurlInterposer* interposer = CurlInterposer::current();
    return interposer != nullptr && interposer->*replacement ? (interposer->*replacement)(arguments...) : real();
}

// libcurl writes each kind of value through a pointer to its own type.
struct WriteInfo {
    void* Target;
    void operator()(long value) const { *static_cast<long*>(Target) = value; }
    void operator()(double value) const { *static_cast<double*>(Target) = value; }
    void operator()(const char* value) const { *static_cast<const char**>(Target) = value; }
};

static_assert(sizeof(long) == sizeof(curl_off_t), "both kinds of integers are read and written as long");

} // namespace

// libcurl's prototypes have an enumeration before the ellipsis, and clang warns of what va_start makes of one.
#pragma GCC diagnostic ignored "-Wvarargs"

extern "C" {

CURL* __real_curl_easy_init();
void __real_curl_easy_cleanup(CURL* easy);
void __real_curl_easy_reset(CURL* easy);
CURLcode __real_curl_easy_setopt(CURL* easy, CURLoption option, ...);
CURLcode __real_curl_easy_getinfo(CURL* easy, CURLINFO info, ...);
CURLcode __real_curl_easy_pause(CURL* easy, int mask);
CURLM* __real_curl_multi_init();
CURLMcode __real_curl_multi_cleanup(CURLM* multi);
CURLMcode __real_curl_multi_add_handle(CURLM* multi, CURL* easy);
CURLMcode __real_curl_multi_remove_handle(CURLM* multi, CURL* easy);
CURLMcode __real_curl_multi_perform(CURLM* multi, int* running);
CURLMcode __real_curl_multi_wait(CURLM* multi, curl_waitfd* extra, unsigned int count, int milliseconds, int* ready);
CURLMsg* __real_curl_multi_info_read(CURLM* multi, int* remaining);
curl_slist* __real_curl_slist_append(curl_slist* list, const char* line);
void __real_curl_slist_free_all(curl_slist* list);
curl_version_info_data* __real_curl_version_info(CURLversion age);
void __real__ZN7netrove17interruptibleWaitEl(std::int64_t until);
std::int64_t __real__ZN7netrove12monotonicNowEv();
void __real__ZN16utInterruptState23ThrowIfInterruptPendingEv();

CURL* __wrap_curl_easy_init() {
    return record({CurlFunction::EasyInit}) ? nullptr : __real_curl_easy_init();
}

void __wrap_curl_easy_cleanup(CURL* easy) {
    record({CurlFunction::EasyCleanup});
    __real_curl_easy_cleanup(easy);
}

void __wrap_curl_easy_reset(CURL* easy) {
    record({CurlFunction::EasyReset});
    CurlInterposer* interposer = CurlInterposer::current();
    if (interposer != nullptr && interposer->OnReset) {
        interposer->OnReset();
    }
    __real_curl_easy_reset(easy);
    if (interposer != nullptr) {
        interposer->forgetSlots();
    }
}

CURLcode __wrap_curl_easy_setopt(CURL* easy, CURLoption option, ...) {
    va_list arguments;
    va_start(arguments, option);
    CURLcode code = CURLE_OK;
    if (option < CURLOPTTYPE_OBJECTPOINT || (option >= CURLOPTTYPE_OFF_T && option < CURLOPTTYPE_BLOB)) {
        const long number = va_arg(arguments, long);
        const auto failure = record(numbered(CurlFunction::EasySetopt, number, option));
        code = failure ? static_cast<CURLcode>(*failure) : __real_curl_easy_setopt(easy, option, number);
    } else {
        void* pointer = va_arg(arguments, void*);
        const auto failure = record(describeOption(option, pointer));
        code = failure ? static_cast<CURLcode>(*failure) : __real_curl_easy_setopt(easy, option, pointer);
        if (CurlInterposer::current() != nullptr && !failure) {
            const AllocationsSpared spared;
            CurlInterposer::current()->rememberSlot(option, pointer);
        }
    }
    va_end(arguments);
    return code;
}

CURLcode __wrap_curl_easy_getinfo(CURL* easy, CURLINFO info, ...) {
    va_list arguments;
    va_start(arguments, info);
    void* target = va_arg(arguments, void*);
    va_end(arguments);
    if (const auto failure = record(numbered(CurlFunction::EasyGetinfo, 0, info))) {
        return static_cast<CURLcode>(*failure);
    }
    const CurlInterposer* interposer = CurlInterposer::current();
    if (const auto* value = interposer == nullptr ? nullptr : interposer->info(info)) {
        std::visit(WriteInfo{target}, *value);
        return CURLE_OK;
    }
    return __real_curl_easy_getinfo(easy, info, target);
}

CURLcode __wrap_curl_easy_pause(CURL* easy, int mask) {
    return answer(
        numbered(CurlFunction::EasyPause, mask), &CurlInterposer::OnEasyPause,
        [&] { return __real_curl_easy_pause(easy, mask); }, mask);
}

CURLM* __wrap_curl_multi_init() {
    return record({CurlFunction::MultiInit}) ? nullptr : __real_curl_multi_init();
}

CURLMcode __wrap_curl_multi_cleanup(CURLM* multi) {
    record({CurlFunction::MultiCleanup});
    return __real_curl_multi_cleanup(multi);
}

CURLMcode __wrap_curl_multi_add_handle(CURLM* multi, CURL* easy) {
    return answer({CurlFunction::MultiAddHandle}, &CurlInterposer::OnAddHandle,
                  [&] { return __real_curl_multi_add_handle(multi, easy); });
}

CURLMcode __wrap_curl_multi_remove_handle(CURLM* multi, CURL* easy) {
    return answer({CurlFunction::MultiRemoveHandle}, &CurlInterposer::OnRemoveHandle,
                  [&] { return __real_curl_multi_remove_handle(multi, easy); });
}

CURLMcode __wrap_curl_multi_perform(CURLM* multi, int* running) {
    return answer<CURLMcode, int&>(
        {CurlFunction::MultiPerform}, &CurlInterposer::OnPerform,
        [&] { return __real_curl_multi_perform(multi, running); }, *running);
}

CURLMcode __wrap_curl_multi_wait(CURLM* multi, curl_waitfd* extra, unsigned int count, int milliseconds, int* ready) {
    return answer<CURLMcode, int, int&>(
        numbered(CurlFunction::MultiWait, milliseconds), &CurlInterposer::OnWait,
        [&] { return __real_curl_multi_wait(multi, extra, count, milliseconds, ready); }, milliseconds, *ready);
}

CURLMsg* __wrap_curl_multi_info_read(CURLM* multi, int* remaining) {
    if (record({CurlFunction::MultiInfoRead})) {
        return nullptr;
    }
    CurlInterposer* interposer = CurlInterposer::current();
    if (interposer != nullptr) {
        if (CURLMsg* message = interposer->takeMessage()) {
            *remaining = 0;
            return message;
        }
        if (interposer->OnInfoRead) {
            return interposer->OnInfoRead(*remaining);
        }
    }
    return __real_curl_multi_info_read(multi, remaining);
}

curl_slist* __wrap_curl_slist_append(curl_slist* list, const char* line) {
    return record(described(CurlFunction::SlistAppend, line)) ? nullptr : __real_curl_slist_append(list, line);
}

void __wrap_curl_slist_free_all(curl_slist* list) {
    record({CurlFunction::SlistFreeAll});
    __real_curl_slist_free_all(list);
}

curl_version_info_data* __wrap_curl_version_info(CURLversion age) {
    record(numbered(CurlFunction::VersionInfo, age));
    return __real_curl_version_info(age);
}

std::int64_t __wrap__ZN7netrove12monotonicNowEv() {
    const CurlInterposer* interposer = CurlInterposer::current();
    return interposer != nullptr && interposer->clock() ? *interposer->clock() : __real__ZN7netrove12monotonicNowEv();
}

void __wrap__ZN7netrove17interruptibleWaitEl(std::int64_t until) {
    CurlInterposer* interposer = CurlInterposer::current();
    if (interposer == nullptr) {
        __real__ZN7netrove17interruptibleWaitEl(until);
        return;
    }
    record(numbered(CurlFunction::Pause, until - __wrap__ZN7netrove12monotonicNowEv()));
    if (interposer->OnPause) {
        interposer->OnPause();
    }
    if (interposer->clock()) {
        interposer->setClock(until);
    }
}

void __wrap__ZN16utInterruptState23ThrowIfInterruptPendingEv() {
    record({CurlFunction::InterruptPoll});
    CurlInterposer* interposer = CurlInterposer::current();
    if (interposer != nullptr && interposer->OnInterruptPoll) {
        interposer->OnInterruptPoll();
    }
    __real__ZN16utInterruptState23ThrowIfInterruptPendingEv();
}

} // extern "C"
