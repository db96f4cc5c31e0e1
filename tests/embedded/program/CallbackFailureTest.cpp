// Failures that cross the boundaries between a program, the host and the program's own callables.
#include "embedded/program/Boundary.h"
#include "embedded/scope/InterruptOrigin.h"
#include "embedded/scope/Scope.h"
#include "host/ClassSystem.h"
#include "host/Interrupt.h"
#include "host/State.h"
#include "host/Text.h"
#include "tests/embedded/program/ProgramFixture.h"
#include "vantik/HostClass.h"

#include <boost/numeric/conversion/cast.hpp>

using vantik::Array;
using vantik::Failure;
using vantik::Interrupted;
using vantik::Object;

namespace {

struct OwnError {
    int Number; // no std::exception on purpose
};

class CallbackFailures : public ProgramFixture {
protected:
    Object thrower(std::function<void()> script) {
        vantik::HostClass("test.Thrower")
            .method("run",
                    [script = std::move(script)](std::span<const Array>) {
                        script();
                        return std::vector<Array>{};
                    })
            .defineIn(*Home);
        return Home->create("test.Thrower");
    }

    // What the host sees of a failure: the call goes by the module's road.
    template <class Seen>
    void hostSees(const Object& object, Seen seen) {
        const vantik::detail::ScopeEntry entry(Home->scope());
        vxArray_tag* self = const_cast<vxArray_tag*>(object.array().handle());
        try {
            omCallMethod(vcos::internal::makeInterned("test.Thrower"), vcos::internal::makeInterned("run"),
                         getSystemClient(), 0, nullptr, 1, &self, false);
            FAIL() << "nothing was raised";
        } catch (...) {
            seen();
        }
    }
};

} // namespace

TEST_F(CallbackFailures, ProgramCatchesWhatItsCallableRaised) {
    EXPECT_THROW(thrower([] { throw OwnError{7}; }).call("run"), OwnError);
    Home.emplace();
    EXPECT_THROW(thrower([] { throw 7; }).call("run"), int);
    Home.emplace();
    try {
        thrower([] { throw std::out_of_range("own text"); }).call("run");
        FAIL();
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "own text");
    }
}

TEST_F(CallbackFailures, OwnFailureComesBackWithItsText) {
    const vantik::Message message{"example:files", "Missing", {std::int64_t{2}, std::string("\xC3\xBC")}, "own text"};
    try {
        thrower([&] { throw Failure(message); }).call("run");
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.identifier(), "example:files:Missing");
        EXPECT_EQ(failure.message().Arguments, message.Arguments);
        EXPECT_STREQ(failure.what(), "own text");
    }
}

TEST_F(CallbackFailures, FailurePassesSeveralBoundariesUnchanged) {
    const Object inner = thrower([] { throw OwnError{7}; });
    vantik::HostClass("test.Outer")
        .method("run",
                [&](std::span<const Array>) {
                    inner.call("run");
                    return std::vector<Array>{};
                })
        .defineIn(*Home);
    try {
        Home->create("test.Outer").call("run");
        FAIL();
    } catch (const OwnError& error) {
        EXPECT_EQ(error.Number, 7);
    }
}

TEST_F(CallbackFailures, HostSeesAUserExceptionThatIsAlsoAStdException) {
    hostSees(thrower([] { throw std::out_of_range("own text"); }), [] {
        try {
            throw;
        } catch (const foundation::core::except::IUserException& error) {
            EXPECT_EQ(error.msg_id().fullName(), "VANTIK:host:CallbackFailed");
            ASSERT_EQ(error.msg_id().arguments().size(), 1u);
            EXPECT_EQ(std::get<std::string>(error.msg_id().arguments()[0]), "own text");
            EXPECT_NE(dynamic_cast<const std::exception*>(&error), nullptr);
        }
    });
}

TEST_F(CallbackFailures, HostSeesTheIdentifierOfAFailure) {
    hostSees(thrower([] {
                 throw Failure({"example:files", "Missing", {std::int64_t{2}, std::string("\xC3\xBC")}, "own text"});
             }),
             [] {
                 try {
                     throw;
                 } catch (const vantik::detail::HostException& error) {
                     EXPECT_EQ(error.get_error_id(), "example:files:Missing");
                     EXPECT_EQ(std::get<std::int64_t>(error.msg_id().arguments()[0]), 2);
                     EXPECT_EQ(std::get<std::u16string>(error.msg_id().arguments()[1]), u"\u00FC");
                 }
             });
}

TEST_F(CallbackFailures, HostsOwnFailuresPassAsTheyAre) {
    hostSees(thrower([] { vantik::detail::raiseHostFailure("VANTIK:vx", "NoSuchField", {std::string("Name")}); }), [] {
        try {
            throw;
        } catch (const vantik::detail::CallbackFailure&) {
            ADD_FAILURE() << "wrapped";
        } catch (const vantik::detail::HostException& error) {
            EXPECT_EQ(error.get_error_id(), "VANTIK:vx:NoSuchField");
        }
    });
}

TEST_F(CallbackFailures, StopBecomesTheHostsInterrupt) {
    for (const bool byProgram : {false, true}) {
        Home.emplace();
        const Object object = thrower([=] { throw Interrupted({"example", "Stop", {}, "stop"}, byProgram); });
        hostSees(object, [=] {
            try {
                throw;
            } catch (const Zentorak::System::InterruptException& stop) {
                EXPECT_EQ(vantik::detail::requestedByProgram(stop), byProgram);
            }
        });
        try {
            object.call("run");
            FAIL();
        } catch (const Interrupted& stop) {
            EXPECT_EQ(stop.byProgram(), byProgram);
            EXPECT_EQ(stop.identifier(), "VANTIK:host:Interrupted");
            EXPECT_STREQ(stop.what(), "The operation was stopped on request.");
        }
    }
}

TEST_F(CallbackFailures, CarrierCanBeClonedAndRethrown) {
    hostSees(thrower([] { throw OwnError{7}; }), [] {
        try {
            throw;
        } catch (const foundation::core::except::IException& error) {
            const std::unique_ptr<const boost::exception_detail::clone_base> clone(error.clone());
            try {
                clone->rethrow();
            } catch (const vantik::detail::CallbackFailure& failure) {
                EXPECT_THROW(std::rethrow_exception(failure.original()), OwnError);
            }
        }
    });
}

TEST_F(CallbackFailures, WhatTheHostRaisesBecomesAFailure) {
    const auto seen = [](auto raise) { return failureOf([&] { vantik::detail::runForProgram([&] { raise(); }); }); };
    EXPECT_EQ(seen([] {
                  vantik::detail::raiseHostFailure("VANTIK:vx", "NoSuchField",
                                                   {std::u16string(u"\u00FC\xD800"), std::string("narrow")});
              }),
              "VANTIK:vx:NoSuchField(\xC3\xBC\xEF\xBF\xBD, narrow)");
    EXPECT_EQ(seen([] { throw std::bad_alloc(); }), "VANTIK:host:OutOfMemory()");
    EXPECT_EQ(seen([] { throw foundation::core::except::bad_alloc(); }), "VANTIK:host:OutOfMemory()");
    EXPECT_EQ(seen([] { throw std::runtime_error("a text"); }), "VANTIK:host:Failure(a text)");
    EXPECT_EQ(seen([] { throw fl::i18n::CvtExceptionBase("no such encoding"); }),
              "VANTIK:host:Failure(no such encoding)");
    EXPECT_TRUE(seen([] { throw boost::numeric::positive_overflow(); }).starts_with("VANTIK:host:Failure("));
    EXPECT_EQ(seen([] { throw 7; }), "VANTIK:host:Failure(an exception that is not a std::exception)");
    EXPECT_EQ(seen([] {
                  throw foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                            std::exception, void>("no IRI");
              }),
              "VANTIK:host:Failure(no IRI)");
}

TEST_F(CallbackFailures, FailureWithoutATextHasItsIdentifier) {
    EXPECT_STREQ(Failure({"example", "Key", {}, ""}).what(), "example:Key");
    EXPECT_STREQ(Failure({"example", "", {}, ""}).what(), "example");
}

TEST_F(CallbackFailures, FailingConstructorLeavesNoObject) {
    vantik::HostClass("test.Thing")
        .method("Thing", [](std::span<const Array>) -> std::vector<Array> { throw OwnError{1}; })
        .defineIn(*Home);
    const std::weak_ptr<vantik::detail::Scope> scope = Home->scope();
    EXPECT_THROW(Home->create("test.Thing"), OwnError);
    Home.reset();
    EXPECT_TRUE(scope.expired());
}

TEST_F(CallbackFailures, HookOfTheImpersonationIsACallable) {
    int exits = 0;
    Home->onImpersonation([] { throw OwnError{7}; }, [&] { ++exits; });
    EXPECT_THROW(vantik::detail::runForProgram([&] {
                     const vantik::detail::ScopeEntry entry(Home->scope());
                     const services::state::ImpersonationGuard guard;
                 }),
                 OwnError);
    EXPECT_EQ(exits, 0);
    Home->onImpersonation({}, [&] { ++exits; });
    {
        const vantik::detail::ScopeEntry entry(Home->scope());
        const services::state::ImpersonationGuard guard;
        EXPECT_EQ(Home->impersonationDepth(), 1u);
    }
    EXPECT_EQ(exits, 1);
    EXPECT_EQ(Home->impersonationDepth(), 0u);
}
