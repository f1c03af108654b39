// Path arithmetic and normalization on arbitrary bytes: no crash, no unbounded work, and the
// normal form is a fixed point (normalizing twice changes nothing) unless it begins with "~":
// standardizing expands a leading "~", so "./~/a" normalizes to "~/a", which a second pass reads
// as the home folder.
#include <cstdlib>

#include "fuzz_input.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/paths.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string path = zt_fuzz::text(input);
  const std::string other = zt_fuzz::text(input);

  const std::string normal = ZTNormalizePath(path);
  if (normal.front() != '~' && ZTNormalizePath(normal) != normal) std::abort();
  if (!ZTIsPathEqualToPath(path, path)) std::abort();
  (void)ZTNormalizeBeginingOfPath(path);
  (void)ZTNormalizeEndOfPath(path);
  (void)ZTIsPathBasePathOfPath(path, other);
  (void)ZTDeleteBeginningOfPath(other, path);
  (void)ZTDeleteBeginningOfPathWithOptions(other, path, ZTPathNormalizationAddTrailingSlash);
  (void)ZTRelativePathToAbsolute(path, other);
  (void)ZTAbsolutePathToRelative(path, {other});

  (void)zt::lastPathComponent(path);
  (void)zt::stringByDeletingLastPathComponent(path);
  (void)zt::pathExtension(path);
  (void)zt::stringByDeletingPathExtension(path);
  (void)zt::stringByAppendingPathComponent(path, other);
  (void)zt::stringByAppendingPathExtension(path, other);
  (void)zt::pathWithComponents(zt::pathComponents(path));
  (void)zt::stringByPrependingSlashToPath(path);
  (void)zt::stringByAppendingSlashToPath(path);
  (void)zt::stringByNormalizingPathWithOptions(path, ZTPathNormalizationAddTrailingSlash);
  (void)zt::stringByNormalizingPathAndAddingTrailingSlash(path, input.ConsumeBool());
  (void)zt::stringByDeletingLastURLComponent(path);
  (void)zt::isEqualToCaseInsensitivePath(path, other);
  (void)zt::relativePathWithBasePath(path, other);
  (void)zt::stringBySettingPathExtension(path, other, input.ConsumeBool());
  return 0;
}
