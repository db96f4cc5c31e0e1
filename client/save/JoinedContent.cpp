#include "client/save/JoinedContent.h"

#include "client/failures/ClientFailure.h"
#include "client/save/ContentRange.h"

#include <algorithm>
#include <string>

namespace netrove {

namespace {

constexpr int kPartialContent = 206;

// They would be looked at before Range (RFC 9110, section 13.2.2).
constexpr const char* kConditions[] = {"If-None-Match", "If-Modified-Since"};

[[noreturn]] void failNoRange(std::uint64_t at, const Response& head) {
    throw clientError(failure::kRangeRefused, {static_cast<std::int64_t>(at), std::int64_t{head.status}},
                      "the server does not send the content from byte " + std::to_string(at) + " on: it answered " +
                          std::to_string(head.status))
        .with(head, true);
}

} // namespace

// Whether a part of what is there can be asked for.
bool JoinedContent::continues() const {
    const auto& state = Store->state();
    if (!Repeatable) {
        return false;
    }
    return state ? !state->Validator.empty() && (state->Coding.empty() || !Decodes) : Allowed.Unproven;
}

bool JoinedContent::mayFollow() const {
    return Store->size() == 0 || Store->restarts() || continues();
}

void JoinedContent::ask(Request& request) {
    if (Store->plain()) {
        request.decode = false;
        request.fields.set("Accept-Encoding", "identity");
    }
    Repeatable = request.method == "GET" && !request.body && !request.fields.contains("Range");
    Decodes = *request.decode;
    Asked.reset();
    const std::uint64_t there = Store->size();
    const bool forced = Allowed.At.has_value();
    if (!forced && (there == 0 || Fresh || !continues())) {
        return;
    }
    const auto& state = Store->state();
    Asked = forced ? *Allowed.At : Probes ? there - 1 : there;
    for (const char* name : kConditions) {
        request.fields.erase(name);
    }
    if (!state || state->Coding.empty()) {
        request.fields.set("Accept-Encoding", "identity");
    }
    request.fields.set("Range", "bytes=" + std::to_string(*Asked) + "-");
    if (!forced && state) {
        request.fields.set("If-Range", state->Validator);
    }
}

bool JoinedContent::begin(Response& head) {
    End.reset();
    Compared = Kept = 0;
    // A part may also be what the program itself has asked for.
    return head.status == kPartialContent && Repeatable ? beginPart(head) : beginWhole(head);
}

bool JoinedContent::beginPart(Response& head) {
    const auto range = parseContentRange(head.fields["Content-Range"]);
    const std::uint64_t there = Store->size();
    const ContentState seen = stateOf(head);
    const bool known = Store->state().has_value();
    if (!Asked || !range || !range->First || *range->First > *Asked || (known && !sameContent(*Store->state(), seen))) {
        return useless();
    }
    const bool forced = Allowed.At.has_value();
    Kept = forced ? *Allowed.At : there;
    const std::uint64_t end = range->Total ? *range->Total
                              : known      ? Store->state()->Length.value_or(range->Last + 1)
                                           : range->Last + 1;
    if (end < Kept || !Store->goOn(Kept, head, forced)) {
        return useless();
    }
    Proven = Proven && known && !Store->state()->Validator.empty() && !forced;
    Joined = true;
    Allowed.At.reset();
    Probes = false;
    End = end;
    Compared = *range->First;
    head.resumedAt = *range->First;
    return true;
}

bool JoinedContent::beginWhole(Response& head) {
    if (Allowed.At) {
        failNoRange(*Allowed.At, head);
    }
    const std::uint64_t there = Store->size();
    const std::optional<ContentState> before = Store->state();
    Fresh = Probes = false;
    if (Store->restart(head)) {
        Joined = false;
        Proven = true;
        return true;
    }
    // What was passed on is left out of what comes again, if that is the same.
    const ContentState seen = stateOf(head);
    if (!before || before->Validator.empty() || seen.Validator != before->Validator || seen.Coding != before->Coding) {
        throw clientError(failure::kNotResumed, {static_cast<std::int64_t>(there)},
                          "the content broke off after " + std::to_string(there) +
                              " bytes, and the server sends other content now")
            .with(head, true);
    }
    Kept = there;
    return true;
}

// What comes is of no use, and the whole is asked for instead.
bool JoinedContent::useless() {
    Fresh = true;
    Probes = false;
    return false;
}

bool JoinedContent::isWhole(Response& head) {
    End.reset();
    const auto range = parseContentRange(head.fields["Content-Range"]);
    const std::uint64_t there = Store->size();
    if (range && !range->First && range->Total == there && Asked == there &&
        (!Store->state() || Store->state()->Length.value_or(there) == there)) {
        head.resumedAt = there;
        Proven = Proven && Store->state() && !Store->state()->Validator.empty();
        Joined = true;
        return true;
    }
    if (Allowed.At) {
        failNoRange(*Allowed.At, head);
    }
    // Some servers do not say how much there is.
    if (!range && !Probes && there != 0) {
        Probes = true;
        return false;
    }
    return useless();
}

Piece JoinedContent::write(std::span<const std::byte> piece) {
    if (Compared < Kept) {
        const auto again = piece.first(std::min<std::uint64_t>(piece.size(), Kept - Compared));
        if (!Store->holds(Compared, again)) {
            useless();
            return Piece::Wrong;
        }
        Compared += again.size();
        piece = piece.subspan(again.size());
    }
    return piece.empty() || Store->write(piece) ? Piece::Taken : Piece::Enough;
}

bool JoinedContent::discard() {
    Store->discard();
    useless();
    return Joined;
}

void JoinedContent::finish(const Request& request, Response& response) {
    // A response with a part may leave out what is known already.
    const auto& state = Store->state();
    if (state && !state->Modified.empty() && !response.fields.contains("Last-Modified")) {
        Response told = response;
        told.fields.set("Last-Modified", state->Modified);
        Store->finish(request, told);
    } else {
        Store->finish(request, response);
    }
    response.file = Store->target();
    response.unproven = !Proven && request.sha256.empty();
}

} // namespace netrove
