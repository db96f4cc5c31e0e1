// Visibility of the service framework's symbols.
//
// This folder holds the part of the CppMicroServices interface (version 3) that the project calls, for systems that do
// not have the package. Headers, names, signatures and failures are those of the package, and a header includes no more
// than the package's, so that the same sources compile against either of them.
// tests/embedded/services/ServicesContractTest.cpp has what both must do. Names follow the package, not the rest of
// this tree.
#pragma once

#define US_Framework_EXPORT __attribute__((visibility("default")))
