#include "tests/support/curl/CurlInterposer.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace testsupport {

namespace {

thread_local CurlInterposer* theInterposer = nullptr; // servers of a test run on threads of their own

struct InfoName {
    CURLINFO Info;
    const char* Name;
};

constexpr InfoName kInfoNames[] = {
    {CURLINFO_RESPONSE_CODE, "CURLINFO_RESPONSE_CODE"},
    {CURLINFO_HTTP_CONNECTCODE, "CURLINFO_HTTP_CONNECTCODE"},
    {CURLINFO_HTTP_VERSION, "CURLINFO_HTTP_VERSION"},
    {CURLINFO_CONTENT_TYPE, "CURLINFO_CONTENT_TYPE"},
    {CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, "CURLINFO_CONTENT_LENGTH_DOWNLOAD_T"},
    {CURLINFO_SIZE_DOWNLOAD_T, "CURLINFO_SIZE_DOWNLOAD_T"},
    {CURLINFO_CONNECT_TIME, "CURLINFO_CONNECT_TIME"},
};

std::string infoName(int id) {
    const auto* row = std::find_if(std::begin(kInfoNames), std::end(kInfoNames),
                                   [&](const InfoName& candidate) { return candidate.Info == id; });
    return row == std::end(kInfoNames) ? "CURLINFO " + std::to_string(id) : row->Name;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : "|") + line;
    }
    return '{' + text + '}';
}

std::string optionText(const CurlCall& call) {
    const curl_easyoption* option = curl_easy_option_by_id(static_cast<CURLoption>(call.Id));
    if (option == nullptr) {
        return "CURLOPT " + std::to_string(call.Id);
    }
    const std::string name = std::string("CURLOPT_") + option->name;
    switch (option->type) {
    case CURLOT_LONG:
    case CURLOT_VALUES:
    case CURLOT_OFF_T:
        return name + ' ' + std::to_string(call.Number);
    case CURLOT_STRING:
        return name + ' ' + (call.Pointer == nullptr ? "(null)" : call.Text);
    case CURLOT_SLIST:
        return name + ' ' + (call.Pointer == nullptr ? "(null)" : joined(call.Lines));
    default:
        return name;
    }
}

enum class Detail { None, Number, Text, Option, Info };

// In the order of CurlFunction.
constexpr std::pair<const char*, Detail> kForms[] = {
    {"curl_easy_init", Detail::None},
    {"curl_easy_cleanup", Detail::None},
    {"curl_easy_reset", Detail::None},
    {"curl_easy_setopt", Detail::Option},
    {"curl_easy_getinfo", Detail::Info},
    {"curl_easy_pause", Detail::Number},
    {"curl_multi_init", Detail::None},
    {"curl_multi_cleanup", Detail::None},
    {"curl_multi_add_handle", Detail::None},
    {"curl_multi_remove_handle", Detail::None},
    {"curl_multi_perform", Detail::None},
    {"curl_multi_wait", Detail::Number},
    {"curl_multi_info_read", Detail::None},
    {"curl_slist_append", Detail::Text},
    {"curl_slist_free_all", Detail::None},
    {"curl_version_info", Detail::Number},
    {"pause", Detail::Number},
    {"interrupt poll", Detail::None},
};
static_assert(std::size(kForms) == static_cast<std::size_t>(CurlFunction::InterruptPoll) + 1);

} // namespace

std::string CurlCall::text() const {
    const auto& [name, detail] = kForms[static_cast<std::size_t>(Function)];
    switch (detail) {
    case Detail::Option:
        return optionText(*this);
    case Detail::Info:
        return infoName(Id);
    case Detail::Number:
        return std::string(name) + ' ' + std::to_string(Number);
    case Detail::Text:
        return std::string(name) + ' ' + Text;
    case Detail::None:
        break;
    }
    return name;
}

CurlInterposer::CurlInterposer() {
    if (theInterposer != nullptr) {
        throw std::logic_error("Only one CurlInterposer at a time");
    }
    theInterposer = this;
}

CurlInterposer::~CurlInterposer() {
    theInterposer = nullptr;
}

CurlInterposer* CurlInterposer::current() noexcept {
    return theInterposer;
}

std::vector<std::string> CurlInterposer::texts(std::initializer_list<CurlFunction> functions) const {
    std::vector<std::string> found;
    for (const CurlCall& call : Calls) {
        if (std::find(functions.begin(), functions.end(), call.Function) != functions.end()) {
            found.push_back(call.text());
        }
    }
    return found;
}

std::size_t CurlInterposer::count(CurlFunction function) const {
    return static_cast<std::size_t>(
        std::count_if(Calls.begin(), Calls.end(), [&](const CurlCall& call) { return call.Function == function; }));
}

const CurlCall* CurlInterposer::lastOption(CURLoption option) const {
    const auto found = std::find_if(Calls.rbegin(), Calls.rend(), [&](const CurlCall& call) {
        return call.Function == CurlFunction::EasySetopt && call.Id == option;
    });
    return found == Calls.rend() ? nullptr : &*found;
}

void CurlInterposer::failCall(CurlFunction function, int code, int nth) {
    Rules.push_back({function, std::nullopt, nth, code});
}

void CurlInterposer::failOption(CURLoption option, CURLcode code, int nth) {
    Rules.push_back({CurlFunction::EasySetopt, option, nth, code});
}

void CurlInterposer::failInfo(CURLINFO info, CURLcode code, int nth) {
    Rules.push_back({CurlFunction::EasyGetinfo, info, nth, code});
}

void CurlInterposer::finishWith(CURLcode result, CURLMSG message) {
    CURLMsg made{};
    made.msg = message;
    made.data.result = result;
    Message = made;
}

std::optional<int> CurlInterposer::enter(CurlCall call) {
    std::optional<int> failure;
    for (Rule& rule : Rules) {
        if (rule.Function == call.Function && (!rule.Id || *rule.Id == call.Id) && rule.Left > 0 && --rule.Left == 0) {
            failure = rule.Code;
        }
    }
    Calls.push_back(std::move(call));
    return failure;
}

void CurlInterposer::rememberSlot(CURLoption option, void* value) {
    Slots[option] = value;
}

CURLMsg* CurlInterposer::takeMessage() {
    if (!Message) {
        return nullptr;
    }
    Given = *Message;
    Message.reset();
    return &Given;
}

const CurlInterposer::InfoValue* CurlInterposer::info(CURLINFO info) const {
    const auto found = Infos.find(info);
    return found == Infos.end() ? nullptr : &found->second;
}

template <class Function>
Function CurlInterposer::slot(CURLoption option) const {
    const auto found = Slots.find(option);
    if (found == Slots.end() || found->second == nullptr) {
        throw std::logic_error("No callback is registered for " + std::to_string(option));
    }
    return reinterpret_cast<Function>(found->second);
}

void* CurlInterposer::data(CURLoption option) const {
    const auto found = Slots.find(option);
    return found == Slots.end() ? nullptr : found->second;
}

std::size_t CurlInterposer::callHeader(const std::string& line) {
    std::string copy = line;
    return slot<curl_write_callback>(CURLOPT_HEADERFUNCTION)(copy.data(), 1, copy.size(), data(CURLOPT_HEADERDATA));
}

int CurlInterposer::callDebug(curl_infotype type, std::string& bytes) {
    return slot<curl_debug_callback>(CURLOPT_DEBUGFUNCTION)(nullptr, type, bytes.data(), bytes.size(),
                                                            data(CURLOPT_DEBUGDATA));
}

std::size_t CurlInterposer::callWrite(const std::string& bytes) {
    std::string copy = bytes;
    return slot<curl_write_callback>(CURLOPT_WRITEFUNCTION)(copy.data(), 1, copy.size(), data(CURLOPT_WRITEDATA));
}

std::size_t CurlInterposer::callRead(std::string& buffer, std::size_t room) {
    buffer.assign(room, '\0');
    const std::size_t given =
        slot<curl_read_callback>(CURLOPT_READFUNCTION)(buffer.data(), 1, room, data(CURLOPT_READDATA));
    buffer.resize(given <= room ? given : 0); // PAUSE and ABORT lie far above any room
    return given;
}

int CurlInterposer::callSeek(curl_off_t offset) {
    return slot<curl_seek_callback>(CURLOPT_SEEKFUNCTION)(data(CURLOPT_SEEKDATA), offset, SEEK_SET);
}

void CurlInterposer::callResponseHead(const std::string& head) {
    for (std::size_t start = 0; start < head.size();) {
        const std::size_t end = head.find('\n', start);
        const std::size_t length = end == std::string::npos ? head.size() - start : end + 1 - start;
        callHeader(head.substr(start, length));
        start += length;
    }
}

} // namespace testsupport
