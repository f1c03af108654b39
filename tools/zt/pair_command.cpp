// `zt pair`: makes this device and another trust each other for hand-offs.
//
//   zt pair --listen [PORT]      wait for the other device to connect (PORT 0 or none: any free port)
//   zt pair HOST:PORT            connect to a device waiting with --listen
// Both show a six-digit code; the user confirms on each device that the codes are the same. Only
// when both confirm is each added to the other's paired list.
//
//   zt pair --export             print this device's line: "zentrel-device <fingerprint> <name>"
//   zt pair --import LINE        trust the device that printed LINE (for scripts: no prompt)
//   zt pair --list               the paired devices
//   zt pair --forget NAME        stop trusting a device (by name or fingerprint)
//   zt pair --name NAME          set the name other devices see
//
// The identity and the list live in $XDG_CONFIG_HOME/zentrel/handoff (~/.config/zentrel/handoff);
// point XDG_CONFIG_HOME elsewhere to play a second device on the same machine.
// Exit code: 0 on success, 1 when pairing failed or was refused, 2 for bad arguments.

#include <unistd.h>

#include <iostream>
#include <optional>
#include <string>

#include "commands.h"
#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/device_pairing.h"
#include "zentrel/transfer/paired_devices.h"

namespace ztool {
namespace {

struct PairArguments {
  std::string target;
  std::uint16_t listenPort = 0;
  bool listen = false;
  bool exportLine = false;
  std::string importLine;
  bool list = false;
  std::string forget;
  std::string name;
  double timeoutSeconds = 120;
};

int fail(const std::string& message, int code = 1) {
  std::cerr << "zt pair: " << message << "\n";
  return code;
}

// "host:port", "[v6 address]:port".
bool splitHostPort(const std::string& text, std::string& host, std::uint16_t& port) {
  std::string portText;
  if (!text.empty() && text[0] == '[') {
    auto close = text.find("]:");
    if (close == std::string::npos) return false;
    host = text.substr(1, close - 1);
    portText = text.substr(close + 2);
  } else {
    auto colon = text.rfind(':');
    if (colon == std::string::npos || text.find(':') != colon) return false;
    host = text.substr(0, colon);
    portText = text.substr(colon + 1);
  }
  if (host.empty() || portText.empty() || portText.size() > 5 || portText.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  unsigned long value = std::stoul(portText);
  if (value == 0 || value > 65535) return false;
  port = static_cast<std::uint16_t>(value);
  return true;
}

bool askUser(const ZTPairingCandidate& candidate) {
  std::cout << "\nPairing with \"" << candidate.peerName << "\"\n"
            << "  its certificate: " << ZTFingerprintDisplayString(candidate.peerFingerprint) << "\n\n"
            << "  Code: " << candidate.code.substr(0, 3) << " " << candidate.code.substr(3) << "\n\n"
            << "Does the other device show the same code? [y/N] " << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) {
    std::cout << "\n";
    return false;
  }
  return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

int runPair(const PairArguments& arguments) {
  ZTError error;
  auto identity = ZTDeviceIdentity::loadOrCreate({}, &error);
  if (!identity) return fail(error.localizedDescription());
  auto paired = ZTPairedDevices::load(identity, &error);
  if (!paired) return fail(error.localizedDescription());

  if (!arguments.name.empty()) {
    if (!identity->setDeviceName(arguments.name, &error)) return fail(error.localizedDescription(), 2);
    std::cout << "This device is now called \"" << identity->deviceName() << "\".\n";
    if (!arguments.listen && arguments.target.empty() && !arguments.exportLine && arguments.importLine.empty() &&
        !arguments.list && arguments.forget.empty()) {
      return 0;
    }
  }
  if (arguments.exportLine) {
    std::cout << ZTDeviceExportLine(*identity) << "\n";
    return 0;
  }
  if (!arguments.importLine.empty()) {
    auto device = ZTParseDeviceExportLine(arguments.importLine, &error);
    if (!device || !paired->add(*device, &error)) return fail(error.localizedDescription(), 2);
    std::cout << "Paired with \"" << device->name << "\" (" << ZTFingerprintDisplayString(device->fingerprint) << ").\n";
    return 0;
  }
  if (!arguments.forget.empty()) {
    if (!paired->forget(arguments.forget, &error)) return fail(error.localizedDescription());
    std::cout << "Forgot \"" << arguments.forget << "\".\n";
    return 0;
  }
  if (arguments.list) {
    auto devices = paired->devices();
    std::cout << "This device: \"" << identity->deviceName() << "\" " << identity->fingerprintDisplayString() << "\n";
    if (devices.empty()) std::cout << "No paired devices.\n";
    for (const auto& device : devices) {
      std::cout << "  " << device.name << "  " << ZTFingerprintDisplayString(device.fingerprint) << "\n";
    }
    return 0;
  }

  ZTPairingOptions options;
  options.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(arguments.timeoutSeconds * 1000));
  std::optional<ZTPairedDevice> device;
  if (arguments.listen) {
    auto listener = ZTPairingListener::create(arguments.listenPort, false, &error);
    if (!listener) return fail(error.localizedDescription());
    std::cout << "This device: \"" << identity->deviceName() << "\"\n"
              << "Waiting for the other device on port " << listener->port() << ": run there\n"
              << "  zt pair <this machine's address>:" << listener->port() << "\n"
              << std::flush;
    device = listener->acceptAndPair(identity, paired, askUser, options, &error);
  } else if (!arguments.target.empty()) {
    std::string host;
    std::uint16_t port = 0;
    if (!splitHostPort(arguments.target, host, port)) return fail("\"" + arguments.target + "\" is not HOST:PORT.", 2);
    std::cout << "Connecting to " << arguments.target << "…\n" << std::flush;
    device = ZTDevicePairing::pairWithDevice(host, port, identity, paired, askUser, options, &error);
  } else {
    return fail("say what to do: --listen [PORT], HOST:PORT, --export, --import LINE, --list or --forget NAME (see --help).", 2);
  }
  if (!device) return fail(error.localizedDescription());
  std::cout << "Paired with \"" << device->name << "\". Hand-offs between the two devices are now accepted.\n";
  return 0;
}

}  // namespace

void addPairCommand(CLI::App& app) {
  auto* command = app.add_subcommand(
      "pair",
      "Pair this device with another for hand-offs: both show a six-digit code, confirm it on both. "
      "Or exchange --export lines with --import (no prompt). Keeps its files in " + ZTDeviceIdentity::defaultFolder() + ".");
  command->footer(
      "Example: zt pair --listen 7010          (on the first device)\n"
      "Example: zt pair 192.168.1.20:7010      (on the second device)\n"
      "Example: zt pair --import \"$(ssh other-host zt pair --export)\"");
  static PairArguments arguments;
  command->add_option("target", arguments.target, "HOST:PORT of a device waiting with --listen");
  auto* listen = command->add_option("--listen", arguments.listenPort, "Wait for the other device on PORT (any free port if none)")
                     ->expected(0, 1);
  command->add_flag("--export", arguments.exportLine, "Print this device's line for another device's --import");
  command->add_option("--import", arguments.importLine, "Trust the device whose --export line this is");
  command->add_flag("--list", arguments.list, "List the paired devices");
  command->add_option("--forget", arguments.forget, "Stop trusting the device with this name or fingerprint");
  command->add_option("--name", arguments.name, "Set the name other devices see for this one");
  command->add_option("--timeout", arguments.timeoutSeconds, "Seconds to wait for the other device and the answers (default 120)")
      ->check(CLI::PositiveNumber);
  command->callback([listen] {
    arguments.listen = listen->count() > 0;
    int code = runPair(arguments);
    std::cout << std::flush;
    if (code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ztool
