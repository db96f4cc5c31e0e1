#include "hostclass/TransferBoundary.h"

#include "tests/hostclass/ClassFixture.h"

#include <new>
#include <stdexcept>

class TransferBoundary : public AdapterFixture {};

TEST_F(TransferBoundary, OnlyFailuresOfTheTransferLayerAreTranslated) {
    settings().URL = u"http://h/";
    const auto raised = [&](auto raise) {
        return testsupport::failureText([&] { acrossTransferBoundary(native(), raise); });
    };
    EXPECT_EQ(raised([] { throw webservices::HTTPFileNotFoundException("No host"); }),
              "VANTIK:webservices:FileNotFound[U:http://h/]");
    EXPECT_EQ(raised([] { throw std::length_error("other"); }), "std::length_error[other]");
    EXPECT_EQ(raised([] { throw std::bad_alloc(); }), "std::bad_alloc[std::bad_alloc]");
    EXPECT_EQ(acrossTransferBoundary(native(), [] { return 7; }), 7);
}
