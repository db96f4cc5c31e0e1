/// @file
/// Whether proxies are a question here at all.
#pragma once

namespace vantik {

/// False where no setting can name a proxy: no variable of the environment does, and the system has no other settings.
/// The proxy look-up then finds none for any URL, and need not be asked. Any thread.
__attribute__((visibility("default"))) bool proxySettingsExist();

} // namespace vantik
