// The sequences that the model test plays: what they are made of, how they are drawn, made smaller and shown.
#pragma once

#include "tests/model/ModelServer.h"

#include <rapidcheck.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace model {

constexpr std::uint8_t kObjects = 3; // a, b, c

enum class Op : std::uint8_t {
    Create,
    Destroy,
    SetUrl, // with an answer planned for it alone
    Open,
    Close,
    CloseAll,
    Status,
    Copy,           // copyContentToByteArray(true)
    CopyToConsumer, // copyContentToByteArray(false)
    Save,
    SetMethod,
    SetPayload, // or PostData, with the older interface
    SetProvider,
    SetConsumer,
    SetReporter,
    SetLogin,
    SetField,
    SetLead, // bytes through ResponsePayload
    Interrupt,
};

// What a host object does at one of its events, besides its duty.
enum class Act : std::uint8_t {
    Nothing,
    Raise,
    Interrupt,
    Stop,     // a reporter says stop, a consumer returns nothing, a provider raises
    TakeLess, // a consumer takes half
    Call,     // one of the operations above
};

// 0: the first start; 1 and above: that read, write or update; Again: a provider is started once more; End: a consumer
// is closed. Once only.
struct Hook {
    static constexpr std::uint8_t kAgain = 8;
    static constexpr std::uint8_t kEnd = 9;
    std::uint8_t Event = 0;
    Act What = Act::Nothing;
    Op Nested = Op::Create; // of Act::Call
    std::uint8_t Target = 0;
    std::uint8_t Number = 0;
    bool Swallow = false; // what the call raises does not leave the host object
};

// Plain data: sequences go to another process as they are.
struct Command {
    Op What = Op::Create;
    std::uint8_t Object = 0;
    std::uint8_t Number = 0; // Create: 1 for the older interface; setters: which value, 0 for none; Copy: nothing
    Shape Answer{};
    Hook Then{};
};

using Sequence = std::vector<Command>;

// SetMethod
constexpr std::uint8_t kMethodGet = 0;
constexpr std::uint8_t kMethodOwn = 1; // a name that no other object uses
constexpr std::uint8_t kMethodHead = 2;
// SetLogin
constexpr std::uint8_t kLoginNone = 0;
constexpr std::uint8_t kLoginBasic = 1;
constexpr std::uint8_t kLoginSeveral = 2; // Basic and Digest are allowed
// SetField
constexpr std::uint8_t kFieldCookie = 0;
constexpr std::uint8_t kFieldNoExpect = 1;

// Bytes of a request's content, by the number of SetPayload and SetProvider; 0 stands for none at all.
constexpr std::array<std::size_t, 5> kRequestSizes{0, 0, 5, 40000, 200000};

std::string describe(const Command& command);
std::string describe(const Sequence& sequence); // a numbered line each
std::ostream& operator<<(std::ostream& stream, const Command& command);

rc::Gen<Sequence> sequences();

} // namespace model
