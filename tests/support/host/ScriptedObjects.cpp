#include "tests/support/host/ScriptedObjects.h"

#include <algorithm>
#include <atomic>
#include <span>
#include <utility>

namespace testsupport {
namespace {

using Inputs = std::span<const vantik::Array>;
using Results = std::vector<vantik::Array>;

std::string freshClassName(const std::string& role) {
    static std::atomic<unsigned> number = 0;
    return "test.scripted." + role + std::to_string(++number);
}

// A class of its own for each object, so that each can lack other methods.
class ClassMaker {
public:
    ClassMaker(std::string name, const std::string& base, const Missing& missing)
        : Name(std::move(name)), Class(Name), Left(missing) {
        Class.derivesFrom(base);
    }

    void method(const std::string& methodName, vantik::Method body) {
        if (!Left.contains(methodName)) {
            Class.method(methodName, std::move(body));
        }
    }

    vantik::Object makeIn(vantik::Host& host) const {
        Class.defineIn(host);
        return host.create(Name);
    }

private:
    std::string Name;
    vantik::HostClass Class;
    const Missing& Left;
};

vantik::Array nextPiece(ProviderState& state, std::uint64_t wanted) {
    const std::size_t length = std::min<std::uint64_t>(wanted, state.Content.size() - state.Position);
    const std::string_view piece = std::string_view(state.Content).substr(state.Position, length);
    state.Position += length;
    return vantik::Array::bytes(piece);
}

void note(Journal* journal, const std::string& call) {
    if (journal != nullptr) {
        journal->push_back(call);
    }
}

void noteConsumer(ConsumerState& state, const std::string& call) {
    state.Calls.push_back(call);
    note(state.Shared, "consumer " + call);
}

} // namespace

std::string ConsumerState::content() const {
    std::string all;
    for (const std::string& piece : Pieces) {
        all += piece;
    }
    return all;
}

ScriptedProvider makeScriptedProvider(vantik::Host& host, std::string content, const Missing& missing) {
    auto state = std::make_shared<ProviderState>();
    state->Content = std::move(content);
    ClassMaker maker(freshClassName("Provider"), "vantik.net.http.io.ContentProvider", missing);
    maker.method("startInternal", [state](Inputs) -> Results {
        ++state->Starts;
        state->Position = 0;
        note(state->Shared, "provider start");
        if (state->OnStart) {
            state->OnStart(state->Starts);
        }
        return {};
    });
    maker.method("getDataInternal", [state](Inputs inputs) -> Results {
        const std::uint64_t wanted = inputs[1].unsignedInteger();
        state->Wanted.push_back(wanted);
        note(state->Shared, "provider get " + std::to_string(wanted));
        const int call = static_cast<int>(state->Wanted.size());
        return {state->OnRead ? state->OnRead(call, wanted) : nextPiece(*state, wanted)};
    });
    return {maker.makeIn(host), state};
}

ScriptedConsumer makeScriptedConsumer(vantik::Host& host, const Missing& missing) {
    auto state = std::make_shared<ConsumerState>();
    ClassMaker maker(freshClassName("Consumer"), "vantik.net.http.io.ContentConsumer", missing);
    maker.method("startInternal", [state](Inputs) -> Results {
        noteConsumer(*state, "start");
        return {state->OnStart ? state->OnStart() : vantik::Array()};
    });
    maker.method("putDataInternal", [state](Inputs inputs) -> Results {
        const std::string piece(inputs[1].byteText());
        noteConsumer(*state, "put " + std::to_string(piece.size()));
        state->Pieces.push_back(piece);
        state->Shapes.push_back(inputs[1].dimensions());
        const int call = static_cast<int>(state->Pieces.size());
        return {state->OnPut ? state->OnPut(call, piece) : vantik::Array(static_cast<double>(piece.size()))};
    });
    maker.method("closeInternal", [state](Inputs) -> Results {
        noteConsumer(*state, "close");
        if (state->OnClose) {
            state->OnClose();
        }
        return {};
    });
    maker.method("interruptInternal", [state](Inputs) -> Results {
        noteConsumer(*state, "interrupt");
        return {};
    });
    maker.method("savePayloadInternal", [state](Inputs inputs) -> Results {
        state->Saved = inputs[1].byteText();
        noteConsumer(*state, "save " + std::to_string(state->Saved.size()));
        return {};
    });
    return {maker.makeIn(host), state};
}

ScriptedReporter makeScriptedReporter(vantik::Host& host, const Missing& missing) {
    auto state = std::make_shared<ReporterState>();
    ClassMaker maker(freshClassName("Reporter"), "vantik.net.http.internal.ProgressReporter", missing);
    maker.method("update", [state](Inputs inputs) -> Results {
        state->Counts.push_back(inputs[1].unsignedInteger());
        note(state->Shared, "report " + std::to_string(state->Counts.back()));
        const int call = static_cast<int>(state->Counts.size());
        return {state->OnUpdate ? state->OnUpdate(call, state->Counts.back()) : vantik::Array(true)};
    });
    return {maker.makeIn(host), state};
}

} // namespace testsupport
