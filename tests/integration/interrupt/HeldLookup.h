// Look-ups of names that do not end, without a network: a program that contains this asks it before the system. The
// look-up of "held.test" is held until it is released, and then finds nothing.
#pragma once

namespace integrationtest {

class HeldLookup {
public:
    HeldLookup();  // holds from here on
    ~HeldLookup(); // releases

    void awaitBegun() const; // until a look-up is held
    void release();
};

} // namespace integrationtest
