// Stands between the library and libcurl in a test's executable: records calls in order, makes chosen ones fail, and
// replaces others by functions of the test. Also holds the clock, counts the pauses and sees the interrupt polls.
//
// Link the target `netrove_curl_interposer` (it brings this file's source and the --wrap options). Without an instance
// alive every call goes to libcurl, the real clock and the real pause.
//
//     CurlInterposer curl;                                       // one at a time, on the thread of the test
//     curl.failOption(CURLOPT_URL, CURLE_OUT_OF_MEMORY);         // the next time that it is set
//     curl.OnPerform = [&](int& running) { running = 0; return CURLM_OK; };
//     curl.finishWith(CURLE_RECV_ERROR);                         // what curl_multi_info_read returns, once
//     curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);               // from now on
//     curl.setClock(0);                                          // the clock stands still; pauses move it
//     connection.sendRequest();
//     EXPECT_THAT(curl.texts({CurlFunction::EasySetopt}), ElementsAre("CURLOPT_URL http://127.0.0.1/", …));
//
// While an instance lives, `interruptibleWait` never sleeps: it is recorded, and where the clock is set it moves the
// clock to the moment that was waited for.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace testsupport {

enum class CurlFunction {
    EasyInit,
    EasyCleanup,
    EasyReset,
    EasySetopt,
    EasyGetinfo,
    EasyPause,
    MultiInit,
    MultiCleanup,
    MultiAddHandle,
    MultiRemoveHandle,
    MultiPerform,
    MultiWait,
    MultiInfoRead,
    SlistAppend,
    SlistFreeAll,
    VersionInfo,
    Pause,         // interruptibleWait
    InterruptPoll, // utInterruptState::ThrowIfInterruptPending
};

// One recorded call. What each function fills in:
//   EasySetopt    Id: option; Number for numbers, Text for strings, Lines for lists, Pointer for all pointers
//   EasyGetinfo   Id: information
//   EasyPause     Number: mask
//   MultiWait     Number: milliseconds
//   VersionInfo   Number: age
//   Pause         Number: nanoseconds from the clock's now to the moment waited for
//   SlistAppend   Text: the line
struct CurlCall {
    CurlFunction Function;
    int Id = 0;
    std::int64_t Number = 0;
    std::string Text{};
    std::vector<std::string> Lines{};
    const void* Pointer = nullptr;

    // In words: "CURLOPT_NOSIGNAL 1", "CURLOPT_URL http://127.0.0.1/", "CURLOPT_CAINFO (null)",
    // "CURLOPT_HTTPHEADER {Accept:|X-A: b}", "CURLOPT_HEADERDATA" (no value for pointers to other things),
    // "CURLINFO_RESPONSE_CODE", "curl_multi_wait 500", "curl_easy_pause 0", "curl_multi_perform", "pause 100000000",
    // "interrupt poll".
    std::string text() const;
};

class CurlInterposer {
public:
    CurlInterposer();
    ~CurlInterposer();
    CurlInterposer(const CurlInterposer&) = delete;
    CurlInterposer& operator=(const CurlInterposer&) = delete;

    // Record. `clear` forgets what was recorded; rules, values and the clock stay.
    const std::vector<CurlCall>& calls() const { return Calls; }
    std::vector<std::string> texts(std::initializer_list<CurlFunction> functions) const;
    std::vector<std::string> options() const { return texts({CurlFunction::EasySetopt}); }
    std::size_t count(CurlFunction function) const;
    const CurlCall* lastOption(CURLoption option) const; // null: not set since the last clear
    void clear() { Calls.clear(); }

    // Make the n-th call from now fail once. `code` is what the call answers; functions that return pointers then
    // return null, those that return nothing cannot fail. The call is recorded and does not reach libcurl or a
    // replacement.
    void failCall(CurlFunction function, int code, int nth = 1);
    void failOption(CURLoption option, CURLcode code, int nth = 1);
    void failInfo(CURLINFO info, CURLcode code, int nth = 1);

    // Answers of curl_easy_getinfo in the place of libcurl's. The type must be the one that libcurl writes. A null text
    // is a null pointer.
    using InfoValue = std::variant<long, double, const char*>; // curl_off_t is long here
    void giveInfo(CURLINFO info, InfoValue value) { Infos[info] = value; }
    void keepInfo(CURLINFO info) { Infos.erase(info); } // libcurl's own again

    // The next curl_multi_info_read returns a message of this result, the ones after it libcurl's.
    void finishWith(CURLcode result, CURLMSG message = CURLMSG_DONE);

    // Replacements; empty: libcurl. They may call `callHeader` and the like to play libcurl's part.
    std::function<CURLMcode(int& running)> OnPerform;
    std::function<CURLMcode(int milliseconds, int& ready)> OnWait;
    std::function<CURLMsg*(int& remaining)> OnInfoRead;
    std::function<CURLcode(int mask)> OnEasyPause;
    std::function<CURLMcode()> OnAddHandle;
    std::function<CURLMcode()> OnRemoveHandle;
    std::function<void()> OnReset; // runs before libcurl's own, which follows
    std::function<void()> OnPause;
    std::function<void()> OnInterruptPoll; // runs before the host's own, which follows

    // The callbacks that the library has registered last, called as libcurl would. Each raises std::logic_error where
    // none is registered.
    std::size_t callHeader(const std::string& line);
    int callDebug(curl_infotype type, std::string& data); // the callback may change the data
    std::size_t callWrite(const std::string& data);
    std::size_t callRead(std::string& buffer, std::size_t room); // fills `buffer` with what was given
    int callSeek(curl_off_t offset);
    // A request's head as sent, through the debug callback.
    void callRequestHead(std::string head) { callDebug(CURLINFO_HEADER_OUT, head); }
    // Each line of a response's head, through the header callback.
    void callResponseHead(const std::string& head);

    // Clock in nanoseconds. Not set: the real one.
    void setClock(std::int64_t now) { Clock = now; }
    void advanceClock(std::int64_t nanoseconds) { Clock = Clock.value_or(0) + nanoseconds; }

    std::size_t pauses() const { return count(CurlFunction::Pause); }

    // For the wrapped functions.
    static CurlInterposer* current() noexcept;
    std::optional<int> enter(CurlCall call); // records; the code to fail with, if a rule says so
    void rememberSlot(CURLoption option, void* value);
    void forgetSlots() { Slots.clear(); } // a reset handle has no callbacks
    CURLMsg* takeMessage();
    const InfoValue* info(CURLINFO info) const;
    const std::optional<std::int64_t>& clock() const { return Clock; }

private:
    struct Rule {
        CurlFunction Function;
        std::optional<int> Id;
        int Left;
        int Code;
    };
    template <class Function>
    Function slot(CURLoption option) const;
    void* data(CURLoption option) const;

    std::vector<CurlCall> Calls;
    std::vector<Rule> Rules;
    std::map<CURLINFO, InfoValue> Infos;
    std::map<CURLoption, void*> Slots; // callbacks and their data, as set last
    std::optional<CURLMsg> Message;    // not yet given
    CURLMsg Given{};                   // the one given last
    std::optional<std::int64_t> Clock;
};

} // namespace testsupport
