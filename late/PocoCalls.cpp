#include "late/PocoCalls.h"

#include "late/LateLibrary.h"

#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/DateTimeParser.h>
#include <Poco/Exception.h>
#include <Poco/Net/MessageHeader.h>
#include <Poco/Net/NameValueCollection.h>
#include <Poco/Timestamp.h>

namespace netrove {

namespace {

std::optional<std::string> parameter(const std::string& field, const std::string& name) {
    std::string value;
    Poco::Net::NameValueCollection parameters;
    Poco::Net::MessageHeader::splitParameters(field, value, parameters);
    try {
        return parameters.get(name);
    } catch (const Poco::NotFoundException&) {
        return std::nullopt;
    }
}

std::string formatted(const Poco::Timestamp& time) {
    return Poco::DateTimeFormatter::format(time, Poco::DateTimeFormat::HTTP_FORMAT);
}

std::string fieldDate(std::time_t time) {
    return formatted(Poco::Timestamp::fromEpochTime(time));
}

std::optional<std::string> readDate(const std::string& text) {
    Poco::DateTime date;
    int zone = 0; // seconds
    if (!Poco::DateTimeParser::tryParse(text, date, zone)) {
        return std::nullopt;
    }
    date.makeUTC(zone);
    return formatted(date.timestamp());
}

} // namespace

NETROVE_LATE_CALLS(PocoCalls, parameter, fieldDate, readDate)

} // namespace netrove
