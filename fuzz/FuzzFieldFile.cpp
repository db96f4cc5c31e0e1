// A file of header fields: what is accepted is a field that cannot become two, and reads the same after it is written
// again.
#include "cli/options/FieldText.h"
#include "fuzz/FuzzInput.h"
#include "vantik/Failure.h"

#include <string>

using namespace netrove;
using namespace netrove::cli;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<Field> fields;
    try {
        fields = parseFieldLines(textOf(data, size), "file");
    } catch (const vantik::Failure& failure) {
        require(!hasControls(failure.message().Text), "a refusal is one line of text");
        return 0;
    }
    std::string again;
    for (const Field& field : fields) {
        require(isToken(field.name), "the name of a field is a token");
        require(field.value.find_first_of(std::string_view("\r\n\0", 3)) == field.value.npos, "a value is one line");
        again += field.name + ": " + field.value + "\r\n";
    }
    const std::vector<Field> read = parseFieldLines(again, "file");
    require(read.size() == fields.size(), "fields that are written are as many when they are read");
    for (std::size_t i = 0; i < read.size(); ++i) {
        require(read[i].name == fields[i].name && read[i].value == fields[i].value,
                "a field is read as it was written");
    }
    return 0;
}
