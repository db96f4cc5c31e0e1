#include "host/SingletonStore.h"

#include "embedded/scope/Scope.h"
#include "embedded/scope/SingletonTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
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

// Notes its end in a list.
struct Noted {
    std::vector<std::string>* Log;
    std::string Name;
    static void destroy(void* object) {
        const std::unique_ptr<Noted> self(static_cast<Noted*>(object));
        if (self) {
            self->Log->push_back(self->Name);
        }
    }
    static Holder make(std::vector<std::string>& log, const std::string& name) {
        return {new Noted{&log, name}, &Noted::destroy};
    }
};

struct First {};
struct Second {};
struct Third {};

} // namespace

TEST(SingletonIds, OneATypeInEveryThread) {
    const std::size_t first = Store::getNextID(typeid(First));
    const std::size_t second = Store::getNextID(typeid(Second));
    EXPECT_NE(first, second);
    std::vector<std::size_t> seen(8);
    std::vector<std::thread> threads;
    for (std::size_t& slot : seen) {
        threads.emplace_back([&slot] { slot = Store::getNextID(typeid(First)) + Store::getNextID(typeid(Third)); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), 1U);
    EXPECT_EQ(seen.front(), first + Store::getNextID(typeid(Third)));
}

TEST(SingletonTable, FindsWhatWasStoredAtTheSamePlace) {
    std::vector<std::string> log;
    SingletonTable table;
    EXPECT_EQ(table.find(1, typeid(First)), nullptr);
    Holder* stored = table.findOrInsert(1, typeid(First), Noted::make(log, "first"));
    ASSERT_NE(stored, nullptr);
    for (std::size_t id = 2; id < 50; ++id) {
        table.findOrInsert(id, typeid(Second), Noted::make(log, "more"));
    }
    EXPECT_EQ(table.find(1, typeid(First)), stored);
    EXPECT_EQ(static_cast<Noted*>(stored->get())->Name, "first");
}

TEST(SingletonTable, LostRaceLeavesTheValueWithTheCaller) {
    std::vector<std::string> log;
    SingletonTable table;
    Holder* stored = table.findOrInsert(1, typeid(First), Noted::make(log, "winner"));
    Holder late = Noted::make(log, "late");
    EXPECT_EQ(table.findOrInsert(1, typeid(First), std::move(late)), stored);
    ASSERT_NE(late.get(), nullptr);
    EXPECT_THAT(log, ElementsAre());
    late.reset();
    EXPECT_THAT(log, ElementsAre("late"));
    EXPECT_EQ(table.size(), 1U);
}

TEST(SingletonTable, YoungestIsDeletedFirst) {
    std::vector<std::string> log;
    {
        SingletonTable table;
        table.findOrInsert(9, typeid(First), Noted::make(log, "oldest"));
        table.findOrInsert(3, typeid(Second), Noted::make(log, "middle"));
        table.findOrInsert(5, typeid(Third), Noted::make(log, "youngest"));
    }
    EXPECT_THAT(log, ElementsAre("youngest", "middle", "oldest"));
}

TEST(SingletonTable, KeyOfAnotherTypeIsRefused) {
    std::vector<std::string> log;
    SingletonTable table;
    table.findOrInsert(1, typeid(First), Noted::make(log, "x"));
    EXPECT_THROW(table.find(1, typeid(Second)), std::logic_error);
    EXPECT_THROW(table.findOrInsert(1, typeid(Second), Noted::make(log, "y")), std::logic_error);
    EXPECT_THAT(log, ElementsAre("y"));
}

TEST(SingletonStore, ScopesHaveObjectsOfTheirOwn) {
    std::vector<std::string> log;
    const std::size_t id = Store::getNextID(typeid(First));
    auto outer = std::make_shared<Scope>();
    auto inner = std::make_shared<Scope>();
    {
        const ScopeEntry outerEntry(outer);
        Holder* stored = Store::findOrInsert(id, typeid(First), Noted::make(log, "outer"));
        {
            const ScopeEntry innerEntry(inner);
            EXPECT_EQ(Store::find(id, typeid(First)), nullptr);
            EXPECT_NE(Store::findOrInsert(id, typeid(First), Noted::make(log, "inner")), stored);
        }
        EXPECT_EQ(Store::find(id, typeid(First)), stored);
    }
    EXPECT_THAT(log, ElementsAre());
    outer.reset();
    EXPECT_THAT(log, ElementsAre("outer"));
    inner.reset();
    EXPECT_THAT(log, ElementsAre("outer", "inner"));
}

TEST(SingletonStore, OlderObjectsAreFoundWhileAYoungerOneGoes) {
    static std::vector<std::string> log;
    log.clear();
    auto scope = std::make_shared<Scope>();
    {
        const ScopeEntry entry(scope);
        Store::findOrInsert(Store::getNextID(typeid(First)), typeid(First), Noted::make(log, "older"));
        const auto lookAround = [](void* object) {
            delete static_cast<int*>(object);
            log.push_back(Store::find(Store::getNextID(typeid(First)), typeid(First)) != nullptr ? "sees older"
                                                                                                 : "sees nothing");
            log.push_back(Store::find(Store::getNextID(typeid(Second)), typeid(Second)) == nullptr ? "is gone itself"
                                                                                                   : "finds itself");
        };
        Store::findOrInsert(Store::getNextID(typeid(Second)), typeid(Second), Holder(new int(0), lookAround));
    }
    scope.reset();
    EXPECT_THAT(log, ElementsAre("sees older", "is gone itself", "older"));
}

TEST(SingletonStore, OutsideEveryScopeIsAMistake) {
    EXPECT_THROW(Store::find(1, typeid(First)), std::logic_error);
}
