#include "zentrel/system/memory.h"

#include "system/internal/text_files.h"

std::uint64_t ZTGetFreeMemoryAmount() { return zt::system_internal::freeMemoryAmountAt(""); }

std::uint64_t ZTGetOtherMemoryAmount() { return zt::system_internal::otherMemoryAmountAt(""); }
