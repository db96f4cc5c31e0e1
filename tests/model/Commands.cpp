#include "tests/model/Commands.h"

#include <algorithm>
#include <random>
#include <utility>

namespace model {
namespace {

std::string choice(std::size_t number, const std::vector<const char*>& words) {
    return words.at(number % words.size());
}

// What the number of an operation stands for, and how often it is drawn.
struct Value {
    const char* Word;
    double Weight = 0; // where all have none, the first one is taken
};

struct Operation {
    const char* Name;
    std::vector<Value> Values{{""}};
};

const Operation& operation(Op op) {
    static const std::vector<Value> contents = {
        {"none", 2}, {"0 bytes", 1}, {"5 bytes", 2}, {"40000 bytes", 4}, {"200000 bytes", 3}};
    static const std::vector<Operation> operations = {
        // in the order of Op
        {"create", {{""}, {"older interface"}}},
        {"destroy"},
        {"set URL"},
        {"openConnection"},
        {"closeConnection"},
        {"closeAllConnections"},
        {"get ResponseCode"},
        {"copyContentToByteArray", {{"true"}}},
        {"copyContentToByteArray", {{"false"}}},
        {"copyContentToFile"},
        {"set RequestMethod", {{"GET", 2}, {"a name of its own", 5}, {"HEAD", 2}}},
        {"set Payload", contents},
        {"set Provider", contents},
        {"set Consumer", {{"none", 1}, {"", 5}}},
        {"set ProgressReporter", {{"none", 1}, {"", 5}}},
        {"set login", {{"no scheme", 1}, {"Basic", 4}, {"Basic and Digest", 3}}},
        {"set field", {{"Cookie", 1}, {"no Expect", 1}}},
        {"set ResponsePayload", {{"3 bytes"}}},
        {"interrupt"},
    };
    return operations.at(static_cast<std::size_t>(op));
}

std::string describe(Op op, std::uint8_t object, std::uint8_t number) {
    const auto& [name, values] = operation(op);
    const std::string word = values.at(number % values.size()).Word;
    return std::string(name) + '(' + static_cast<char>('a' + object) + (word.empty() ? "" : ", " + word) + ')';
}

std::string describe(const Shape& shape) {
    std::string text = choice(static_cast<std::size_t>(shape.What),
                              {"200", "404", "401 always", "401 without credentials, then 200", "a redirect's status"});
    text += " with " + std::to_string(kAnswerSizes.at(shape.Size)) + " bytes" + (shape.Chunked ? " in chunks" : "");
    if (shape.Last != End::Whole) {
        text += choice(static_cast<std::size_t>(shape.Last), {"", ", closed ", ", reset ", ", silent "}) +
                choice(shape.Part, {"before its head", "after its head", "in the middle"});
    }
    return text + (shape.Early ? ", before the request's content" : "") + (shape.Cookie ? ", sets a cookie" : "");
}

std::string describe(const Hook& hook) {
    if (hook.What == Act::Nothing) {
        return {};
    }
    const std::string event = choice(hook.Event, {"start", "call 1", "call 2", "call 3", "call 4", "call 5", "call 6",
                                                  "call 7", "restart", "close"});
    return "; at " + event + ": " +
           (hook.What == Act::Call
                ? describe(hook.Nested, hook.Target, hook.Number) + (hook.Swallow ? ", failures swallowed" : "")
                : choice(static_cast<std::size_t>(hook.What), {"", "raise", "interrupt", "say stop", "take half"}));
}

// Draws sequences that get far: whole exchanges with something in between, more often than operations without rhyme or
// reason.
class Drawer {
public:
    explicit Drawer(std::uint64_t seed) : Random(seed) {}

    Sequence draw() {
        const std::uint8_t objects = static_cast<std::uint8_t>(1 + weighted({3, 4, 2}));
        const std::size_t length = 4 + below(20);
        Known = objects;
        for (std::uint8_t object = 0; object < objects; ++object) {
            if (object == 0 || chance(70)) {
                add(Op::Create, object, chance(12) ? 1 : 0);
            }
        }
        while (Drawn.size() < length) {
            chance(60) ? exchange(anyObject()) : single(anyObject());
        }
        return std::move(Drawn);
    }

private:
    std::uint8_t below(unsigned bound) {
        return static_cast<std::uint8_t>(std::uniform_int_distribution<unsigned>(0, bound - 1)(Random));
    }
    bool chance(unsigned percent) { return std::uniform_int_distribution<unsigned>(0, 99)(Random) < percent; }
    std::uint8_t weighted(const std::vector<double>& weights) {
        return static_cast<std::uint8_t>(std::discrete_distribution<int>(weights.begin(), weights.end())(Random));
    }
    template <class Value>
    Value pick(std::initializer_list<std::pair<Value, double>> values) {
        std::vector<double> weights;
        for (const auto& [value, weight] : values) {
            weights.push_back(weight);
        }
        return (values.begin() + weighted(weights))->first;
    }
    std::uint8_t anyObject() { return below(Known); }

    Command& add(Op op, std::uint8_t object, std::uint8_t number = 0) {
        Drawn.push_back({op, object, number});
        return Drawn.back();
    }

    void exchange(std::uint8_t object) {
        if (chance(70)) {
            add(Op::Close, chance(80) ? Last : anyObject());
        }
        if (chance(10)) {
            add(Op::Create, object, chance(12) ? 1 : 0);
        }
        const bool challenged = chance(10); // content that is wanted twice
        if (challenged || chance(85)) {
            Shape& answer = add(Op::SetUrl, object).Answer = shape();
            answer.What = challenged ? (chance(70) ? Kind::Challenge : Kind::Denied) : answer.What;
        }
        add(Op::Open, object);
        Last = object;
        if (challenged) {
            add(Op::SetLogin, object, kLoginSeveral);
            set(chance(70) ? Op::SetProvider : Op::SetPayload, object);
        }
        for (std::uint8_t count = weighted({1, 3, 4, 3}); count > 0; --count) {
            setting(object);
        }
        if (chance(8)) {
            add(Op::Interrupt, object);
        }
        if (chance(35)) {
            add(Op::Status, object);
            if (chance(15)) {
                add(Op::Open, object);
            }
        }
        if (chance(25)) {
            single(anyObject());
        }
        for (unsigned more = 85; chance(more); more = 25) {
            receive(object);
        }
    }

    void receive(std::uint8_t object) {
        add(pick<Op>({{Op::Copy, 6}, {Op::Save, 2}, {Op::CopyToConsumer, 2}}), object);
    }

    void setting(std::uint8_t object) {
        // clang-format off
        set(pick<Op>({{Op::SetMethod, 3}, {Op::SetPayload, 4}, {Op::SetProvider, 6}, {Op::SetConsumer, 5},
                      {Op::SetReporter, 4}, {Op::SetLogin, 3}, {Op::SetField, 2}, {Op::SetLead, 0.5}}), object);
        // clang-format on
    }

    void set(Op op, std::uint8_t object) {
        Command& command = add(op, object, value(op));
        if (op == Op::SetProvider || op == Op::SetConsumer || op == Op::SetReporter) {
            command.Then = hook(op);
        }
        if (op == Op::SetUrl) {
            command.Answer = shape();
        }
    }

    std::uint8_t value(Op op) {
        std::vector<double> weights;
        for (const Value& each : operation(op).Values) {
            weights.push_back(each.Weight);
        }
        return weights.front() > 0 ? weighted(weights) : 0;
    }

    Hook hook(Op of) {
        if (chance(25)) {
            return {};
        }
        Hook drawn{.Event = weighted({3, 6, 4, 2, 1})};
        if ((of == Op::SetProvider || of == Op::SetConsumer) && chance(12)) {
            drawn.Event = of == Op::SetProvider ? Hook::kAgain : Hook::kEnd;
        }
        drawn.What = pick<Act>({{Act::Raise, 1.5},
                                {Act::Interrupt, 1.5},
                                {Act::Stop, 1.5},
                                {Act::TakeLess, of == Op::SetConsumer ? 1.0 : 0.0},
                                {Act::Call, 6}});
        // clang-format off
        drawn.Nested = pick<Op>({{Op::Open, 4}, {Op::Close, 4}, {Op::Copy, 4}, {Op::Status, 3}, {Op::SetMethod, 2},
                                 {Op::Destroy, 3}, {Op::CloseAll, 2}, {Op::Save, 1}, {Op::SetPayload, 3},
                                 {Op::SetProvider, 3}, {Op::SetConsumer, 3}, {Op::SetReporter, 1}, {Op::Create, 1},
                                 {Op::SetUrl, 1}, {Op::CopyToConsumer, 1}, {Op::SetField, 1}});
        // clang-format on
        drawn.Target = anyObject();
        drawn.Number = value(drawn.Nested);
        drawn.Swallow = chance(65);
        return drawn;
    }

    void single(std::uint8_t object) {
        switch (weighted({4, 3, 3})) {
        case 0:
            // clang-format off
            set(pick<Op>({{Op::Create, 3}, {Op::Destroy, 3}, {Op::SetUrl, 2}, {Op::Open, 3}, {Op::Close, 3},
                          {Op::CloseAll, 2}, {Op::Status, 3}, {Op::Interrupt, 1}}), object);
            // clang-format on
            break;
        case 1:
            setting(object);
            break;
        default:
            receive(object);
        }
    }

    Shape shape() {
        return {.What = static_cast<Kind>(weighted({10, 2, 3, 3, 1})),
                .Size = weighted({2, 3, 4, 4}),
                .Last = static_cast<End>(weighted({16, 2, 2, 0.7})),
                .Part = weighted({1, 1, 3}),
                .Chunked = chance(30),
                .Early = chance(25),
                .Cookie = chance(20)};
    }

    std::mt19937_64 Random;
    Sequence Drawn;
    std::uint8_t Known = 1; // objects
    std::uint8_t Last = 0;  // object of the latest exchange
};

rc::Seq<Command> smallerCommands(const Command& command) {
    constexpr void (*changes[])(Command&) = {
        [](Command& c) { c.Then = {}; },
        [](Command& c) { c.Answer = {}; },
        [](Command& c) { c.Number = std::min<std::uint8_t>(c.Number, 1); },
        [](Command& c) { c.Number -= c.Number > 2 ? 1 : 0; },
        [](Command& c) { c.Then.Event -= c.Then.Event > 1 ? 1 : 0; },
        [](Command& c) { c.Answer.What = Kind::Success; },
        [](Command& c) { c.Answer.Last = End::Whole; },
        [](Command& c) { c.Answer.Size -= c.Answer.Size > 0 ? 1 : 0; },
        [](Command& c) { c.Answer.Chunked = false; },
        [](Command& c) { c.Answer.Early = false; },
        [](Command& c) { c.Answer.Cookie = false; },
        [](Command& c) { c.Object = 0; },
    };
    std::vector<Command> smaller;
    for (const auto change : changes) {
        Command changed = command;
        change(changed);
        if (describe(changed) != describe(command)) {
            smaller.push_back(changed);
        }
    }
    return rc::seq::fromContainer(std::move(smaller));
}

} // namespace

std::string describe(const Command& command) {
    const bool hooked = command.Number != 0 && (command.What == Op::SetProvider || command.What == Op::SetConsumer ||
                                                command.What == Op::SetReporter);
    return describe(command.What, command.Object, command.Number) + (hooked ? describe(command.Then) : "") +
           (command.What == Op::SetUrl ? ", answered with " + describe(command.Answer) : "");
}

std::ostream& operator<<(std::ostream& stream, const Command& command) {
    return stream << describe(command);
}

std::string describe(const Sequence& sequence) {
    std::string text;
    for (std::size_t step = 0; step < sequence.size(); ++step) {
        text += "    " + std::to_string(step + 1) + "  " + describe(sequence[step]) + '\n';
    }
    return text;
}

rc::Gen<Sequence> sequences() {
    const auto whole = rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::uint64_t>());
    const auto drawn = rc::gen::noShrink(rc::gen::map(whole, [](std::uint64_t seed) { return Drawer(seed).draw(); }));
    return rc::gen::shrink(drawn, [](const Sequence& sequence) {
        return rc::seq::concat(rc::shrink::removeChunks(sequence), rc::shrink::eachElement(sequence, smallerCommands));
    });
}

} // namespace model
