#include "zentrel/system/input_devices.h"

#include <gtest/gtest.h>


#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "system/support/machine_root.h"

namespace {

using namespace zt::system_internal;

// Device blocks as a 64-bit kernel prints them in /proc/bus/input/devices.
constexpr const char* kMouse =
    "I: Bus=0003 Vendor=046d Product=c077 Version=0111\n"
    "N: Name=\"Logitech USB Optical Mouse\"\n"
    "P: Phys=usb-0000:00:14.0-2/input0\n"
    "S: Sysfs=/devices/pci0000:00/0000:00:14.0/usb1/1-2/1-2:1.0/0003:046D:C077.0001/input/input5\n"
    "U: Uniq=\n"
    "H: Handlers=mouse0 event5 \n"
    "B: PROP=0\n"
    "B: EV=17\n"
    "B: KEY=ff0000 0 0 0 0\n"
    "B: REL=903\n"
    "B: MSC=10\n";

constexpr const char* kTouchpad =
    "I: Bus=0011 Vendor=0002 Product=0007 Version=01b1\n"
    "N: Name=\"SynPS/2 Synaptics TouchPad\"\n"
    "P: Phys=isa0060/serio1/input0\n"
    "S: Sysfs=/devices/platform/i8042/serio1/input/input6\n"
    "U: Uniq=\n"
    "H: Handlers=mouse1 event6 \n"
    "B: PROP=5\n"
    "B: EV=b\n"
    "B: KEY=e520 10000 0 0 0 0\n"
    "B: ABS=660800011000003\n";

constexpr const char* kTouchscreen =
    "I: Bus=0003 Vendor=04f3 Product=2234 Version=0111\n"
    "N: Name=\"ELAN Touchscreen\"\n"
    "P: Phys=usb-0000:00:14.0-7/input0\n"
    "S: Sysfs=/devices/pci0000:00/0000:00:14.0/usb1/1-7/1-7:1.0/0003:04F3:2234.0003/input/input11\n"
    "U: Uniq=\n"
    "H: Handlers=mouse2 event10 \n"
    "B: PROP=2\n"
    "B: EV=1b\n"
    "B: KEY=400 0 0 0 0 0\n"
    "B: ABS=260800000000003\n"
    "B: MSC=20\n";

constexpr const char* kKeyboard =
    "I: Bus=0011 Vendor=0001 Product=0001 Version=ab41\n"
    "N: Name=\"AT Translated Set 2 keyboard\"\n"
    "P: Phys=isa0060/serio0/input0\n"
    "S: Sysfs=/devices/platform/i8042/serio0/input/input3\n"
    "U: Uniq=\n"
    "H: Handlers=sysrq kbd event3 leds \n"
    "B: PROP=0\n"
    "B: EV=120013\n"
    "B: KEY=402000000 3803078f800d001 feffffdfffefffff fffffffffffffffe\n"
    "B: MSC=10\n"
    "B: LED=7\n";

constexpr const char* kPowerButton =
    "I: Bus=0019 Vendor=0000 Product=0001 Version=0000\n"
    "N: Name=\"Power Button\"\n"
    "P: Phys=LNXPWRBN/button/input0\n"
    "S: Sysfs=/devices/LNXSYSTM:00/LNXPWRBN:00/input/input0\n"
    "U: Uniq=\n"
    "H: Handlers=kbd event0 \n"
    "B: PROP=0\n"
    "B: EV=3\n"
    "B: KEY=10000000000000 0\n";

constexpr const char* kTrackPoint =
    "I: Bus=0011 Vendor=0002 Product=000a Version=0000\n"
    "N: Name=\"TPPS/2 IBM TrackPoint\"\n"
    "P: Phys=synaptics-pt/serio0/input0\n"
    "S: Sysfs=/devices/platform/i8042/serio1/serio2/input/input7\n"
    "U: Uniq=\n"
    "H: Handlers=mouse2 event7 \n"
    "B: PROP=21\n"
    "B: EV=7\n"
    "B: KEY=70000 0 0 0 0\n"
    "B: REL=3\n";

// The absolute pointer of a virtual machine (QEMU's USB tablet).
constexpr const char* kVirtualMachineTablet =
    "I: Bus=0003 Vendor=0627 Product=0001 Version=0001\n"
    "N: Name=\"QEMU QEMU USB Tablet\"\n"
    "P: Phys=usb-0000:00:01.2-1/input0\n"
    "S: Sysfs=/devices/pci0000:00/0000:00:01.2/usb1/1-1/1-1:1.0/0003:0627:0001.0001/input/input4\n"
    "U: Uniq=28754-0000:00:01.2-1\n"
    "H: Handlers=mouse0 event2 \n"
    "B: PROP=0\n"
    "B: EV=1f\n"
    "B: KEY=70000 0 0 0 0\n"
    "B: REL=900\n"
    "B: ABS=3\n"
    "B: MSC=10\n";

constexpr const char* kPenTablet =
    "I: Bus=0003 Vendor=056a Product=0357 Version=0110\n"
    "N: Name=\"Wacom Intuos Pro M Pen\"\n"
    "P: Phys=\n"
    "S: Sysfs=/devices/pci0000:00/0000:00:14.0/usb1/1-3/1-3:1.0/0003:056A:0357.0005/input/input20\n"
    "U: Uniq=\n"
    "H: Handlers=mouse3 event12 \n"
    "B: PROP=1\n"
    "B: EV=1b\n"
    "B: KEY=1c03 0 0 0 0 0\n"
    "B: ABS=3000003\n"
    "B: MSC=1\n";

constexpr const char* kGamepad =
    "I: Bus=0003 Vendor=045e Product=028e Version=0114\n"
    "N: Name=\"Microsoft X-Box 360 pad\"\n"
    "P: Phys=usb-0000:00:14.0-4/input0\n"
    "S: Sysfs=/devices/pci0000:00/0000:00:14.0/usb1/1-4/1-4:1.0/input/input15\n"
    "U: Uniq=\n"
    "H: Handlers=event14 js0 \n"
    "B: PROP=0\n"
    "B: EV=20000b\n"
    "B: KEY=7cdb000000000000 0 0 0 0\n"
    "B: ABS=3003f\n"
    "B: FF=107030000 0\n";

constexpr const char* kAccelerometer =
    "I: Bus=0018 Vendor=0000 Product=0000 Version=0000\n"
    "N: Name=\"ST LIS3LV02DL Accelerometer\"\n"
    "P: Phys=lis3lv02d/input0\n"
    "S: Sysfs=/devices/platform/lis3lv02d/input/input9\n"
    "U: Uniq=\n"
    "H: Handlers=event9 js1 \n"
    "B: PROP=0\n"
    "B: EV=9\n"
    "B: ABS=7\n";

std::string devices(std::initializer_list<const char*> blocks) {
  std::string text;
  for (const char* block : blocks) {
    text += block;
    text += "\n";
  }
  return text;
}

std::uint32_t classesOf(const char* block) {
  auto parsed = parseInputDevices(block);
  EXPECT_EQ(parsed.size(), 1u);
  return parsed.empty() ? 0 : parsed.front().classes;
}

TEST(InputDevices, ClassifiedFromTheirCapabilities) {
  EXPECT_EQ(classesOf(kMouse), kInputMouse);
  EXPECT_EQ(classesOf(kTouchpad), kInputTouchpad);  // its click button does not make it a mouse
  EXPECT_EQ(classesOf(kTouchscreen), kInputTouchscreen);
  EXPECT_EQ(classesOf(kKeyboard), kInputKeyboard | kInputKeys);
  EXPECT_EQ(classesOf(kPowerButton), kInputKeys);
  EXPECT_EQ(classesOf(kTrackPoint), kInputMouse | kInputPointingStick);
  EXPECT_EQ(classesOf(kVirtualMachineTablet), kInputMouse);
  EXPECT_EQ(classesOf(kPenTablet), kInputTablet);
  EXPECT_EQ(classesOf(kGamepad), kInputJoystick);
  EXPECT_EQ(classesOf(kAccelerometer), 0u);
  EXPECT_EQ(parseInputDevices(devices({kMouse, kKeyboard}))[1].name, "AT Translated Set 2 keyboard");
}

TEST(InputDevices, UsagePairsAskForClasses) {
  zt::test::MachineRoot laptop;  // a keyboard, a touchpad and a power button; no mouse
  laptop.write("/proc/bus/input/devices", devices({kPowerButton, kKeyboard, kTouchpad}));
  EXPECT_TRUE(anyMatchingDeviceAt(laptop.path(), 1, 1));   // a touchpad moves a pointer
  EXPECT_FALSE(anyMatchingDeviceAt(laptop.path(), 1, 2));  // but is not a mouse
  EXPECT_TRUE(anyMatchingDeviceAt(laptop.path(), 13, 5));
  EXPECT_TRUE(anyMatchingDeviceAt(laptop.path(), 13, 1));
  EXPECT_FALSE(anyMatchingDeviceAt(laptop.path(), 13, 4));
  EXPECT_TRUE(anyMatchingDeviceAt(laptop.path(), 1, 6));
  EXPECT_FALSE(anyMatchingDeviceAt(laptop.path(), 1, 4));

  zt::test::MachineRoot kiosk;  // a touchscreen and a gamepad
  kiosk.write("/proc/bus/input/devices", devices({kTouchscreen, kGamepad}));
  EXPECT_FALSE(anyMatchingDeviceAt(kiosk.path(), 1, 1));
  EXPECT_FALSE(anyMatchingDeviceAt(kiosk.path(), 13, 5));
  EXPECT_TRUE(anyMatchingDeviceAt(kiosk.path(), 13, 4));
  EXPECT_TRUE(anyMatchingDeviceAt(kiosk.path(), 1, 5));

  // Pairs outside the table match nothing, even with every kind of device attached.
  zt::test::MachineRoot everything;
  everything.write("/proc/bus/input/devices",
                   devices({kMouse, kTouchpad, kTouchscreen, kKeyboard, kPenTablet, kGamepad}));
  EXPECT_FALSE(anyMatchingDeviceAt(everything.path(), 1, 3));
  EXPECT_FALSE(anyMatchingDeviceAt(everything.path(), 12, 1));
  EXPECT_FALSE(anyMatchingDeviceAt(everything.path(), 0xff00, 1));
}

TEST(InputDevices, DamagedListsAnswerWithWhatIsReadable) {
  zt::test::MachineRoot missing;
  EXPECT_FALSE(anyMatchingDeviceAt(missing.path(), 1, 1));

  // A block with a garbled bitmap is left out; its neighbours still count.
  std::string garbled = kMouse;
  garbled.replace(garbled.find("KEY=ff0000"), 10, "KEY=zz0000");
  auto parsed = parseInputDevices(devices({garbled.c_str(), kTouchpad}));
  ASSERT_EQ(parsed.size(), 1u);
  EXPECT_EQ(parsed[0].classes, kInputTouchpad);

  // Truncated anywhere (a cut bitmap reads as a different, shorter one) or without its final line
  // break: never more devices than blocks, and the whole text still reads right.
  const std::string full = devices({kTouchpad, kMouse});
  for (std::size_t cut = 0; cut <= full.size(); ++cut) {
    EXPECT_LE(parseInputDevices(std::string_view(full).substr(0, cut)).size(), 2u) << cut;
  }
  auto unterminated = parseInputDevices(std::string(kTouchpad) + "\n" + std::string(kMouse).substr(0, std::string(kMouse).size() - 1));
  ASSERT_EQ(unterminated.size(), 2u);
  EXPECT_EQ(unterminated[1].classes, kInputMouse);
  EXPECT_TRUE(parseInputDevices("B: KEY=" + std::string(5000, 'f') + "\n").empty());
  EXPECT_TRUE(parseInputDevices("B: KEY=" + std::string(200, '1').append(200, ' ') + "\n").size() <= 1);
  EXPECT_TRUE(parseInputDevices(std::string(3000, '\n')).empty());
}

TEST(InputDevices, TheRunningKernelsListParsesWhole) {
  auto text = readTextFile("/proc/bus/input/devices", 4u << 20);
  if (!text) GTEST_SKIP() << "this machine has no /proc/bus/input/devices";
  std::size_t starts = 0;
  for (std::size_t at = text->find("I: "); at != std::string::npos; at = text->find("\nI: ", at + 1)) ++starts;
  EXPECT_EQ(parseInputDevices(*text).size(), starts);
  EXPECT_EQ(isAnyPointingDeviceConnected(), anyMatchingDeviceAt("", 1, 1));
  EXPECT_EQ(isAnyTouchpadDeviceConnected(), anyMatchingDeviceAt("", 13, 5));
}

}  // namespace
