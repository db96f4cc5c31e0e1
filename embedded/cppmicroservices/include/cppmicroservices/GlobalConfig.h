// Visibility of the service framework's symbols.
//
// This folder holds the part of the CppMicroServices interface that the project calls, under the names and signatures
// of that package, for systems that do not have it. Sources compile against either of them. Names follow the package,
// not the rest of this tree.
#pragma once

#define US_Framework_EXPORT __attribute__((visibility("default")))
