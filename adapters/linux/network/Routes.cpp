#include "Routes.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

// Addresses set aside for documentation: nobody has a route of their own to them.
constexpr const char* internetAddress4 = "192.0.2.1";
constexpr const char* internetAddress6 = "2001:db8::1";
constexpr timeval receiveTimeout{0, 200'000};
// A bound to dumps: far more datagrams than any table of a phone takes.
constexpr int maximumDatagrams = 256;

struct Request {
    nlmsghdr header{};
    rtmsg route{};
    std::array<std::byte, RTA_SPACE(sizeof(in6_addr))> attribute{};
};

struct Route {
    unsigned char type = RTN_UNSPEC;
    unsigned char table = RT_TABLE_UNSPEC;
    unsigned char destinationLength = 0;
    std::uint32_t metric = 0;
    unsigned interface = 0;
};

Request requestFor(int family, std::uint16_t flags) {
    Request request;
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    request.route.rtm_family = static_cast<unsigned char>(family);
    return request;
}

void addDestination(Request& request, int family) {
    in6_addr address{};
    const bool isVersion4 = family == AF_INET;
    const std::size_t size = isVersion4 ? sizeof(in_addr) : sizeof(in6_addr);
    inet_pton(family, isVersion4 ? internetAddress4 : internetAddress6, &address);
    rtattr header{};
    header.rta_type = RTA_DST;
    header.rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
    std::memcpy(request.attribute.data(), &header, sizeof header);
    std::memcpy(request.attribute.data() + RTA_LENGTH(0), &address, size);
    request.header.nlmsg_len =
        static_cast<std::uint32_t>(NLMSG_LENGTH(sizeof(rtmsg)) + RTA_SPACE(size));
    request.route.rtm_dst_len = static_cast<unsigned char>(size * 8);
}

bool sendAll(int descriptor, const Request& request) {
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    return sendto(descriptor, &request, request.header.nlmsg_len, MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) >= 0;
}

// `message` is what follows a netlink header; shorter ones than promised are no route.
Route routeIn(const std::byte* message, std::size_t size) {
    Route route;
    rtmsg header{};
    if (size < sizeof header) {
        return route;
    }
    std::memcpy(&header, message, sizeof header);
    route.type = header.rtm_type;
    route.table = header.rtm_table;
    route.destinationLength = header.rtm_dst_len;
    std::size_t offset = NLMSG_ALIGN(sizeof header);
    while (offset + sizeof(rtattr) <= size) {
        rtattr attribute{};
        std::memcpy(&attribute, message + offset, sizeof attribute);
        if (attribute.rta_len < RTA_LENGTH(0) || attribute.rta_len > size - offset) {
            break;
        }
        std::uint32_t number = 0;
        if (attribute.rta_len >= RTA_LENGTH(sizeof number)) {
            std::memcpy(&number, message + offset + RTA_LENGTH(0), sizeof number);
        }
        if (attribute.rta_type == RTA_OIF) {
            route.interface = number;
        } else if (attribute.rta_type == RTA_MULTIPATH &&
                   attribute.rta_len >= RTA_LENGTH(sizeof(rtnexthop))) {
            rtnexthop first{}; // one stands for all
            std::memcpy(&first, message + offset + RTA_LENGTH(0), sizeof first);
            route.interface = static_cast<unsigned>(first.rtnh_ifindex);
        } else if (attribute.rta_type == RTA_PRIORITY) {
            route.metric = number;
        }
        offset += RTA_ALIGN(attribute.rta_len);
    }
    return route;
}

// The routes of one answer, up to its end or an error.
std::vector<Route> receiveRoutes(int descriptor, bool isDump) {
    std::vector<Route> routes;
    std::array<std::byte, 32768> buffer;
    for (int count = 0; count < maximumDatagrams; ++count) {
        const ssize_t received = recv(descriptor, buffer.data(), buffer.size(), 0);
        if (received < 0) {
            return routes;
        }
        const auto size = static_cast<std::size_t>(received);
        for (std::size_t offset = 0; offset + sizeof(nlmsghdr) <= size;) {
            nlmsghdr header{};
            std::memcpy(&header, buffer.data() + offset, sizeof header);
            const bool isBroken =
                header.nlmsg_len < sizeof header || header.nlmsg_len > size - offset;
            if (isBroken || header.nlmsg_type == NLMSG_ERROR || header.nlmsg_type == NLMSG_DONE) {
                return routes;
            }
            if (header.nlmsg_type == RTM_NEWROUTE) {
                routes.push_back(routeIn(buffer.data() + offset + NLMSG_HDRLEN,
                                         header.nlmsg_len - NLMSG_HDRLEN));
            }
            offset += NLMSG_ALIGN(header.nlmsg_len);
        }
        if (!isDump) {
            return routes;
        }
    }
    return routes;
}

std::optional<std::string> nameOf(const Route& route) {
    std::array<char, IF_NAMESIZE> name{};
    if (route.type != RTN_UNICAST || if_indextoname(route.interface, name.data()) == nullptr) {
        return std::nullopt;
    }
    return name.data();
}

} // namespace

Routes::Routes() : descriptor_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "route socket");
    }
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &receiveTimeout, sizeof receiveTimeout);
}

Routes::~Routes() { close(descriptor_); }

std::optional<std::string> Routes::interfaceToInternet(int family) {
    Request request = requestFor(family, 0);
    addDestination(request, family);
    if (!sendAll(descriptor_, request)) {
        return std::nullopt;
    }
    const auto routes = receiveRoutes(descriptor_, false);
    return routes.empty() ? std::nullopt : nameOf(routes.front());
}

std::vector<std::string> Routes::interfacesOfDefaultRoutes(int family) {
    if (!sendAll(descriptor_, requestFor(family, NLM_F_DUMP))) {
        return {};
    }
    auto routes = receiveRoutes(descriptor_, true);
    std::erase_if(routes, [](const Route& route) {
        return route.destinationLength != 0 || route.table != RT_TABLE_MAIN;
    });
    std::stable_sort(routes.begin(), routes.end(), [](const Route& left, const Route& right) {
        return left.metric < right.metric;
    });
    std::vector<std::string> names;
    for (const Route& route : routes) {
        if (auto name = nameOf(route)) {
            names.push_back(*std::move(name));
        }
    }
    return names;
}

} // namespace morvellacinto::native
