#include "BusCall.h"

#include <systemd/sd-bus.h>
#include <utility>

namespace morvellacinto::native {

BusCall readProperties(std::string destination, std::string path, std::string_view interface) {
    return {std::move(destination), std::move(path), "org.freedesktop.DBus.Properties", "GetAll",
            [interface = std::string(interface)](sd_bus_message* message) {
                return sd_bus_message_append_basic(message, 's', interface.c_str());
            }};
}

Object propertiesIn(const BusReply& reply) {
    const Object* properties = reply.body.empty() ? nullptr : reply.body[0].ifObject();
    return properties != nullptr ? *properties : Object();
}

} // namespace morvellacinto::native
