// Visibility of everything that a host supplies. The host's libraries export these symbols; this library imports
// them, and exceptions of these types cross the boundary between both, so their type information must be shared.
#pragma once

#define VANTIK_HOST_API __attribute__((visibility("default")))
