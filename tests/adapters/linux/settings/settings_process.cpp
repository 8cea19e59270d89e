// Another process for the tests: settings_process DIRECTORY BUNDLE, then
//     attack WRITER FIRST    the operations of AttackScript.h from number FIRST on
//     add KEY COUNT          adds 1 to KEY's own counter COUNT times
//     echo                   stores what comes under "call" under "echo" too

#include "AttackScript.h"
#include "settings/SqliteDefaults.h"

#include <iostream>
#include <string>
#include <vector>

using morvellacinto::Value;
using morvellacinto::native::SqliteDefaults;

namespace {

int attack(SqliteDefaults& defaults, int writer, std::int64_t first) {
    using namespace morvellacinto::native;
    for (std::int64_t number = first;; ++number) {
        const std::string key = attackKey(writer, number % attackKeys);
        if (const std::optional<Value> value = attackValue(writer, number)) {
            defaults.setObjectForKey(*value, key);
        } else {
            defaults.removeObjectForKey(key);
        }
        if (!defaults.synchronize()) {
            return 1;
        }
        std::cout << number << std::endl;
    }
}

int add(SqliteDefaults& defaults, const std::string& key, int count) {
    for (int round = 0; round < count; ++round) {
        const std::optional<Value> before = defaults.objectForKey(key);
        defaults.setObjectForKey(before ? before->asInt64() + 1 : 1, key);
        if (!defaults.synchronize()) {
            return 1;
        }
    }
    return 0;
}

int echo(SqliteDefaults& defaults) {
    std::optional<Value> last;
    while (true) {
        const std::optional<Value> call = defaults.objectForKey("call");
        if (!call || call == last) {
            continue;
        }
        last = call;
        defaults.setObjectForKey(*call, "echo");
        if (!defaults.synchronize()) {
            return 1;
        }
        std::cout << "flushed" << std::endl;
    }
}

} // namespace

int main(int argumentCount, char** argumentValues) {
    const std::vector<std::string> arguments(argumentValues, argumentValues + argumentCount);
    SqliteDefaults defaults(arguments.at(1), arguments.at(2),
                            [](std::string_view sentence) { std::cerr << sentence << std::endl; });
    if (arguments.at(3) == "attack") {
        return attack(defaults, std::stoi(arguments.at(4)), std::stoll(arguments.at(5)));
    }
    if (arguments.at(3) == "add") {
        return add(defaults, arguments.at(4), std::stoi(arguments.at(5)));
    }
    return echo(defaults);
}
