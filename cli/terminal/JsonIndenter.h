// JSON text, indented for people: the text's own characters in their order, with other blanks between them. Numbers
// keep their digits and objects their order and their repeated names, because nothing becomes a value on the way.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

class JsonIndenter {
public:
    // `write` gets what is to be shown. With `colored`, names, texts and other values have colours of a terminal.
    JsonIndenter(std::function<void(std::string_view)> write, bool colored);

    // A piece of the text, cut anywhere. Several texts may follow one another (JSON lines). The beginning of each is
    // held back until it has ended or is long, and is written as it came if it turns out not to be JSON; in a long one
    // that fails later, what comes from there on.
    void take(std::string_view piece);
    // Nothing comes any more: writes what is held back, as it came if it has not ended.
    void finish();

private:
    enum class State {
        Value,        // of an array or an object, or at the top
        FirstElement, // or the end of the array
        FirstName,    // or the end of the object
        Name,
        Colon,
        AfterValue,
        String,
        Escape,
        Hex, // one of the four digits after \u
        Literal,
        // Within a number, after:
        Minus,
        Zero,
        Integer,
        Point,
        Fraction,
        Exponent,
        ExponentSign,
        ExponentDigits,
        Raw, // not JSON
    };

    bool step(char c);
    bool stepBetween(char c);
    bool stepString(char c);
    bool stepNumber(char c);
    bool startValue(char c);
    bool open(char c);
    bool close(char c);
    void endValue();
    void beginColor(std::string_view code);
    void endColor();
    void newLine();
    void release();
    void becomeRaw(std::string_view rest);

    std::function<void(std::string_view)> Write;
    bool Colored;
    State Now = State::Value;
    std::vector<bool> Open; // for each object true, for each array false, from the outside in
    bool InName = false;
    std::string_view LiteralLeft;
    int HexLeft = 0;
    bool Released = false; // some of this text has been written
    bool AnyEnded = false; // of several texts
    bool ColorIsOpen = false;
    std::string Came;  // of this text, while none of it has been written
    std::string Shown; // what is to be written
};

} // namespace netrove::cli
