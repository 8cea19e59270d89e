#include "PrivateBus.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace morvellacinto::native {

void TemporaryRoot::write(const std::string& file, const std::string& text) const {
    std::filesystem::create_directories((path() / file).parent_path());
    std::ofstream(path() / file, std::ios::binary) << text;
}

PrivateBus::PrivateBus()
    : bus(
          [this](std::string_view sentence) {
              const std::lock_guard lock(mutex_);
              told_.emplace_back(sentence);
          },
          stopSignal) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    start();
}

void PrivateBus::start(const std::string& authentication) {
    daemon_.reset();
    std::filesystem::remove(folder.path() / "socket");
    folder.write("bus.conf", "<busconfig><type>session</type><listen>" + address_ +
                                 "</listen><auth>" + authentication + R"(</auth>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
<allow own="*"/></policy></busconfig>)");
    daemon_ = std::make_unique<testing::ChildProcess>(std::vector<std::string>{
        "/usr/bin/dbus-daemon", "--config-file=" + (folder.path() / "bus.conf").string(),
        "--nofork", "--nopidfile", "--print-address"});
    if (daemon_->readLine().empty()) {
        throw std::runtime_error("dbus-daemon does not run");
    }
}

void PrivateBus::freeze() { daemon_->send(SIGSTOP); }

std::vector<std::string> PrivateBus::told() {
    const std::lock_guard lock(mutex_);
    return told_;
}

} // namespace morvellacinto::native
