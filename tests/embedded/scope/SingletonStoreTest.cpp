#include "host/SingletonStore.h"

#include "embedded/scope/Scope.h"
#include "embedded/scope/SingletonTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using foundation::usm::Holder;
using testing::ElementsAre;
using vantik::detail::Scope;
using vantik::detail::ScopeEntry;
using vantik::detail::SingletonTable;
using Store = foundation::usm::Detail<foundation::usm::scope::Vvm>;

namespace {

std::vector<std::string> gLog;

// Notes its end in the log.
Holder noted(const char* name) {
    return {new std::string(name), [](void* object) {
                const std::unique_ptr<std::string> self(static_cast<std::string*>(object));
                if (self) {
                    gLog.push_back(*self);
                }
            }};
}

struct First {};
struct Second {};
struct Third {};

template <class Key>
std::size_t idOf() {
    return Store::getNextID(typeid(Key));
}

class Singletons : public testing::Test {
protected:
    Singletons() { gLog.clear(); }
};

} // namespace

TEST(SingletonIds, OneATypeInEveryThread) {
    EXPECT_NE(idOf<First>(), idOf<Second>());
    std::vector<std::size_t> seen(8);
    std::vector<std::jthread> threads;
    for (std::size_t& slot : seen) {
        threads.emplace_back([&slot] { slot = idOf<First>() + idOf<Third>(); });
    }
    threads.clear(); // waits for them
    EXPECT_THAT(seen, testing::Each(idOf<First>() + idOf<Third>()));
}

TEST_F(Singletons, AreFoundAtTheSamePlaceAndALostRaceLeavesTheValueWithTheCaller) {
    SingletonTable table;
    EXPECT_EQ(table.find(1, typeid(First)), nullptr);
    Holder* stored = table.findOrInsert(1, typeid(First), noted("winner"));
    for (std::size_t id = 2; id < 50; ++id) {
        table.findOrInsert(id, typeid(Second), noted("more"));
    }
    EXPECT_EQ(table.find(1, typeid(First)), stored);
    EXPECT_EQ(*static_cast<std::string*>(stored->get()), "winner");
    Holder late = noted("late");
    EXPECT_EQ(table.findOrInsert(1, typeid(First), std::move(late)), stored);
    ASSERT_NE(late.get(), nullptr);
    EXPECT_THAT(gLog, ElementsAre());
    late.reset();
    EXPECT_THAT(gLog, ElementsAre("late"));
    EXPECT_EQ(table.size(), 49U);
}

TEST_F(Singletons, YoungestIsDeletedFirst) {
    {
        SingletonTable table;
        table.findOrInsert(9, typeid(First), noted("oldest"));
        table.findOrInsert(3, typeid(Second), noted("middle"));
        table.findOrInsert(5, typeid(Third), noted("youngest"));
    }
    EXPECT_THAT(gLog, ElementsAre("youngest", "middle", "oldest"));
}

TEST_F(Singletons, KeyOfAnotherTypeAndTheStoreOutsideEveryScopeAreMistakes) {
    SingletonTable table;
    table.findOrInsert(1, typeid(First), noted("x"));
    EXPECT_THROW(table.find(1, typeid(Second)), std::logic_error);
    EXPECT_THROW(table.findOrInsert(1, typeid(Second), noted("y")), std::logic_error);
    EXPECT_THAT(gLog, ElementsAre("y"));
    EXPECT_THROW(Store::find(1, typeid(First)), std::logic_error);
}

TEST_F(Singletons, ScopesHaveTheirOwn) {
    auto outer = std::make_shared<Scope>();
    auto inner = std::make_shared<Scope>();
    {
        const ScopeEntry outerEntry(outer);
        Holder* stored = Store::findOrInsert(idOf<First>(), typeid(First), noted("outer"));
        {
            const ScopeEntry innerEntry(inner);
            EXPECT_EQ(Store::find(idOf<First>(), typeid(First)), nullptr);
            EXPECT_NE(Store::findOrInsert(idOf<First>(), typeid(First), noted("inner")), stored);
        }
        EXPECT_EQ(Store::find(idOf<First>(), typeid(First)), stored);
    }
    EXPECT_THAT(gLog, ElementsAre());
    outer.reset();
    EXPECT_THAT(gLog, ElementsAre("outer"));
    inner.reset();
    EXPECT_THAT(gLog, ElementsAre("outer", "inner"));
}

TEST_F(Singletons, OlderOnesAreFoundWhileAYoungerOneGoes) {
    auto scope = std::make_shared<Scope>();
    {
        const ScopeEntry entry(scope);
        Store::findOrInsert(idOf<First>(), typeid(First), noted("older"));
        Store::findOrInsert(idOf<Second>(), typeid(Second), Holder(new int(0), [](void* object) {
                                delete static_cast<int*>(object);
                                const bool older = Store::find(idOf<First>(), typeid(First)) != nullptr;
                                const bool itself = Store::find(idOf<Second>(), typeid(Second)) != nullptr;
                                gLog.push_back(older ? "sees older" : "sees nothing");
                                gLog.push_back(itself ? "finds itself" : "is gone itself");
                            }));
    }
    scope.reset();
    EXPECT_THAT(gLog, ElementsAre("sees older", "is gone itself", "older"));
}
