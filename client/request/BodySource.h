// What a Body is made of.
#pragma once

#include <netrove/body.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace netrove {

class BodySource {
public:
    virtual ~BodySource() = default;

    // While there is a reader, what the last of them delivers: it is what the server was promised.
    virtual std::optional<std::uint64_t> length() = 0;
    virtual bool repeatable() const = 0;
    // Called once if the content is not repeatable.
    virtual std::unique_ptr<BodyReader> open() = 0;
    virtual std::optional<std::string_view> inMemory() const { return {}; }
    virtual std::string fileName() const { return {}; } // without folders; empty if it has none

private:
    friend class Body;
    bool Opened = false;
};

// What the library knows of a Body and programs need not.
struct BodyAccess {
    static Body make(std::shared_ptr<BodySource> source, std::string contentType);
    static std::string fileName(const Body& body);
};

// Text and other content in memory.
Body memoryBody(std::string content, std::string contentType);

// Content that is held to the length that was announced for it. The server would wait for what is missing, and might
// take what is too much for the next request. `onOther` raises the failure; it gets what is wrong.
std::unique_ptr<BodyReader> exactly(std::uint64_t length, std::unique_ptr<BodyReader> content,
                                    std::function<void(const std::string& what)> onOther);
// Raises ContentChanged. `what` goes on after "it".
[[noreturn]] void failChanged(const std::string& file, const std::string& what);

} // namespace netrove
