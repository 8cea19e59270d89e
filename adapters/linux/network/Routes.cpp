// SPDX-License-Identifier: MIT
#include "NativeNetwork.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <ifaddrs.h>
#include <iterator>
#include <map>
#include <memory>
#include <net/route.h>
#include <netdb.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace morvellacinto::native {

namespace {

struct Family {
    const char* internet; ///< an address for documentation, to which nobody has an own route
    // Where the kernel's table holds what; the second and third are zero for default routes.
    std::size_t interface, destination, other, flags, metric;
    int metricBase;
};
constexpr Family version4{"192.0.2.1", 0, 1, 7, 3, 6, 10};
constexpr Family version6{"2001:db8::1", 9, 1, 3, 8, 5, 16};

const Family& factsOf(int family) { return family == AF_INET ? version4 : version6; }

std::string textOf(const sockaddr* address) {
    const socklen_t size =
        address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    std::array<char, NI_MAXHOST> text{};
    getnameinfo(address, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
    return text.data();
}

// The kernel chooses a datagram socket's own address when it is connected, which sends nothing.
// Empty when there is no way.
std::string addressTowardsInternet(int family) {
    const addrinfo hints{AI_NUMERICHOST | AI_NUMERICSERV, family, SOCK_DGRAM, 0, 0, {}, {}, {}};
    addrinfo* found = nullptr;
    if (getaddrinfo(factsOf(family).internet, "9", &hints, &found) != 0) {
        return {};
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> target(found, freeaddrinfo);
    const int descriptor = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    auto* address = reinterpret_cast<sockaddr*>(&own);
    const bool isRouted = connect(descriptor, target->ai_addr, target->ai_addrlen) == 0 &&
                          getsockname(descriptor, address, &size) == 0;
    close(descriptor); // without one, which the kernel refuses too, there is no way
    return isRouted ? textOf(address) : std::string();
}

} // namespace

std::optional<std::string> interfaceToInternet(int family) {
    const std::string own = addressTowardsInternet(family);
    ifaddrs* found = nullptr;
    if (own.empty() || getifaddrs(&found) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(found, freeifaddrs);
    for (const ifaddrs* entry = all.get(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == family &&
            textOf(entry->ifa_addr) == own) {
            const std::string_view label = entry->ifa_name; // such as "eth0:1"
            return std::string(label.substr(0, label.find(':')));
        }
    }
    return std::nullopt;
}

std::vector<std::string> defaultRoutesIn(const std::string& table, int family) {
    const Family& columns = factsOf(family);
    std::multimap<std::uint64_t, std::string> byMetric;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream text(line);
        const std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
        if (words.size() <= std::max(columns.interface, columns.other)) {
            continue;
        }
        const auto isZero = [&](std::size_t column) {
            return words[column].find_first_not_of('0') == std::string::npos;
        };
        const auto flags = std::strtoull(words[columns.flags].c_str(), nullptr, 16);
        if (isZero(columns.destination) && isZero(columns.other) &&
            (flags & (RTF_UP | RTF_REJECT)) == RTF_UP) {
            const char* metric = words[columns.metric].c_str();
            byMetric.emplace(std::strtoull(metric, nullptr, columns.metricBase),
                             words[columns.interface]);
        }
    }
    std::vector<std::string> interfaces;
    for (const auto& route : byMetric) {
        interfaces.push_back(route.second);
    }
    return interfaces;
}

} // namespace morvellacinto::native
