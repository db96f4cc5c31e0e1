// Lines of the files in which servers keep users and their passwords.
#pragma once

#include <string>

namespace integrationtest {

inline constexpr const char* kKnownUser = "Aladdin";
inline constexpr const char* kKnownPassword = "open sesame";

// "user:hash" for Basic, hashed as the C library's crypt does, which every server that runs here understands.
std::string basicPasswordLine(const std::string& user, const std::string& password);

// "user:realm:hash" for Digest with MD5.
std::string digestPasswordLine(const std::string& user, const std::string& realm, const std::string& password);

} // namespace integrationtest
