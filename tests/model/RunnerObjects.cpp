// Providers, consumers and reporters that do their duty and, once, what a sequence wants of them.
#include "tests/model/Runner.h"

#include <algorithm>

namespace model {
namespace {

[[noreturn]] void raise() {
    throw vantik::Failure({"model", "Raised", {}, "raised on purpose"});
}

std::uint8_t counted(std::uint8_t& count) {
    return count = static_cast<std::uint8_t>(std::min(count + 1, Hook::kAgain - 1));
}

} // namespace

bool Runner::play(Memory& memory, std::uint8_t event) {
    const Hook& hook = memory.Then;
    if (Running == nullptr) {
        wrong("a host object is called where nothing runs");
        return false;
    }
    if (memory.Played || hook.Event != event || hook.What == Act::Nothing) {
        return false;
    }
    memory.Played = true;
    switch (hook.What) {
    case Act::Interrupt:
        Running->Allowed.insert({kInterrupted, kConnectionFailed});
        Host->interrupt();
        return false;
    case Act::Raise:
        Running->mustFail({kRaised});
        raise();
    case Act::Call: {
        const std::string before = Now;
        Now += ", from within";
        const Outcome outcome = apply({hook.Nested, hook.Target, hook.Number});
        Now = before;
        if (outcome.failed() && !hook.Swallow) {
            Running->mustFail({outcome.Identifier});
            std::rethrow_exception(outcome.Raised);
        }
        return false;
    }
    default:
        return true;
    }
}

vantik::Object Runner::provider(const MemoryPtr& memory) {
    const auto happen = [this, memory](std::uint8_t event) {
        if (play(*memory, event)) {
            Running->mustFail({kRaised});
            raise();
        }
    };
    vantik::ContentProvider provider;
    provider.rewind = [memory, happen] {
        memory->Position = 0;
        happen(memory->Starts++ == 0 ? 0 : Hook::kAgain);
    };
    provider.read = [memory, happen](std::uint64_t wanted) {
        happen(counted(memory->Calls));
        const std::string piece = memory->Content.substr(memory->Position, wanted);
        memory->Position += piece.size();
        return vantik::Array::bytes(std::string_view(piece));
    };
    return vantik::makeProvider(*Host, provider);
}

vantik::Object Runner::consumer(const MemoryPtr& memory) {
    vantik::ContentConsumer consumer;
    consumer.start = [this, memory]() -> std::optional<double> {
        memory->Content.clear();
        if (Running != nullptr) {
            Running->Started.push_back(memory);
        }
        play(*memory, 0);
        return std::nullopt;
    };
    consumer.write = [this, memory](std::span<const std::byte> piece) -> vantik::Taken {
        std::string_view bytes = vantik::asText(piece);
        if (play(*memory, counted(memory->Calls))) {
            if (memory->Then.What == Act::Stop) {
                Running->mustFail({kTerminated});
                return std::nullopt;
            }
            Running->Quiet = true;
            bytes = bytes.substr(0, bytes.size() / 2);
        }
        memory->Content += bytes;
        return bytes.size();
    };
    consumer.close = [this, memory] { play(*memory, Hook::kEnd); };
    return vantik::makeConsumer(*Host, consumer);
}

vantik::Object Runner::reporter(const MemoryPtr& memory) {
    return vantik::makeProgressReporter(*Host, [this, memory](std::uint64_t) {
        if (!play(*memory, counted(memory->Calls))) {
            return true;
        }
        Running->mustFail({kInterrupted, kConnectionFailed, kTerminated});
        return false;
    });
}

} // namespace model
