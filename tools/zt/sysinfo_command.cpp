// `zt sysinfo`: the machine's answers to the system queries — network identity, model and names,
// release and kernel versions, memory, boot time, input devices, the PDF default, test harness and
// debugger — as text for people or as JSON for scripts.

#include <charconv>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>

#include "commands.h"
#include "zentrel/system/boot_time.h"
#include "zentrel/system/environment.h"
#include "zentrel/system/input_devices.h"
#include "zentrel/system/machine.h"
#include "zentrel/system/memory.h"
#include "zentrel/system/network.h"
#include "zentrel/system/os_version.h"
#include "zentrel/system/pdf_handler.h"

namespace ztool {
namespace {

struct SystemAnswers {
  std::string macAddress;
  std::optional<std::string> ipv4;
  std::string machineModel, deviceModel, deviceName, userName, appName, desktopEntry;
  float systemVersion = 0;
  ZTVersionTriple release, kernel;
  std::string releaseText, kernelText;
  std::uint64_t freeMemory = 0, otherMemory = 0;
  std::optional<ZTDate> bootDate;
  double uptime = 0;
  bool pointing = false, touchpad = false, keyboard = false, touchscreen = false;
  bool pdfDefault = false, testEnvironment = false, debugger = false;
};

SystemAnswers ask(const std::string& desktopEntry) {
  if (!desktopEntry.empty()) ZTSetAppDesktopEntryID(desktopEntry);
  SystemAnswers a;
  a.macAddress = ZTGetMACAddressString();
  a.ipv4 = ethernetIP();
  a.machineModel = ZTGetMacMachineModel();
  a.deviceModel = ZTGetDeviceModelString();
  a.deviceName = ZTGetDeviceName();
  a.userName = ZTUserName();
  a.appName = ZTAppName();
  a.desktopEntry = ZTAppDesktopEntryID();
  a.systemVersion = ZTGetSystemVersion();
  a.release = ZTOperatingSystemVersion();
  a.releaseText = ZTOperatingSystemVersionString();
  a.kernel = ZTKernelVersion();
  a.kernelText = ZTKernelVersionString();
  a.freeMemory = ZTGetFreeMemoryAmount();
  a.otherMemory = ZTGetOtherMemoryAmount();
  a.bootDate = ZTGetBootDate();
  a.uptime = ZTGetSystemUptime();
  a.pointing = isAnyPointingDeviceConnected();
  a.touchpad = isAnyTouchpadDeviceConnected();
  a.keyboard = isAnyMatchingDeviceConnected(1, 6);
  a.touchscreen = isAnyMatchingDeviceConnected(13, 4);
  a.pdfDefault = isAppDefaultPDFHandler();
  a.testEnvironment = ZTIsRunningInTestEnvironment();
  a.debugger = ZTIsDebuggerAttached();
  return a;
}

// The float as its shortest decimal text ("22.04", not 22.040000915527344).
double asWritten(float value) {
  char text[32];
  auto end = std::to_chars(text, text + sizeof text, value).ptr;
  *end = '\0';
  return std::strtod(text, nullptr);
}

std::string version(const ZTVersionTriple& v) {
  return std::to_string(v.majorVersion) + "." + std::to_string(v.minorVersion) + "." + std::to_string(v.patchVersion);
}

std::string mebibytes(std::uint64_t bytes) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(1) << static_cast<double>(bytes) / (1024.0 * 1024.0) << " MiB";
  return out.str();
}

std::string duration(double seconds) {
  auto total = static_cast<long long>(seconds);
  std::ostringstream out;
  if (total >= 86400) out << total / 86400 << " d ";
  out << (total % 86400) / 3600 << " h " << (total % 3600) / 60 << " min " << total % 60 << " s";
  return out.str();
}

nlohmann::json toJSON(const SystemAnswers& a) {
  auto triple = [](const ZTVersionTriple& v) {
    return nlohmann::json{{"major", v.majorVersion}, {"minor", v.minorVersion}, {"patch", v.patchVersion}};
  };
  nlohmann::json j;
  j["macAddress"] = a.macAddress;
  j["ethernetIP"] = a.ipv4 ? nlohmann::json(*a.ipv4) : nlohmann::json(nullptr);
  j["machineModel"] = a.machineModel;
  j["deviceModel"] = a.deviceModel;
  j["deviceName"] = a.deviceName;
  j["userName"] = a.userName;
  j["appName"] = a.appName;
  j["appDesktopEntry"] = a.desktopEntry;
  j["systemVersion"] = asWritten(a.systemVersion);
  j["operatingSystemVersion"] = triple(a.release);
  j["operatingSystemVersionString"] = a.releaseText;
  j["kernelVersion"] = triple(a.kernel);
  j["kernelVersionString"] = a.kernelText;
  j["freeMemory"] = a.freeMemory;
  j["otherMemory"] = a.otherMemory;
  j["bootDate"] = a.bootDate ? nlohmann::json(a.bootDate->description()) : nlohmann::json(nullptr);
  j["uptime"] = a.uptime;
  j["pointingDeviceConnected"] = a.pointing;
  j["touchpadConnected"] = a.touchpad;
  j["keyboardConnected"] = a.keyboard;
  j["touchscreenConnected"] = a.touchscreen;
  j["appIsDefaultPDFHandler"] = a.pdfDefault;
  j["testEnvironment"] = a.testEnvironment;
  j["debuggerAttached"] = a.debugger;
  j["uuid"] = ZTUUIDString();
  return j;
}

void printText(const SystemAnswers& a) {
  auto row = [](const char* label, const std::string& value) {
    std::cout << "  " << std::left << std::setw(22) << label << (value.empty() ? "(none)" : value) << "\n";
  };
  auto yesNo = [](bool value) { return std::string(value ? "yes" : "no"); };
  std::cout << "Machine\n";
  row("model", a.machineModel);
  row("name", a.deviceName);
  row("user", a.userName);
  row("MAC address", a.macAddress);
  row("IPv4 address", a.ipv4.value_or(""));
  std::cout << "Operating system\n";
  row("release", a.releaseText);
  std::ostringstream value;
  value << version(a.release) << " (as a number " << asWritten(a.systemVersion) << ")";
  row("release version", value.str());
  row("kernel", a.kernelText);
  std::cout << "Memory\n";
  row("free", mebibytes(a.freeMemory));
  row("other", mebibytes(a.otherMemory));
  std::cout << "Time\n";
  row("booted", a.bootDate ? a.bootDate->description() : "");
  row("up", a.bootDate ? duration(a.uptime) : "");
  std::cout << "Input devices\n";
  row("pointing device", yesNo(a.pointing));
  row("touchpad", yesNo(a.touchpad));
  row("keyboard", yesNo(a.keyboard));
  row("touchscreen", yesNo(a.touchscreen));
  std::cout << "Application\n";
  row("name", a.appName);
  row("desktop entry", a.desktopEntry);
  row("opens PDF by default", a.desktopEntry.empty() ? "(no desktop entry given; see --app)" : yesNo(a.pdfDefault));
  row("under a test harness", yesNo(a.testEnvironment));
  row("under a debugger", yesNo(a.debugger));
}

}  // namespace

int runSysinfo(bool json, const std::string& desktopEntry) {
  const SystemAnswers answers = ask(desktopEntry);
  if (json) {
    std::cout << toJSON(answers).dump(2) << "\n";
  } else {
    printText(answers);
  }
  return 0;
}

int runSysinfoWithDefaults() { return runSysinfo(false, ""); }

void addSysinfoCommand(CLI::App& app) {
  auto* command = app.add_subcommand("sysinfo", "The machine's answers: network, model, versions, memory, devices");
  command->footer("Example: zt sysinfo --json");
  static bool json = false;
  static std::string desktopEntry;
  command->add_flag("--json", json, "Print one JSON object, for scripts");
  command->add_option("--app", desktopEntry,
                      "Desktop entry ID of the application to ask about (e.g. org.gnome.Evince.desktop)");
  command->callback([] {
    if (runSysinfo(json, desktopEntry) != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
