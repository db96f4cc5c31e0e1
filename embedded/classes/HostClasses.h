// The classes that the host itself supplies: the bases of what a program hands to a client, and the enumerations that
// methods take.
#pragma once

namespace vantik::detail {

class ClassRegistry;

inline constexpr const char* kContentProviderClass = "vantik.net.http.io.ContentProvider";
inline constexpr const char* kContentConsumerClass = "vantik.net.http.io.ContentConsumer";
inline constexpr const char* kProgressReporterClass = "vantik.net.http.internal.ProgressReporter";
inline constexpr const char* kAuthenticationSchemeClass = "vantik.net.http.AuthenticationScheme";

// Needs no current scope.
void defineHostClasses(ClassRegistry& registry);

} // namespace vantik::detail
