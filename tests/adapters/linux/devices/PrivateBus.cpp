#include "PrivateBus.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace morvellacinto::native {

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "devices-XXXXXX").string();
    path_ = mkdtemp(name.data());
}

TemporaryFolder::~TemporaryFolder() { std::filesystem::remove_all(path_); }

void TemporaryFolder::write(const std::string& file, const std::string& text) const {
    std::filesystem::create_directories((path_ / file).parent_path());
    std::ofstream(path_ / file, std::ios::binary) << text;
}

PrivateBus::PrivateBus() {
    const std::string folder = folder_.path().string();
    folder_.write("services/.keep", "");
    folder_.write(
        "bus.conf",
        R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
<type>session</type>
<listen>unix:path=)" +
            folder + R"(/socket</listen>
<servicedir>)" +
            folder + R"(/services</servicedir>
<auth>EXTERNAL</auth>
<policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
</policy>
</busconfig>
)");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + folder + "/socket").c_str(), 1);
    start();
}

void PrivateBus::start() {
    std::filesystem::remove(folder_.path() / "socket");
    daemon_ = std::make_unique<Child>(std::vector<std::string>{
        "/usr/bin/dbus-daemon", "--config-file=" + (folder_.path() / "bus.conf").string(),
        "--nofork", "--nopidfile", "--print-address"});
    if (daemon_->readLine().empty()) {
        throw std::runtime_error("dbus-daemon does not run");
    }
}

} // namespace morvellacinto::native
