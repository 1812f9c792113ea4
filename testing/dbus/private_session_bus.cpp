#include "testing/dbus/private_session_bus.hpp"

namespace orvanta::testing {
namespace {

std::string configuration(const std::string& folder) {
  return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=)" +
         folder + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
}

}  // namespace

PrivateSessionBus::PrivateSessionBus() : directory_(std::make_unique<TemporaryDirectory>()) {
  const std::string configFile = directory_->file("bus.conf");
  const std::string logFile = directory_->file("dbus-daemon.log");
  writeFile(configFile, configuration(directory_->path()));
  // The daemon writes its address on descriptor 3 once it accepts connections.
  daemon_ = std::make_unique<ChildServer>(
      std::vector<std::string>{ORVANTA_DBUS_DAEMON, "--config-file=" + configFile, "--nofork",
                               "--print-address=3"},
      logFile, std::chrono::seconds(20));
  if (daemon_->readyLine()) {
    address_ = *daemon_->readyLine();
  } else {
    failure_ = daemon_->failure() + "; its messages: " + readFile(logFile);
  }
}

}  // namespace orvanta::testing
