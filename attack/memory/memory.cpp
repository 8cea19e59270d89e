// SPDX-License-Identifier: MIT
// Attacks values and what is made of them: `memory allocations|sharing ROUNDS`.
//
// allocations  each of the first ROUNDS allocations of an operation fails: it throws or logs its
//              line, leaks nothing and works the next time.
// sharing      an object is changed by keys out of what it shares while the other holder lets go.

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

namespace {

// The allocation of this thread that fails, counted down; at 0 none does.
thread_local int failing = 0;
std::atomic<long> living = 0;

void release(void* memory) noexcept {
    living -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

} // namespace

void* operator new(std::size_t size) {
    void* const memory = failing > 0 && --failing == 0 ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++living;
    return memory;
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }

using namespace morvellacinto;

namespace {

class Shelf : public AVObject {
    AVJSON_CLASS(Shelf, AVObject, name, shelves, any)

public:
    std::string name;
    std::vector<Ref<Shelf>> shelves;
    AVValue<> any;
};

constexpr std::string_view describing = "describe";
int rounds = 0;
int faults = 0;

void require(bool holds, const char* action, int number) {
    if (!holds) {
        ++faults;
        std::printf("%s: not as promised after the failure of allocation %d\n", action, number);
    }
}

// `isRight(threw, failed)` looks at what became of `action`, with memory at hand.
template <class IsRight, class Action>
void failEach(const char* name, IsRight isRight, Action action) {
    bool failed = true;
    for (int number = 1; number <= rounds && failed; ++number) {
        const long before = living;
        bool threw = false;
        failing = number;
        try {
            action();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        failed = std::exchange(failing, 0) == 0;
        require(isRight(threw, failed), name, number);
        // What is made once for the process stays.
        require(living == before || number == 1 || name == describing, name, number);
    }
}

void failAllocations() {
    const auto phone = scripted::ScriptedPhone::create();
    platform::install(phone);
    const auto throws = [](bool threw, bool failed) { return threw == failed; };
    std::string text = R"({"a long member name":["a text of some length","é\n..............."])";
    for (int key = 0; key < 40; ++key) {
        text += ",\"" + std::to_string(key) + "\":[[{}],1.5e-5]";
    }
    text += '}';
    const Value whole = *readJson(text);
    const auto change = [mine = whole.asObject()] {
        Object own = mine;
        own.set("another long name", Object{{"two of a long name", "a text of some length"}});
        own.remove("a long member name");
    };
    failEach("read", throws, [&] { static_cast<void>(readJson(text)); });
    failEach("write", throws, [&] { static_cast<void>(writeJson(whole)); });
    failEach("change", throws, change);
    require(whole == *readJson(text), "sharing", 0);

    const auto isDescribed = [](bool, bool failed) { return !AVClass::named("Shelf") == failed; };
    failEach("describe", isDescribed, [] { static_cast<void>(AVClass::of<Shelf>()); });
    const Object json = readJson(R"({"name":"a text of some length","any":{"x":[1]},
        "shelves":[{"name":"another text"},{"shelves":[{},{}]}]})")
                            ->asObject();
    const NodeMapping mapping{{"shelves", AVClass::of<Shelf>()}};
    Ref<Shelf> made;
    const auto isImported = [&](bool threw, bool failed) {
        static_cast<void>(phone->diagnostics()->takeRecords());
        const auto lines = phone->takeLog();
        const bool isMade = std::exchange(made, nullptr).get() != nullptr;
        return isMade != threw && (failed || lines.empty()) &&
               std::ranges::count(lines, "dict init failed") == std::ssize(lines);
    };
    failEach("import", isImported, [&] { made = AVJSON::asObjectOfClass<Shelf>(json, mapping); });

    KRAudienceManager manager{Uuid()};
    Object payload{{"x", 1}};
    int answers = 0;
    const auto collect = [&] { manager.collect(payload, [&](auto&, auto&) { ++answers; }); };
    phone->http().plan({.body = R"({"tags":{"a long member name":["a text of some length"]}})"});
    collect();
    phone->settle();
    const auto isCollected = [&](bool threw, bool failed) {
        answers = 0;
        phone->settle();
        static_cast<void>(phone->standardUserDefaults().takeOperations());
        static_cast<void>(phone->diagnostics()->takeRecords());
        const auto lines = phone->takeLog();
        return !threw && answers + std::ssize(lines) == 1 && (failed || lines.empty());
    };
    failEach("collect", isCollected, collect);
    platform::shutdown();
}

void share() {
    for (int round = 0; round < rounds; ++round) {
        auto other = std::make_unique<Object>(Object{{"a", 1}, {"b", 2}});
        Object object = *other;
        std::thread lettingGo([&other] { other.reset(); });
        object.set(object.begin()[1].key(), 3);
        object.set("a", object.take(object.begin()[0].key()));
        lettingGo.join();
        require(object == Object{{"a", 1}, {"b", 3}}, "sharing", round);
    }
}

} // namespace

int main(int, char** arguments) {
    rounds = std::atoi(arguments[2]);
    arguments[1] == std::string_view("sharing") ? share() : failAllocations();
    std::printf("%d rounds, %d faults\n", rounds, faults);
    return faults == 0 ? 0 : 1;
}
