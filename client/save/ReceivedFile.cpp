#include "client/save/ContentStore.h"

#include <netrove/client.h>

namespace netrove {

ReceivedFile::ReceivedFile() = default;
ReceivedFile::~ReceivedFile() = default;
ReceivedFile::ReceivedFile(ReceivedFile&&) noexcept = default;
ReceivedFile& ReceivedFile::operator=(ReceivedFile&&) noexcept = default;

ReceivedFile::operator bool() const {
    return Content != nullptr;
}

void ReceivedFile::settle(bool flushed) {
    Content->settle(flushed);
}

void ReceivedFile::name() {
    Content->name();
}

int ReceivedFile::descriptor() const {
    return Content->descriptor();
}

std::filesystem::path ReceivedFile::target() const {
    return Content->target();
}

} // namespace netrove
