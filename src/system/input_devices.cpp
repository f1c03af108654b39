#include "zentrel/system/input_devices.h"

#include <climits>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"

namespace zt::system_internal {

namespace {

// Event types, codes and properties from <linux/input-event-codes.h>.
constexpr unsigned EV_KEY = 0x01, EV_REL = 0x02;
constexpr unsigned REL_X = 0x00, REL_Y = 0x01;
constexpr unsigned ABS_X = 0x00, ABS_Y = 0x01, ABS_Z = 0x02, ABS_RX = 0x03, ABS_PRESSURE = 0x18;
constexpr unsigned ABS_MT_SLOT = 0x2f, ABS_MT_POSITION_X = 0x35, ABS_MT_POSITION_Y = 0x36;
constexpr unsigned BTN_MISC = 0x100, BTN_MOUSE = 0x110, BTN_JOYSTICK = 0x120,
                   BTN_DIGI = 0x140, BTN_TOOL_PEN = 0x140, BTN_TOOL_FINGER = 0x145, BTN_TOUCH = 0x14a,
                   BTN_STYLUS = 0x14b, KEY_OK = 0x160, BTN_TRIGGER_HAPPY1 = 0x2c0, BTN_TRIGGER_HAPPY40 = 0x2e7;
constexpr unsigned INPUT_PROP_DIRECT = 0x01, INPUT_PROP_POINTING_STICK = 0x05, INPUT_PROP_ACCELEROMETER = 0x06;
// The kernel prints bitmaps in words of its unsigned long.
constexpr unsigned kWordBits = sizeof(unsigned long) * CHAR_BIT;
constexpr std::size_t kMaxWords = 64;  // KEY_MAX (0x2ff) needs 12 words of 64 bits

// A capability bitmap as the kernel prints it: hexadecimal words separated by spaces, most
// significant first, leading zero words left out.
class Bitmap {
 public:
  bool parse(std::string_view text) {
    words_.clear();
    text = trimmed(text);
    std::vector<std::uint64_t> mostSignificantFirst;
    std::size_t i = 0;
    while (i < text.size()) {
      while (i < text.size() && text[i] == ' ') ++i;
      std::size_t begin = i;
      while (i < text.size() && text[i] != ' ') ++i;
      if (i == begin) break;
      std::string_view word = text.substr(begin, i - begin);
      if (word.size() > kWordBits / 4 || mostSignificantFirst.size() >= kMaxWords) return false;
      std::uint64_t value = 0;
      for (char c : word) {
        int digit;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        else return false;
        value = value * 16 + static_cast<std::uint64_t>(digit);
      }
      mostSignificantFirst.push_back(value);
    }
    if (mostSignificantFirst.empty()) return false;
    words_.assign(mostSignificantFirst.rbegin(), mostSignificantFirst.rend());
    return true;
  }
  bool test(unsigned bit) const {
    std::size_t word = bit / kWordBits;
    return word < words_.size() && ((words_[word] >> (bit % kWordBits)) & 1u);
  }
  bool anyIn(unsigned first, unsigned end) const {  // [first, end)
    for (unsigned bit = first; bit < end; ++bit) {
      if (test(bit)) return true;
    }
    return false;
  }

 private:
  std::vector<std::uint64_t> words_;
};

struct Capabilities {
  Bitmap ev, key, rel, abs, prop;
};

std::uint32_t classify(const Capabilities& c) {
  std::uint32_t classes = 0;
  const bool hasKeys = c.ev.test(EV_KEY);
  const bool hasAbsCoordinates = c.abs.test(ABS_X) && c.abs.test(ABS_Y);
  const bool has3dCoordinates = hasAbsCoordinates && c.abs.test(ABS_Z);
  const bool isAccelerometer = c.prop.test(INPUT_PROP_ACCELEROMETER) || (!hasKeys && has3dCoordinates);
  if (isAccelerometer) return 0;

  const bool stylusOrPen = c.key.test(BTN_STYLUS) || c.key.test(BTN_TOOL_PEN);
  const bool fingerButNoPen = c.key.test(BTN_TOOL_FINGER) && !c.key.test(BTN_TOOL_PEN);
  const bool hasMouseButton = c.key.anyIn(BTN_MOUSE, BTN_JOYSTICK);
  const bool hasRelCoordinates = c.ev.test(EV_REL) && c.rel.test(REL_X) && c.rel.test(REL_Y);
  bool hasMtCoordinates = c.abs.test(ABS_MT_POSITION_X) && c.abs.test(ABS_MT_POSITION_Y);
  // A device claiming every absolute axis, the slot's neighbour included, is not really multi-touch.
  if (hasMtCoordinates && c.abs.test(ABS_MT_SLOT) && c.abs.test(ABS_MT_SLOT - 1)) hasMtCoordinates = false;
  const bool isDirect = c.prop.test(INPUT_PROP_DIRECT);
  const bool hasTouch = c.key.test(BTN_TOUCH);
  const bool hasJoystickAxesOrButtons = c.key.anyIn(BTN_JOYSTICK, BTN_DIGI) ||
                                        c.key.anyIn(BTN_TRIGGER_HAPPY1, BTN_TRIGGER_HAPPY40 + 1) ||
                                        c.abs.anyIn(ABS_RX, ABS_PRESSURE);

  if (hasAbsCoordinates) {
    if (stylusOrPen) classes |= kInputTablet;
    else if (fingerButNoPen && !isDirect) classes |= kInputTouchpad;
    else if (hasMouseButton) classes |= kInputMouse;  // the absolute mice of virtual machines
    else if (hasTouch || isDirect) classes |= kInputTouchscreen;
    else if (hasJoystickAxesOrButtons) classes |= kInputJoystick;
  } else if (hasJoystickAxesOrButtons) {
    classes |= kInputJoystick;
  }
  if (hasMtCoordinates) {
    if (stylusOrPen) classes |= kInputTablet;
    else if (fingerButNoPen && !isDirect) classes |= kInputTouchpad;
    else if (hasTouch || isDirect) classes |= kInputTouchscreen;
  }
  if (!(classes & (kInputTablet | kInputTouchpad | kInputJoystick)) && hasMouseButton &&
      (hasRelCoordinates || !hasAbsCoordinates)) {
    classes |= kInputMouse;
  }
  if (c.prop.test(INPUT_PROP_POINTING_STICK)) classes |= kInputPointingStick;

  if (hasKeys) {
    if (c.key.anyIn(1, BTN_MISC) || c.key.anyIn(KEY_OK, BTN_TRIGGER_HAPPY1)) classes |= kInputKeys;
    bool fullKeyboard = true;  // Escape, the digits and Q to D: keys 1 to 31
    for (unsigned key = 1; key < 32 && fullKeyboard; ++key) fullKeyboard = c.key.test(key);
    if (fullKeyboard) classes |= kInputKeyboard;
  }
  return classes;
}

}  // namespace

std::vector<InputDevice> parseInputDevices(std::string_view text) {
  std::vector<InputDevice> devices;
  InputDevice device;
  Capabilities caps;
  bool inBlock = false, malformed = false;
  auto finish = [&] {
    if (inBlock && !malformed) {
      device.classes = classify(caps);
      devices.push_back(std::move(device));
    }
    device = InputDevice();
    caps = Capabilities();
    inBlock = malformed = false;
  };
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    if (trimmed(line).empty()) {
      finish();
      continue;
    }
    if (line.size() < 3 || line[1] != ':' || line[2] != ' ') {
      malformed = true;
      inBlock = true;
      continue;
    }
    inBlock = true;
    std::string_view body = line.substr(3);
    if (line[0] == 'N') {
      constexpr std::string_view prefix = "Name=\"";
      if (body.substr(0, prefix.size()) == prefix && body.size() > prefix.size() && body.back() == '"') {
        device.name = std::string(body.substr(prefix.size(), body.size() - prefix.size() - 1));
      }
    } else if (line[0] == 'B') {
      auto equals = body.find('=');
      if (equals == std::string_view::npos) {
        malformed = true;
        continue;
      }
      std::string_view name = body.substr(0, equals), bits = body.substr(equals + 1);
      Bitmap* target = name == "EV" ? &caps.ev
                       : name == "KEY" ? &caps.key
                       : name == "REL" ? &caps.rel
                       : name == "ABS" ? &caps.abs
                       : name == "PROP" ? &caps.prop
                                        : nullptr;
      if (target && !target->parse(bits)) malformed = true;
    }
  }
  finish();
  return devices;
}

std::uint32_t classesForUsage(std::uint32_t usagePage, std::uint32_t usage) {
  if (usagePage == 1) {
    switch (usage) {
      case 1: return kInputMouse | kInputPointingStick | kInputTouchpad;
      case 2: return kInputMouse;
      case 4:
      case 5: return kInputJoystick;
      case 6: return kInputKeyboard;
      case 7: return kInputKeys;
      default: return 0;
    }
  }
  if (usagePage == 13) {
    switch (usage) {
      case 1: return kInputTablet | kInputTouchscreen | kInputTouchpad;
      case 2: return kInputTablet;
      case 4: return kInputTouchscreen;
      case 5: return kInputTouchpad;
      default: return 0;
    }
  }
  return 0;
}

bool anyMatchingDeviceAt(const std::string& root, std::uint32_t usagePage, std::uint32_t usage) {
  const std::uint32_t wanted = classesForUsage(usagePage, usage);
  if (wanted == 0) return false;
  auto text = readTextFile(root + "/proc/bus/input/devices", 4u << 20);
  if (!text) return false;
  for (const auto& device : parseInputDevices(*text)) {
    if (device.classes & wanted) return true;
  }
  return false;
}

}  // namespace zt::system_internal

bool isAnyMatchingDeviceConnected(std::uint32_t usagePage, std::uint32_t usage) {
  return zt::system_internal::anyMatchingDeviceAt("", usagePage, usage);
}

bool isAnyPointingDeviceConnected() { return isAnyMatchingDeviceConnected(1, 1); }

bool isAnyTouchpadDeviceConnected() { return isAnyMatchingDeviceConnected(13, 5); }
