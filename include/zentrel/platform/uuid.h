#pragma once
#include <string>

// A fresh random (version 4) UUID in its standard upper-case text form,
// e.g. "1B4E28BA-2FA1-11D2-883F-0016D3CCA427". Uses the kernel's random source.
std::string ZTUUIDString();
