#include "morvellacinto/audience/KRAudienceManager.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/jsonmapping/AVJSON.h"
#include "support/ScriptedPhoneTest.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

/// The allocation of this thread that fails, counted down; 0: none.
thread_local std::size_t failing = 0;
std::atomic<std::ptrdiff_t> living = 0;

void* allocated(std::size_t size) {
    if (failing > 0 && --failing == 0) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++living;
    return memory;
}

void release(void* memory) {
    living -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

} // namespace

void* operator new(std::size_t size) { return allocated(size); }
void* operator new[](std::size_t size) { return allocated(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }

namespace morvellacinto {
namespace {

enum class Outcome { done, threw };

/// Makes each allocation of `action` fail in turn, then `afterwards` look at what became of it,
/// with memory at hand; told whether an allocation failed. Requires that all memory comes back.
/// Gives the number of allocations.
template <class Action, class Afterwards>
std::size_t failEachAllocation(Action action, Afterwards afterwards) {
    action(); // what is made once in a process
    afterwards(Outcome::done, false);
    for (std::size_t number = 1;; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const std::ptrdiff_t before = living;
        Outcome outcome = Outcome::done;
        failing = number;
        try {
            action();
        } catch (const std::bad_alloc&) {
            outcome = Outcome::threw;
        }
        const bool failed = std::exchange(failing, 0) == 0;
        afterwards(outcome, failed);
        EXPECT_EQ(living, before) << "leaked";
        if (::testing::Test::HasFailure()) {
            return 0;
        }
        if (!failed) {
            return number - 1;
        }
    }
}

class Shelf : public AVObject {
    AVJSON_CLASS(Shelf, AVObject, name, shelves, any)

public:
    std::string name;
    std::vector<Ref<Shelf>> shelves;
    AVValue<> any;
};

class Basket : public AVObject {
    AVJSON_CLASS(Basket, AVObject, aNameOfManyLetters, shelf)

public:
    std::string aNameOfManyLetters;
    Ref<Shelf> shelf;
};

class OutOfMemory : public ScriptedPhoneTest {};

TEST_F(OutOfMemory, readingBuildingAndWritingValuesThrowAndLeakNothing) {
    std::string text = R"({"a long member name":["a text of some length","é\n...............",)";
    text += std::string(60, '1') + "e-5],\"many\":{";
    for (int key = 0; key < 40; ++key) {
        text += '"' + std::to_string(key) + "\":[[{}],1.5],";
    }
    text += "\"0\":null}}";
    const Value whole = *readJson(text);
    const Object shared = whole.asObject();
    const std::string canonical = writeJson(whole);
    const struct {
        const char* name;
        std::function<void()> run;
        std::size_t fewest;
    } actions[] = {
        {"read", [&] { static_cast<void>(readJson(text)); }, 40},
        {"write", [&] { static_cast<void>(writeJson(whole)); }, 1},
        {"a list of members",
         [] {
             static_cast<void>(Object{{"one of a long name", "a text of some length"},
                                      {"two of a long name", Array::of({"a text of some length"})},
                                      {"three", Object{{"x", 1}}}});
         },
         6},
        {"a change of what is shared",
         [&] {
             Object mine = shared;
             mine.set("another long name", "a text of some length");
             mine.remove("a long member name");
         },
         3},
    };
    for (const auto& action : actions) {
        SCOPED_TRACE(action.name);
        EXPECT_GE(failEachAllocation(action.run,
                                     [](Outcome outcome, bool failed) {
                                         EXPECT_EQ(outcome == Outcome::threw, failed);
                                     }),
                  action.fewest);
    }
    EXPECT_EQ(writeJson(shared), canonical);
    EXPECT_EQ(readJson(text), whole);
}

TEST_F(OutOfMemory, anImportEndsWithTheLineOfItsGuardOrThrows) {
    const Object json = readJson(R"({"name":"a text of some length","any":{"x":[1]},
        "shelves":[{"name":"another text of some length"},{"shelves":[{},{}]}]})")
                            ->asObject();
    const NodeMapping mapping{{"shelves", AVClass::of<Shelf>()}};
    Ref<Shelf> made;
    std::size_t lines = 0;
    const std::size_t count =
        failEachAllocation([&] { made = AVJSON::asObjectOfClass<Shelf>(json, mapping); },
                           [&](Outcome outcome, bool /*failed*/) {
                               for (const std::string& line : phone->takeLog()) {
                                   EXPECT_EQ(line, "dict init failed");
                                   ++lines;
                               }
                               EXPECT_EQ(made.get() == nullptr, outcome == Outcome::threw);
                               made = nullptr;
                               static_cast<void>(phone->diagnostics()->takeRecords());
                           });
    EXPECT_GE(count, 10U);
    EXPECT_GE(lines, 8U);
}

TEST_F(OutOfMemory, aClassThatCouldNotBeDescribedIsDescribedLater) {
    std::size_t number = 1;
    for (bool hasFailed = true; hasFailed; ++number) {
        failing = number;
        try {
            static_cast<void>(AVClass::of<Basket>());
        } catch (const std::bad_alloc&) {
        }
        hasFailed = std::exchange(failing, 0) == 0;
        EXPECT_EQ(AVClass::named("Basket") == nullptr, hasFailed);
    }
    EXPECT_GE(number, 5U);
}

TEST_F(OutOfMemory, aCollectOutOfTheCacheLogsItsLineAndTheNextOneWorks) {
    KRAudienceManager manager{Uuid()};
    Object payload{{"x", 1}};
    phone->http().plan({.body = R"({"tags":{"a long member name":["a text of some length"]}})"});
    std::size_t answers = 0;
    const auto collect = [&] { manager.collect(payload, [&](auto&, auto&) { ++answers; }); };
    collect();
    phone->settle();
    ASSERT_EQ(answers, 1U);
    static_cast<void>(phone->standardUserDefaults().takeOperations());

    const std::vector<std::string> none;
    const std::vector<std::string> line{"tags failed"};
    const std::size_t count = failEachAllocation(collect, [&](Outcome outcome, bool /*failed*/) {
        EXPECT_EQ(outcome, Outcome::done);
        answers = 0;
        phone->settle();
        EXPECT_EQ(phone->takeLog(), answers == 1 ? none : line);
        static_cast<void>(phone->diagnostics()->takeRecords());
        static_cast<void>(phone->standardUserDefaults().takeOperations());
    });
    EXPECT_GE(count, 2U);
    EXPECT_EQ(answers, 1U) << "the last one lacked nothing";
    EXPECT_EQ(phone->http().requests().size(), 1U);
}

} // namespace
} // namespace morvellacinto
