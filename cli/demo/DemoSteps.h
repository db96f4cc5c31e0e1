// The steps of the tour.
#pragma once

#include "cli/demo/DemoServer.h"
#include "cli/exchange/Session.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"

#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace netrove::cli {

// A step did not do what it should.
class StepFailed : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What a step works with.
class DemoStage {
public:
    DemoStage(Session& session, const Console& console, DemoServer& server, std::filesystem::path folder)
        : TheSession(session), TheConsole(console), Server(server), Folder(std::move(folder)) {}

    void say(std::string_view text) const;
    void expect(bool condition, const char* what) const {
        if (!condition) {
            throw StepFailed(what);
        }
    }

    // The session's connection, newly made and opened for a URL, with the method set. `newer` selects the interface.
    // Nothing else may hold the object: an old one that is destroyed later would close the new one.
    const vantik::Object& open(const std::string& url, std::string_view method = "GET", bool newer = true);
    void invoke(std::string_view method, std::initializer_list<vantik::Array> arguments = {});
    // The failure that an operation raises; StepFailed if it raises none. A real Ctrl-C is passed on.
    template <class Operation>
    vantik::Message failureOf(Operation operation, const char* what) const {
        try {
            operation();
        } catch (const vantik::Failure& failure) {
            if (signalSeen() != 0) {
                throw;
            }
            return failure.message();
        }
        throw StepFailed(what);
    }

    Session& TheSession;
    const Console& TheConsole;
    DemoServer& Server;
    std::filesystem::path Folder; // for files, removed at the end
};

struct DemoStep {
    std::string_view Title;
    std::string_view Explanation;
    void (*Run)(DemoStage& stage);
};

std::span<const DemoStep> demoSteps();

} // namespace netrove::cli
