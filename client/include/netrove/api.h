/// @file
/// What other headers of <netrove/…> share.
#pragma once

/// Marks what the library offers to programs.
#define NETROVE_API __attribute__((visibility("default")))
