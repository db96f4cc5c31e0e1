#include "transfer/Trace.h"

#include "host/SingletonStore.h"

#include <iostream>
#include <typeinfo>

namespace netrove {

namespace {

using Store = foundation::usm::Detail<foundation::usm::scope::Vvm>;

void write(std::string_view text) {
    std::cout << text << std::flush;
}

} // namespace

LogPerformData& getLogPerformData() {
    static const std::size_t key = Store::getNextID(typeid(LogPerformData));
    foundation::usm::Holder* stored = Store::find(key, typeid(LogPerformData));
    if (stored == nullptr) {
        foundation::usm::Holder made(new LogPerformData, [](void* data) { delete static_cast<LogPerformData*>(data); });
        stored = Store::findOrInsert(key, typeid(LogPerformData), std::move(made));
    }
    return *static_cast<LogPerformData*>(stored->get());
}

void traceLine(std::int32_t debug, std::string_view text) {
    if (debug != 0) {
        flushRepeats();
        std::cout << text << '\n' << std::flush;
    }
}

void traceText(std::int32_t debug, std::string_view text) {
    if (debug != 0) {
        flushRepeats();
        write(text);
    }
}

void tracePerform(std::int32_t debug, std::string_view text) {
    if (debug == 0) {
        return;
    }
    LogPerformData& log = getLogPerformData();
    if (log.LastText == text) {
        ++log.RepeatCount;
        return;
    }
    flushRepeats();
    log.RepeatCount = 1;
    log.LastText = text;
    write(std::string("PERFORM IN ") + log.LastText); // the count closes this line
}

void flushRepeats() {
    LogPerformData& log = getLogPerformData();
    if (log.RepeatCount >= 1) {
        write(' ' + std::to_string(log.RepeatCount) + " times\n");
        log.RepeatCount = 0;
        log.LastText.clear();
    }
}

} // namespace netrove
