// The exceptions that carry messages.
#include "host/Messages.h"

#include "errors/MessageIdentifiers.h"
#include "tests/embedded/arrays/ArrayFixture.h"

#include <new>

using vantik::detail::HostException;
using vantik::detail::HostMessage;

TEST(HostExceptions, CarryIdentifierArgumentsAndText) {
    try {
        vantik::detail::raiseHostFailure("VANTIK:legacy_two_part", "undefinedVarOrClass", {std::string("a.B")});
        FAIL();
    } catch (const foundation::core::except::IMsgIDException& failure) {
        EXPECT_EQ(failure.get_error_id(), "VANTIK:legacy_two_part:undefinedVarOrClass");
        EXPECT_STREQ(failure.what(), "The class \"a.B\" is not defined.");
        EXPECT_EQ(failure.GetUnicodeMessageTxt(), u"The class \"a.B\" is not defined.");
        EXPECT_EQ(failure.msg_id().arguments(), (std::vector<resource_core::MsgArgument>{std::string("a.B")}));
    }
}

TEST(HostExceptions, CloneAndRethrowKeepTypeAndText) {
    const VANTIK::Failure<VANTIK::webservices::UnknownHost> failure(VANTIK::webservices::UnknownHost(u"nowhere"));
    const std::unique_ptr<const boost::exception_detail::clone_base> copy(failure.clone());
    try {
        copy->rethrow();
        FAIL();
    } catch (const VANTIK::Failure<VANTIK::webservices::UnknownHost>& thrown) {
        EXPECT_NE(&thrown, &failure);
        EXPECT_STREQ(thrown.what(), failure.what());
        EXPECT_EQ(thrown.get_error_id(), "VANTIK:webservices:UnknownHost");
    }
}

TEST(HostExceptions, DamagedArgumentDoesNotReplaceTheFailure) {
    const std::u16string half{char16_t(0xD800)};
    EXPECT_THROW(vantik::detail::raiseHostFailure("VANTIK:webservices", "MalformedURL", {half}), HostException);
}

TEST(HostExceptions, OutOfMemoryIsBothFamilies) {
    const foundation::core::except::bad_alloc failure;
    EXPECT_THROW(failure.rethrow(), std::bad_alloc);
    EXPECT_THROW(failure.rethrow(), foundation::core::except::IException);
    const std::unique_ptr<const boost::exception_detail::clone_base> copy(failure.clone());
    EXPECT_THROW(copy->rethrow(), foundation::core::except::bad_alloc);
    EXPECT_STREQ(static_cast<const foundation::core::except::IException&>(failure).what(), "Out of memory.");
}

TEST(HostExceptions, ArgumentCountErrorsHaveTheirIdentifiersAndTheLegacyErrorReturns) {
    const HostException failure(HostMessage({}, "VANTIK:host", "Failure"));
    EXPECT_NO_THROW(matrix::detail::do_legacy_vx_error(failure));
    EXPECT_EQ(failureOf(&matrix::detail::error_maxlhs), "VANTIK:builtin:TooManyOutputs()");
    EXPECT_EQ(failureOf(&matrix::detail::error_maxrhs), "VANTIK:builtin:TooManyInputs()");
    EXPECT_EQ(failureOf(&matrix::detail::error_minrhs), "VANTIK:builtin:NotEnoughInputs()");
}
