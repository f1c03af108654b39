// Sync-client conflict-copy names: recognising an arbitrary candidate name as a conflict copy of
// an arbitrary item name, and making conflict-file names. A name recognised as a copy is never the
// item's own name.
#include <cstdlib>

#include "fuzz_input.h"
#include "zentrel/filesystem/file_version.h"
#include "zentrel/filesystem/file_version_conflicts.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string item = zt_fuzz::text(input, 256);
  const std::string candidate = zt_fuzz::text(input, 400);
  if (ZTFileVersion::parseConflictCopyName(item, candidate) && item == candidate) std::abort();
  (void)zt::stringByLeavingOnlyBasicMultilingualPlaneCharactersInString(candidate);
  const std::optional<std::string> device =
      input.ConsumeBool() ? std::optional<std::string>(zt_fuzz::text(input, 64)) : std::nullopt;
  const std::optional<ZTDate> date =
      input.ConsumeBool() ? std::optional<ZTDate>(ZTDate(input.ConsumeFloatingPoint<double>())) : std::nullopt;
  (void)zt::fileNameForConflictFileName(item, device, date);
  return 0;
}
