// Host objects that do as told and remember what was asked of them: content providers, content consumers, progress
// reporters. Hooks must not hold on to objects or arrays of the scope, which would keep each other alive.
#pragma once

#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace testsupport {

// Names of methods that the class of an object is to lack.
using Missing = std::set<std::string>;

// The calls of several objects in their order: "provider start", "provider get 16384", "consumer put 100", "report
// 100".
using Journal = std::vector<std::string>;

// Provides `Content` in pieces as large as wanted, from the start again after each start, unless `OnRead` says
// otherwise.
struct ProviderState {
    std::string Content;
    std::size_t Position = 0;
    std::function<void(int call)> OnStart; // calls are counted from 1
    std::function<vantik::Array(int call, std::uint64_t wanted)> OnRead;
    int Starts = 0;
    std::vector<std::uint64_t> Wanted; // one entry a read
    Journal* Shared = nullptr;         // each call goes there too
};

// Takes everything unless `OnPut` says otherwise. `OnStart` answers the start: nothing by default.
struct ConsumerState {
    std::function<vantik::Array()> OnStart;
    std::function<vantik::Array(int call, const std::string& piece)> OnPut;
    std::function<void()> OnClose;
    std::vector<std::string> Calls; // "start", "put 100", "close", "interrupt", "save 50"
    std::vector<std::string> Pieces;
    std::vector<std::vector<std::size_t>> Shapes; // dimensions of each piece
    std::string Saved;                            // what savePayloadInternal was given
    Journal* Shared = nullptr;                    // each call goes there too

    std::string content() const; // all pieces together
};

// Says carry on unless `OnUpdate` says otherwise.
struct ReporterState {
    std::function<vantik::Array(int call, std::uint64_t bytes)> OnUpdate;
    std::vector<std::uint64_t> Counts;
    Journal* Shared = nullptr; // each call goes there too
};

// An object of a class made for it, together with what it remembers.
template <class State>
class ScriptedObject {
public:
    ScriptedObject(vantik::Object object, std::shared_ptr<State> state)
        : Handle(std::move(object)), Memory(std::move(state)) {}

    const vantik::Object& object() const { return Handle; }
    operator const vantik::Array&() const { return Handle.array(); }
    State* operator->() const { return Memory.get(); }

private:
    vantik::Object Handle;
    std::shared_ptr<State> Memory;
};

using ScriptedProvider = ScriptedObject<ProviderState>;
using ScriptedConsumer = ScriptedObject<ConsumerState>;
using ScriptedReporter = ScriptedObject<ReporterState>;

ScriptedProvider makeScriptedProvider(vantik::Host& host, std::string content = {}, const Missing& missing = {});
ScriptedConsumer makeScriptedConsumer(vantik::Host& host, const Missing& missing = {});
ScriptedReporter makeScriptedReporter(vantik::Host& host, const Missing& missing = {});

} // namespace testsupport
