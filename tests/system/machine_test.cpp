#include "zentrel/system/machine.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "system/support/machine_root.h"
#include "zentrel/system/boot_time.h"

namespace {

using namespace zt::system_internal;

TEST(MachineModel, VendorAndProductFromFirmware) {
  zt::test::MachineRoot thinkpad;
  thinkpad.write("/sys/class/dmi/id/sys_vendor", "LENOVO\n");
  thinkpad.write("/sys/class/dmi/id/product_name", "20KHCTO1WW\n");
  EXPECT_EQ(machineModelAt(thinkpad.path()), "LENOVO 20KHCTO1WW");

  zt::test::MachineRoot dell;  // the product already names its maker
  dell.write("/sys/class/dmi/id/sys_vendor", "Dell Inc.\n");
  dell.write("/sys/class/dmi/id/product_name", "Dell XPS 13 9310\n");
  EXPECT_EQ(machineModelAt(dell.path()), "Dell XPS 13 9310");

  zt::test::MachineRoot whitebox;  // firmware placeholders are no model
  whitebox.write("/sys/class/dmi/id/sys_vendor", "System manufacturer\n");
  whitebox.write("/sys/class/dmi/id/product_name", "System Product Name\n");
  EXPECT_EQ(machineModelAt(whitebox.path()), std::nullopt);
  whitebox.write("/sys/class/dmi/id/product_name", "ROG STRIX B550-F\n");
  EXPECT_EQ(machineModelAt(whitebox.path()), "ROG STRIX B550-F");

  zt::test::MachineRoot raspberry;  // device tree strings end with NUL
  raspberry.write("/sys/firmware/devicetree/base/model", std::string("Raspberry Pi 4 Model B Rev 1.4\0", 32));
  EXPECT_EQ(machineModelAt(raspberry.path()), "Raspberry Pi 4 Model B Rev 1.4");

  zt::test::MachineRoot nothing;
  EXPECT_EQ(machineModelAt(nothing.path()), std::nullopt);
  nothing.write("/sys/class/dmi/id/product_name", std::string(100000, 'x'));  // not a model, too long
  EXPECT_EQ(machineModelAt(nothing.path()), std::nullopt);
}

TEST(MachineModel, RunningMachineHasTheFallbackOrAModel) {
  const std::string model = ZTGetMacMachineModel();
  EXPECT_FALSE(model.empty());
  const std::string raw = ZTGetDeviceModelString();
  EXPECT_EQ(model, raw.empty() ? "Unknown Mac Coputer" : raw);
  EXPECT_EQ(ZTGetDeviceModelString(), raw);
}

TEST(DeviceName, PrettyHostNameElseHostName) {
  zt::test::MachineRoot root;
  root.write("/proc/sys/kernel/hostname", "studio-7\n");
  EXPECT_EQ(deviceNameAt(root.path()), "studio-7");
  root.write("/etc/machine-info", "# written by hostnamectl\nPRETTY_HOSTNAME=\"Anna's \\\"Studio\\\" Laptop\"\nCHASSIS=laptop\n");
  EXPECT_EQ(deviceNameAt(root.path()), "Anna's \"Studio\" Laptop");
  root.write("/etc/machine-info", "PRETTY_HOSTNAME=\"unterminated\n");
  EXPECT_EQ(deviceNameAt(root.path()), "studio-7");
  root.write("/etc/machine-info", "PRETTY_HOSTNAME=\n");
  EXPECT_EQ(deviceNameAt(root.path()), "studio-7");

  char host[256] = {};
  ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
  auto pretty = readTextFile("/etc/machine-info");
  if (!pretty || !assignmentValue(*pretty, "PRETTY_HOSTNAME")) {
    EXPECT_EQ(ZTGetDeviceName(), host);
  }
}

TEST(UserName, FirstGecosFieldElseLogin) {
  EXPECT_EQ(fullNameFromGecos("Anna Berg,Room 12,555-1234,,", "anna"), "Anna Berg");
  EXPECT_EQ(fullNameFromGecos("& Smith", "john"), "John Smith");
  EXPECT_EQ(fullNameFromGecos(",,,", "builder"), "builder");
  EXPECT_EQ(fullNameFromGecos("", "root"), "root");

  auto entry = zt::test::commandOutput("getent passwd " + std::to_string(::getuid()));
  ASSERT_TRUE(entry);
  // name:password:uid:gid:gecos:home:shell
  std::vector<std::string> fields;
  std::string line(trimmed(*entry));
  for (std::size_t start = 0, i = 0; i < 7; ++i) {
    std::size_t end = line.find(':', start);
    fields.push_back(line.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  ASSERT_GE(fields.size(), 5u);
  EXPECT_EQ(ZTUserName(), fullNameFromGecos(fields[4], fields[0]));
}

constexpr const char* kDesktopEntry =
    "[Desktop Entry]\n"
    "Type=Application\n"
    "Name=Zentrel Reader\n"
    "Name[de]=Zentrel Leser\n"
    "Name[pt_BR]=Leitor Zentrel\n"
    "Exec=zentrel-reader %f\n"
    "MimeType=application/pdf;\n"
    "\n"
    "[Desktop Action NewWindow]\n"
    "Name=New Window\n";

TEST(AppName, DesktopEntryNameInTheUsersLanguage) {
  EXPECT_EQ(desktopEntryName(kDesktopEntry, ""), "Zentrel Reader");
  EXPECT_EQ(desktopEntryName(kDesktopEntry, "C.UTF-8"), "Zentrel Reader");
  EXPECT_EQ(desktopEntryName(kDesktopEntry, "de_AT.UTF-8@euro"), "Zentrel Leser");
  EXPECT_EQ(desktopEntryName(kDesktopEntry, "pt_BR.UTF-8"), "Leitor Zentrel");
  EXPECT_EQ(desktopEntryName(kDesktopEntry, "pt_PT.UTF-8"), "Zentrel Reader");
  EXPECT_EQ(desktopEntryName("[Desktop Action X]\nName=Wrong\n", ""), std::nullopt);

  zt::test::MachineRoot data;
  data.write("/home/applications/org.zentrel.Reader.desktop", kDesktopEntry);
  data.write("/usr/applications/zentrel/tools.desktop", "[Desktop Entry]\nName=Zentrel Tools\n");
  auto env = zt::test::fixedEnvironment({{"XDG_DATA_HOME", data.path() + "/home"},
                                         {"XDG_DATA_DIRS", data.path() + "/usr"},
                                         {"LANG", "de_DE.UTF-8"}});
  EXPECT_EQ(appNameFor("org.zentrel.Reader.desktop", env), "Zentrel Leser");
  EXPECT_EQ(appNameFor("zentrel-tools.desktop", env), "Zentrel Tools");  // found as zentrel/tools.desktop
  EXPECT_EQ(appNameFor("absent.desktop", env), "Zentrel PDF Viewer");
  EXPECT_EQ(appNameFor("../home/applications/org.zentrel.Reader.desktop", env), "Zentrel PDF Viewer");
  EXPECT_EQ(appNameFor("", env), "Zentrel PDF Viewer");
}

TEST(AppName, FallsBackUntilTheApplicationNamesItsEntry) {
  ZTSetAppDesktopEntryID("");
  EXPECT_EQ(ZTAppName(), "Zentrel PDF Viewer");
  zt::test::MachineRoot data;
  data.write("/applications/org.zentrel.Reader.desktop", kDesktopEntry);
  zt::test::ScopedEnvironment dataHome("XDG_DATA_HOME", data.path().c_str());
  zt::test::ScopedEnvironment language("LC_ALL", nullptr);
  zt::test::ScopedEnvironment messages("LC_MESSAGES", nullptr);
  zt::test::ScopedEnvironment lang("LANG", "C.UTF-8");
  ZTSetAppDesktopEntryID("org.zentrel.Reader.desktop");
  EXPECT_EQ(ZTAppDesktopEntryID(), "org.zentrel.Reader.desktop");
  EXPECT_EQ(ZTAppName(), "Zentrel Reader");
  ZTSetAppDesktopEntryID("");
  EXPECT_EQ(ZTAppName(), "Zentrel PDF Viewer");
}

TEST(SystemQueries, AnswerFromManyThreadsAtOnce) {
  // The kept answers (model, boot date) and the application's identity are shared by every thread.
  const std::string model = ZTGetMacMachineModel();
  std::vector<std::thread> threads;
  std::atomic<int> disagreements{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        if (t % 2 == 0) ZTSetAppDesktopEntryID(i % 2 ? "a.desktop" : "b.desktop");
        const std::string id = ZTAppDesktopEntryID();
        if (id != "a.desktop" && id != "b.desktop" && !id.empty()) ++disagreements;
        if (ZTAppName() != "Zentrel PDF Viewer") ++disagreements;  // neither entry is installed
        if (ZTGetDeviceModelString() != ZTGetDeviceModelString()) ++disagreements;
        if (ZTGetMacMachineModel() != model) ++disagreements;
        if (!ZTGetBootDate()) ++disagreements;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  ZTSetAppDesktopEntryID("");
  EXPECT_EQ(disagreements.load(), 0);
}

TEST(UUIDString, FreshUpperCaseText) {
  const std::string a = ZTUUIDString(), b = ZTUUIDString();
  EXPECT_NE(a, b);
  ASSERT_EQ(a.size(), 36u);
  for (char c : a) EXPECT_TRUE(c == '-' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) << a;
}

}  // namespace
