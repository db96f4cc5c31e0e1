#include "cli/terminal/JsonIndenter.h"

#include <utility>

namespace netrove::cli {

namespace {

// What is deeper is taken for something else: each line would begin with that many blanks.
constexpr std::size_t kDeepest = 200;
constexpr std::size_t kMostHeld = std::size_t{64} << 10;
constexpr std::size_t kMostShown = std::size_t{64} << 10; // in one call of `write`, but for a line

constexpr std::string_view kNameColor = "\033[1;34m";
constexpr std::string_view kStringColor = "\033[32m";
constexpr std::string_view kOtherColor = "\033[36m"; // numbers, true, false, null
constexpr std::string_view kNoColor = "\033[0m";

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

} // namespace

JsonIndenter::JsonIndenter(std::function<void(std::string_view)> write, bool colored)
    : Write(std::move(write)), Colored(colored) {}

void JsonIndenter::take(std::string_view piece) {
    for (std::size_t i = 0; i < piece.size(); ++i) {
        if (Now == State::Raw) {
            Write(piece.substr(i));
            return;
        }
        if (!Released) {
            Came += piece[i];
        }
        if (!step(piece[i])) {
            becomeRaw(piece.substr(i, 1));
        } else if (Came.size() > kMostHeld || Shown.size() > kMostShown) {
            release();
        }
    }
    if (Released) {
        release(); // what has begun to appear goes on as it comes
    }
}

void JsonIndenter::finish() {
    if (Now == State::Zero || Now == State::Integer || Now == State::Fraction || Now == State::ExponentDigits) {
        endValue();
    }
    const bool atTop = Now == State::Value && Open.empty();
    if (!atTop && Now != State::Raw) {
        becomeRaw("");
    } else if (!AnyEnded && !Came.empty()) {
        Write(Came); // nothing but blanks
    }
    Came.clear();
}

void JsonIndenter::becomeRaw(std::string_view rest) {
    if (Released) {
        endColor();
        release();
        Write(rest);
    } else {
        Write(Came);
    }
    Came.clear();
    Shown.clear();
    Now = State::Raw;
}

void JsonIndenter::release() {
    if (!Shown.empty()) {
        Write(Shown);
        Shown.clear();
    }
    Came.clear();
    Released = true;
}

bool JsonIndenter::step(char c) {
    switch (Now) {
    case State::String:
    case State::Escape:
    case State::Hex:
        return stepString(c);
    case State::Literal:
        if (c != LiteralLeft.front()) {
            return false;
        }
        Shown += c;
        LiteralLeft.remove_prefix(1);
        if (LiteralLeft.empty()) {
            endValue();
        }
        return true;
    case State::Value:
    case State::FirstElement:
    case State::FirstName:
    case State::Name:
    case State::Colon:
    case State::AfterValue:
        return isBlank(c) || stepBetween(c);
    default:
        return stepNumber(c);
    }
}

bool JsonIndenter::stepBetween(char c) {
    switch (Now) {
    case State::FirstElement:
        if (c == ']') {
            return close(c);
        }
        newLine();
        return startValue(c);
    case State::Value:
        return startValue(c);
    case State::FirstName:
        if (c == '}') {
            return close(c);
        }
        [[fallthrough]];
    case State::Name:
        if (c != '"') {
            return false;
        }
        newLine();
        InName = true;
        beginColor(kNameColor);
        Shown += c;
        Now = State::String;
        return true;
    case State::Colon:
        Shown += ": ";
        Now = State::Value;
        return c == ':';
    default: // AfterValue, within an object or an array
        if (c == ',') {
            Shown += c;
            Now = Open.back() ? State::Name : State::Value;
            if (!Open.back()) {
                newLine();
            }
            return true;
        }
        if (c != (Open.back() ? '}' : ']')) {
            return false;
        }
        Open.pop_back();
        newLine();
        Shown += c;
        endValue();
        return true;
    }
}

bool JsonIndenter::startValue(char c) {
    if (c == '{' || c == '[') {
        return open(c);
    }
    if (c == '"') {
        beginColor(kStringColor);
        Now = State::String;
    } else if (c == '-' || isDigit(c)) {
        beginColor(kOtherColor);
        Now = c == '-' ? State::Minus : c == '0' ? State::Zero : State::Integer;
    } else {
        LiteralLeft = c == 't' ? "rue" : c == 'f' ? "alse" : c == 'n' ? "ull" : "";
        if (LiteralLeft.empty()) {
            return false;
        }
        beginColor(kOtherColor);
        Now = State::Literal;
    }
    Shown += c;
    return true;
}

bool JsonIndenter::open(char c) {
    if (Open.size() == kDeepest) {
        return false;
    }
    Shown += c;
    Open.push_back(c == '{');
    Now = c == '{' ? State::FirstName : State::FirstElement;
    return true;
}

// Of what is empty.
bool JsonIndenter::close(char c) {
    Open.pop_back();
    Shown += c;
    endValue();
    return true;
}

void JsonIndenter::endValue() {
    endColor();
    if (!Open.empty()) {
        Now = State::AfterValue;
        return;
    }
    Shown += '\n';
    release();
    Released = false; // the next text begins
    AnyEnded = true;
    Now = State::Value;
}

bool JsonIndenter::stepString(char c) {
    if (static_cast<unsigned char>(c) < 0x20) {
        return false;
    }
    Shown += c;
    if (Now == State::Hex) {
        --HexLeft;
        Now = HexLeft == 0 ? State::String : State::Hex;
        return isHexDigit(c);
    }
    if (Now == State::Escape) {
        HexLeft = c == 'u' ? 4 : 0;
        Now = c == 'u' ? State::Hex : State::String;
        return std::string_view("\"\\/bfnrtu").find(c) != std::string_view::npos;
    }
    if (c == '\\') {
        Now = State::Escape;
    } else if (c == '"' && std::exchange(InName, false)) {
        endColor();
        Now = State::Colon;
    } else if (c == '"') {
        endValue();
    }
    return true;
}

bool JsonIndenter::stepNumber(char c) {
    struct Move {
        State From;
        std::string_view On;
        State To;
    };
    constexpr std::string_view digits = "0123456789";
    static constexpr Move moves[] = {
        {State::Minus, "0", State::Zero},
        {State::Minus, "123456789", State::Integer},
        {State::Integer, digits, State::Integer},
        {State::Zero, ".", State::Point},
        {State::Integer, ".", State::Point},
        {State::Point, digits, State::Fraction},
        {State::Fraction, digits, State::Fraction},
        {State::Zero, "eE", State::Exponent},
        {State::Integer, "eE", State::Exponent},
        {State::Fraction, "eE", State::Exponent},
        {State::Exponent, "+-", State::ExponentSign},
        {State::Exponent, digits, State::ExponentDigits},
        {State::ExponentSign, digits, State::ExponentDigits},
        {State::ExponentDigits, digits, State::ExponentDigits},
    };
    for (const Move& move : moves) {
        if (move.From == Now && move.On.find(c) != move.On.npos) {
            Shown += c;
            Now = move.To;
            return true;
        }
    }
    const bool whole =
        Now == State::Zero || Now == State::Integer || Now == State::Fraction || Now == State::ExponentDigits;
    if (!whole || (Open.empty() && !isBlank(c))) {
        return false;
    }
    endValue();
    return isBlank(c) || stepBetween(c);
}

void JsonIndenter::beginColor(std::string_view code) {
    if (Colored) {
        Shown += code;
        ColorIsOpen = true;
    }
}

void JsonIndenter::endColor() {
    if (std::exchange(ColorIsOpen, false)) {
        Shown += kNoColor;
    }
}

void JsonIndenter::newLine() {
    Shown += '\n';
    Shown.append(2 * Open.size(), ' ');
}

} // namespace netrove::cli
