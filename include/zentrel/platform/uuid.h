#pragma once
#include <string>

#include "zentrel/platform/export.h"

// A fresh random (version 4) UUID in its standard upper-case text form,
// e.g. "1B4E28BA-2FA1-11D2-883F-0016D3CCA427". Uses the kernel's random source.
[[nodiscard]] ZT_API std::string ZTUUIDString();
