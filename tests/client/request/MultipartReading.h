// Multipart content as others read it.
#pragma once

#include "tests/client/request/BodyReading.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace clienttest {

// A part as Python's parser of mail reads it.
struct ReadPart {
    std::string Name;
    std::optional<std::string> FileName;
    std::vector<std::string> Fields; // all names
    std::string Type;
    std::string Content; // in hex
    bool operator==(const ReadPart&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const ReadPart& part) {
    return out << part.Name << " | " << part.FileName.value_or("-") << " | " << part.Type << " | " << part.Content;
}

inline std::vector<ReadPart> readBack(const netrove::Body& form) {
    const nlohmann::json parts = python(R"(
import email, email.message, json, sys
message = email.message_from_bytes(open(sys.argv[1], "rb").read())
assert message.is_multipart() and not message.defects, message.defects
result = []
for part in message.get_payload():
    assert not part.defects, part.defects
    fields = {name.lower(): value.encode("ascii", "surrogateescape").decode("utf-8") for name, value in part._headers}
    disposition = email.message.Message()
    disposition["Content-Disposition"] = fields["content-disposition"]
    assert disposition.get_content_disposition() == "form-data"
    result.append({
        "name": disposition.get_param("name", header="content-disposition"),
        "filename": disposition.get_param("filename", header="content-disposition"),
        "fields": [name for name, value in part._headers],
        "type": fields.get("content-type", ""),
        "content": part.get_payload(decode=True).hex(),
    })
print(json.dumps(result))
)",
                                        "Content-Type: " + form.contentType() + "\r\n\r\n" + readWhole(form));
    std::vector<ReadPart> result;
    for (const auto& part : parts) {
        const auto& fileName = part["filename"];
        result.push_back({part["name"], fileName.is_null() ? std::nullopt : std::optional<std::string>(fileName),
                          part["fields"], part["type"], part["content"]});
    }
    return result;
}

} // namespace clienttest
