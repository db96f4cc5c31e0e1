// What the host calls when it loads and unloads the module.
#pragma once

// Registers the class in the current scope.
extern "C" __attribute__((visibility("default"))) void VKInitialize_netrove();

// Does nothing: what is registered lives until the process ends.
extern "C" __attribute__((visibility("default"))) void VKTerminate_netrove();
