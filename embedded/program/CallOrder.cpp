#include "embedded/program/CallOrder.h"

#include "embedded/arrays/Array.h"
#include "embedded/classes/ClassDefinition.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/objects/HostObject.h"
#include "embedded/objects/ObjectCalls.h"
#include "embedded/scope/Scope.h"
#include "vantik/Array.h"
#include "vantik/Http.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace vantik::detail {

namespace {

enum class Step { SetUrl, SetMethod, SetFields, Open, Close, Copy };

struct MemberRow {
    std::string_view Name;
    Step What;
};

constexpr MemberRow kMembers[] = {
    {"URL", Step::SetUrl},
    {"RequestMethod", Step::SetMethod},
    {"setFields", Step::SetFields},
    {"setRequestProperty", Step::SetFields},
    {"removeField", Step::SetFields},
    {"openConnection", Step::Open},
    {"openProxyConnection", Step::Open},
    {"closeConnection", Step::Close},
    {"copyContentToByteArray", Step::Copy},
    {"copyContentToFile", Step::Copy},
};

const MemberRow* rowOf(const HostObject& object, std::string_view member) {
    const auto* const row = std::find_if(std::begin(kMembers), std::end(kMembers),
                                         [&](const MemberRow& candidate) { return candidate.Name == member; });
    return row != std::end(kMembers) && object.definition().isA(kHttpConnectionClass) ? row : nullptr;
}

void warn(HostObject& object, const char* key, std::string argument) {
    WarningSink& warnings = object.scope()->Warnings;
    withWarningsRaised(warnings, [&] { warnings.show(HostMessage({std::move(argument)}, "VANTIK:host", key)); });
}

// An open leaves GET, which is what an empty method means too.
bool isGet(const Array& method) {
    const std::u16string text = method.empty() ? u"GET" : method.wideText();
    return text.size() == 3 && (text[0] | 0x20) == u'g' && (text[1] | 0x20) == u'e' && (text[2] | 0x20) == u't';
}

// After a challenge to this object the next open keeps the method. Sends nothing: no connection is open.
bool wasChallenged(HostObject& object) {
    const ArrayOwner status(getProperty(object, "ResponseCode"));
    return elementAsDouble(status.get(), 0) == 401;
}

void noteEarly(HostObject& object, std::string_view member, bool isLost) {
    std::vector<std::string_view>& early = object.Calls.SetEarly;
    std::erase(early, member);
    if (isLost) {
        early.push_back(member);
    }
}

void noteOpen(HostObject& object) {
    HostObject::CallState& calls = object.Calls;
    calls.Open = calls.HasUrl; // without a URL an open does nothing
    if (!calls.Open) {
        return;
    }
    std::string cleared;
    for (const std::string_view member : std::exchange(calls.SetEarly, {})) {
        cleared.append(cleared.empty() ? "" : ", ").append(member);
    }
    // The first open of a scope clears nothing.
    if (std::exchange(object.scope()->ConnectionWasOpened, true) && !cleared.empty()) {
        warn(object, "ClearedByOpen", cleared);
    }
}

} // namespace

void warnOfOrder(HostObject& object, std::string_view member) {
    const MemberRow* row = rowOf(object, member);
    if (row && row->What == Step::Copy && !object.Calls.Open) {
        warn(object, "CopyWithoutOpen", std::string(member));
    }
}

void noteOrder(HostObject& object, std::string_view member, const Array& value) {
    const MemberRow* row = rowOf(object, member);
    if (!row) {
        return;
    }
    HostObject::CallState& calls = object.Calls;
    switch (row->What) {
    case Step::SetUrl:
        calls.HasUrl = !value.empty();
        break;
    case Step::SetMethod:
        if (!calls.Open) {
            noteEarly(object, row->Name, !isGet(value) && !wasChallenged(object));
        }
        break;
    case Step::SetFields:
        if (!calls.Open) {
            noteEarly(object, row->Name, true);
        }
        break;
    case Step::Open:
        noteOpen(object);
        break;
    case Step::Close:
        calls.Open = false;
        break;
    case Step::Copy:
        break;
    }
}

} // namespace vantik::detail
