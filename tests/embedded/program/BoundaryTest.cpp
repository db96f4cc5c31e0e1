// Failures that cross the boundaries between a program, the host and the program's own callables.
#include "embedded/program/Boundary.h"

#include "embedded/scope/InterruptOrigin.h"
#include "host/Interrupt.h"
#include "host/State.h"
#include "host/Text.h"
#include "tests/embedded/program/ProgramFixture.h"

#include <boost/numeric/conversion/cast.hpp>

#include <new>
#include <stdexcept>

using vantik::Failure;
using vantik::Interrupted;
using vantik::detail::CallbackFailure;
using vantik::detail::HostException;
using vantik::detail::raiseHostFailure;
using Arguments = std::vector<resource_core::MsgArgument>;

namespace {

struct OwnError {
    int Number; // not a std::exception on purpose
};

const vantik::Message kMissing{"example:files", "Missing", {std::int64_t{2}, std::string("\xC3\xBC")}, "own text"};

class Boundaries : public ProgramFixture {
protected:
    // An object whose method "run" does this.
    Object objectThat(std::function<void()> script) {
        Home.emplace();
        HostClass("test.Thrower").method("run", doing([script](auto) { script(); })).defineIn(*Home);
        return Home->create("test.Thrower");
    }
    // What a program catches of it, and what the host sees: the call comes as a module makes it.
    template <class Caught, class Look>
    void programCatches(std::function<void()> script, Look look) {
        const Object object = objectThat(std::move(script));
        lookAt<Caught>([&] { object.call("run"); }, look);
    }
    template <class Caught, class Look>
    void hostSees(std::function<void()> script, Look look) {
        const Object object = objectThat(std::move(script));
        lookAt<Caught>([&] { callAsModule(object, "test.Thrower", "run", {}, 0); }, look);
    }

private:
    template <class Caught, class Look>
    static void lookAt(const std::function<void()>& call, Look look) {
        try {
            call();
            FAIL() << "nothing was raised";
        } catch (const Caught& error) {
            look(error);
        }
    }
};

} // namespace

TEST_F(Boundaries, ProgramCatchesWhatItsCallableRaised) {
    programCatches<OwnError>([] { throw OwnError{7}; }, [](const OwnError& error) { EXPECT_EQ(error.Number, 7); });
    programCatches<int>([] { throw 7; }, [](int number) { EXPECT_EQ(number, 7); });
    programCatches<std::out_of_range>([] { throw std::out_of_range("own text"); },
                                      [](const auto& error) { EXPECT_STREQ(error.what(), "own text"); });
    programCatches<Failure>([] { throw Failure(kMissing); },
                            [](const Failure& failure) {
                                EXPECT_EQ(failure.identifier(), "example:files:Missing");
                                EXPECT_EQ(failure.message().Arguments, kMissing.Arguments);
                                EXPECT_STREQ(failure.what(), "own text");
                            });
}

TEST_F(Boundaries, FailurePassesSeveralOfThemUnchanged) {
    const Object inner = objectThat([] { throw OwnError{7}; });
    HostClass("test.Outer").method("run", doing([&](auto) { inner.call("run"); })).defineIn(*Home);
    try {
        Home->create("test.Outer").call("run");
        FAIL();
    } catch (const OwnError& error) {
        EXPECT_EQ(error.Number, 7);
    }
}

TEST_F(Boundaries, HostSeesAUserExceptionWithItsIdentifier) {
    const Arguments own{std::string("own text")};
    hostSees<foundation::core::except::IUserException>(
        [] { throw std::out_of_range("own text"); },
        [&](const auto& error) {
            EXPECT_EQ(error.msg_id().fullName(), "VANTIK:host:CallbackFailed");
            EXPECT_EQ(error.msg_id().arguments(), own);
            EXPECT_NE(dynamic_cast<const std::exception*>(&error), nullptr);
        });
    const Arguments two{std::int64_t{2}, std::u16string(u"\u00FC")};
    hostSees<HostException>([] { throw Failure(kMissing); },
                            [&](const HostException& error) {
                                EXPECT_EQ(error.get_error_id(), "example:files:Missing");
                                EXPECT_EQ(error.msg_id().arguments(), two);
                            });
    hostSees<HostException>([] { raiseHostFailure("VANTIK:vx", "NoSuchField", {std::string("Name")}); },
                            [](const HostException& error) {
                                EXPECT_EQ(dynamic_cast<const CallbackFailure*>(&error), nullptr) << "wrapped";
                                EXPECT_EQ(error.get_error_id(), "VANTIK:vx:NoSuchField");
                            });
}

TEST_F(Boundaries, StopBecomesTheHostsInterrupt) {
    for (const bool byProgram : {false, true}) {
        const auto stop = [=] { throw Interrupted({"example", "Stop", {}, "stop"}, byProgram); };
        hostSees<Zentorak::System::InterruptException>(
            stop, [=](const auto& seen) { EXPECT_EQ(vantik::detail::requestedByProgram(seen), byProgram); });
        programCatches<Interrupted>(stop, [=](const Interrupted& caught) {
            EXPECT_EQ(caught.byProgram(), byProgram);
            EXPECT_EQ(caught.identifier(), "VANTIK:host:Interrupted");
            EXPECT_STREQ(caught.what(), "The operation was stopped on request.");
        });
    }
}

TEST_F(Boundaries, CarrierCanBeClonedAndRethrown) {
    hostSees<foundation::core::except::IException>(
        [] { throw OwnError{7}; },
        [](const auto& error) {
            const std::unique_ptr<const boost::exception_detail::clone_base> clone(error.clone());
            try {
                clone->rethrow();
            } catch (const CallbackFailure& failure) {
                EXPECT_THROW(std::rethrow_exception(failure.original()), OwnError);
            }
        });
}

TEST_F(Boundaries, WhatTheHostRaisesBecomesAFailure) {
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[] { raiseHostFailure("VANTIK:vx", "NoSuchField", {std::u16string(u"\u00FC\xD800")}); },
         "VANTIK:vx:NoSuchField(\xC3\xBC\xEF\xBF\xBD)"},
        {[] { raiseHostFailure("VANTIK:vx", "NoSuchField", {std::string("narrow")}); },
         "VANTIK:vx:NoSuchField(narrow)"},
        {[] { throw std::bad_alloc(); }, "VANTIK:host:OutOfMemory()"},
        {[] { throw foundation::core::except::bad_alloc(); }, "VANTIK:host:OutOfMemory()"},
        {[] { throw std::runtime_error("a text"); }, "VANTIK:host:Failure(a text)"},
        {[] { throw fl::i18n::CvtExceptionBase("no such encoding"); }, "VANTIK:host:Failure(no such encoding)"},
        {[] { throw boost::numeric::positive_overflow(); },
         "VANTIK:host:Failure(bad numeric conversion: positive overflow)"},
        {[] { throw 7; }, "VANTIK:host:Failure(an exception that is not a std::exception)"},
        {[] {
             throw foundation::core::except::Exception<foundation::core::except::IInternalException, std::exception,
                                                       void>("no IRI");
         },
         "VANTIK:host:Failure(no IRI)"},
    };
    for (const auto& [raise, failure] : rows) {
        EXPECT_EQ(failureOf([&, &raises = raise] { vantik::detail::runForProgram(raises); }), failure);
    }
    EXPECT_STREQ(Failure({"example", "Key", {}, ""}).what(), "example:Key") << "where there is no text";
    EXPECT_STREQ(Failure({"example", "", {}, ""}).what(), "example");
}

TEST_F(Boundaries, FailingConstructorLeavesNoObject) {
    HostClass("test.Thing").method("Thing", doing([](auto) { throw OwnError{1}; })).defineIn(*Home);
    const std::weak_ptr<vantik::detail::Scope> scope = Home->scope();
    EXPECT_THROW(Home->create("test.Thing"), OwnError);
    Home.reset();
    EXPECT_TRUE(scope.expired());
}

TEST_F(Boundaries, HookOfTheImpersonationIsACallable) {
    int exits = 0;
    Home->onImpersonation([] { throw OwnError{7}; }, [&] { ++exits; });
    EXPECT_THROW(vantik::detail::runForProgram([&] {
                     const ScopeEntry entry(Home->scope());
                     const services::state::ImpersonationGuard guard;
                 }),
                 OwnError);
    EXPECT_EQ(exits, 0);
    Home->onImpersonation({}, [&] { ++exits; });
    {
        const ScopeEntry entry(Home->scope());
        const services::state::ImpersonationGuard guard;
        EXPECT_EQ(Home->impersonationDepth(), 1u);
    }
    EXPECT_EQ(exits, 1);
    EXPECT_EQ(Home->impersonationDepth(), 0u);
}
