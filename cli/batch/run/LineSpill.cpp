#include "cli/batch/run/LineSpill.h"

#include "cli/failures/CliFailure.h"
#include "cli/system/TemporaryFile.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

// Each record begins with where the next one of its queue is, and with its own length.
struct RecordHead {
    std::uint64_t Next = 0;
    std::uint64_t Length = 0; // without this
};

// Lines as bytes. Members are named here one by one, so that a new one is not forgotten.
class Packer {
public:
    explicit Packer(std::string& bytes) : Bytes(bytes) {}

    void put(std::uint64_t number) { Bytes.append(reinterpret_cast<const char*>(&number), sizeof number); }
    void put(const std::string& text) {
        put(text.size());
        Bytes += text;
    }
    void put(const std::optional<std::string>& text) {
        put(std::uint64_t{text.has_value()});
        put(text.value_or(""));
    }
    void put(const std::vector<Field>& fields) {
        put(fields.size());
        for (const Field& field : fields) {
            put(field.name);
            put(field.value);
        }
    }
    template <class... Members>
    void all(const Members&... members) {
        (put(members), ...);
    }

private:
    std::string& Bytes;
};

class Unpacker {
public:
    explicit Unpacker(std::string_view bytes) : Bytes(bytes) {}

    void get(std::uint64_t& number) { std::memcpy(&number, taken(sizeof number).data(), sizeof number); }
    void get(std::string& text) {
        std::uint64_t length = 0;
        get(length);
        text = taken(length);
    }
    void get(std::optional<std::string>& text) {
        std::uint64_t there = 0;
        get(there);
        get(text.emplace());
        if (there == 0) {
            text.reset();
        }
    }
    void get(std::vector<Field>& fields) {
        std::uint64_t count = 0;
        get(count);
        for (; count != 0; --count) {
            Field field;
            get(field.name);
            get(field.value);
            fields.push_back(std::move(field));
        }
    }
    template <class... Members>
    void all(Members&... members) {
        (get(members), ...);
    }

private:
    std::string_view taken(std::size_t length) {
        if (length > Bytes.size()) {
            failSystem(failure::kFileNotRead, temporaryFolder(), EIO);
        }
        const std::string_view result = Bytes.substr(0, length);
        Bytes.remove_prefix(length);
        return result;
    }

    std::string_view Bytes;
};

template <class Tool, class Line>
void eachMember(Tool& tool, Line& line) {
    auto& [number, content, text, url, target, extras] = line;
    tool.all(number, content, text, url, target);
}

template <class Tool, class Extras>
void eachExtra(Tool& tool, Extras& extras) {
    auto& [id, method, fields, body, bodyFile, sha256, user, password] = extras;
    tool.all(id, method, fields, body, bodyFile, sha256, user, password);
}

std::string packed(const BatchLine& line) {
    std::string bytes;
    Packer packer(bytes);
    eachMember(packer, line);
    packer.put(std::uint64_t{line.Extras != nullptr});
    if (line.Extras) {
        eachExtra(packer, std::as_const(*line.Extras));
    }
    return bytes;
}

BatchLine unpacked(std::string_view bytes) {
    BatchLine line;
    Unpacker unpacker(bytes);
    eachMember(unpacker, line);
    std::uint64_t extras = 0;
    unpacker.get(extras);
    if (extras != 0) {
        line.Extras = std::make_unique<BatchExtras>();
        eachExtra(unpacker, *line.Extras);
    }
    return line;
}

} // namespace

void LineSpill::add(Queue& queue, const BatchLine& line) {
    if (File.Number < 0) {
        File.Number = openTemporary();
    }
    const std::string body = packed(line);
    const RecordHead head{0, body.size()};
    std::string record(reinterpret_cast<const char*>(&head), sizeof head);
    record += body;
    write(record, End);
    if (queue.Count == 0) {
        queue.First = End;
    } else {
        write({reinterpret_cast<const char*>(&End), sizeof End}, queue.Last);
    }
    queue.Last = End;
    End += record.size();
    ++queue.Count;
    ++All;
}

BatchLine LineSpill::take(Queue& queue) {
    RecordHead head;
    read(reinterpret_cast<char*>(&head), sizeof head, queue.First);
    std::string body(head.Length, '\0');
    read(body.data(), body.size(), queue.First + sizeof head);
    queue.First = head.Next;
    --queue.Count;
    if (--All == 0 && ftruncate(File.Number, 0) == 0) { // otherwise the file grows further, as it did before
        End = 0;
    }
    return unpacked(body);
}

void LineSpill::write(std::string_view bytes, std::uint64_t at) const {
    while (!bytes.empty()) {
        const ssize_t count =
            retried([&] { return pwrite(File.Number, bytes.data(), bytes.size(), static_cast<off_t>(at)); });
        if (count <= 0) {
            failSystem(failure::kFileNotWritten, temporaryFolder(), count < 0 ? errno : EIO);
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
        at += static_cast<std::uint64_t>(count);
    }
}

void LineSpill::read(char* to, std::size_t length, std::uint64_t at) const {
    while (length > 0) {
        const ssize_t count = retried([&] { return pread(File.Number, to, length, static_cast<off_t>(at)); });
        if (count <= 0) {
            failSystem(failure::kFileNotRead, temporaryFolder(), count < 0 ? errno : EIO);
        }
        to += count;
        at += static_cast<std::uint64_t>(count);
        length -= static_cast<std::size_t>(count);
    }
}

} // namespace netrove::cli
