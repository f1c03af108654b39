#pragma once
// Which kinds of input device are attached, asked in the vocabulary of USB human-interface devices
// (a usage page and a usage), for choosing between touch-friendly and pointer-friendly interfaces.
//
// The answer comes from the kernel's list of input devices (/proc/bus/input/devices), read afresh
// on each call. Each device is sorted into classes from the event bits it announces, by the rules
// udev's input_id builtin uses for ID_INPUT_MOUSE, ID_INPUT_TOUCHPAD and the others:
//
//   mouse          a mouse button (left to task) with relative X and Y, or with no absolute axes;
//                  or absolute X and Y with a mouse button and neither pen nor finger tool (the
//                  absolute mice of virtual machines)
//   pointing stick the kernel's pointing-stick property (a TrackPoint)
//   touchpad       absolute (or multi-touch) X and Y with a finger tool, no pen, and not a
//                  direct-input device
//   touchscreen    absolute (or multi-touch) X and Y, a touch button or the direct-input property,
//                  and neither finger-tool-without-pen (a touchpad) nor pen
//   tablet         absolute X and Y with a pen or stylus
//   joystick       joystick, gamepad or trigger buttons, or extra axes (rotation, throttle, rudder, pedals, hats), when
//                  nothing above already claimed the absolute X and Y
//   (accelerometers — the accelerometer property, or X, Y and Z with no keys — are none of these)
//   keyboard       the first 31 keys (Escape to D) all present
//   keys           any key below the button range (power buttons, media keys, keypads)
//
// Usage page / usage pairs, and the classes they match:
//
//   1 / 1   generic desktop, pointer     mouse, pointing stick, touchpad (anything that moves a
//                                        pointer indirectly, as a Mac's trackpad also reports)
//   1 / 2   generic desktop, mouse       mouse
//   1 / 4   generic desktop, joystick    joystick
//   1 / 5   generic desktop, game pad    joystick
//   1 / 6   generic desktop, keyboard    keyboard
//   1 / 7   generic desktop, keypad      keys
//   13 / 1  digitizer                    tablet, touchscreen, touchpad
//   13 / 2  digitizer, pen               tablet
//   13 / 4  digitizer, touch screen      touchscreen
//   13 / 5  digitizer, touch pad         touchpad
//
// Any other pair matches nothing and answers false. An unreadable or garbled device list answers
// false; a device block with malformed bits is skipped. All functions may be called from any
// thread and never throw.

#include <cstdint>

#include "zentrel/platform/export.h"

// A device matching usage page 1, usage 1 (pointer) is attached.
[[nodiscard]] ZT_API bool isAnyPointingDeviceConnected();
// A device matching usage page 13, usage 5 (touch pad) is attached.
[[nodiscard]] ZT_API bool isAnyTouchpadDeviceConnected();
// A device matching the pair, by the table above, is attached.
[[nodiscard]] ZT_API bool isAnyMatchingDeviceConnected(std::uint32_t usagePage, std::uint32_t usage);
