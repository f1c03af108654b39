// Unique names and base-path tests on arbitrary names, separators and suffixes. The handler treats
// the first names it is asked about (a fuzzer-chosen number, at most 64) as taken, and keeps saying
// so if asked again, so every numbering rule is reached and the search must move on to a free
// name: the chosen name is never one it refused, and the search ends (libFuzzer's timeout).
#include <cstdlib>
#include <set>

#include "fuzz_input.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/unique_names.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string name = zt_fuzz::text(input, 300);
  const std::optional<std::string> separator =
      input.ConsumeBool() ? std::optional<std::string>(zt_fuzz::text(input, 8)) : std::nullopt;
  const std::optional<std::string> suffix =
      input.ConsumeBool() ? std::optional<std::string>(zt_fuzz::text(input, 16)) : std::nullopt;
  const bool isDirectory = input.ConsumeBool();
  const std::int64_t startNumber = input.ConsumeIntegralInRange<std::int64_t>(-3, 1000000);
  const int refusals = input.ConsumeIntegralInRange(0, 64);

  std::set<std::string> refused;
  int asked = 0;
  const std::string chosen = ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock(
      name, std::any(), isDirectory, separator, suffix, startNumber,
      [&](const std::string& candidate, const std::any&) {
        if (refused.count(candidate) != 0) return false;
        if (asked++ < refusals) {
          refused.insert(candidate);
          return false;
        }
        return true;
      });
  if (refused.count(chosen) != 0) std::abort();

  asked = 0;
  std::set<std::string> existing;
  const std::string path = "/fuzz/" + name;
  const std::string unique = ZTGenerateUniquePathUsingItemExistsBlock(
      path, isDirectory, separator, suffix, startNumber, [&](const std::string& candidate) {
        if (existing.count(candidate) != 0) return true;
        if (asked++ < refusals) {
          existing.insert(candidate);
          return true;
        }
        return false;
      });
  if (existing.count(unique) != 0) std::abort();

  const std::string other = zt_fuzz::text(input, 300);
  const bool isBase = zt::isBasePathOfPath(other, name);
  if (isBase && !zt::isEqualOrBasePathOfPath(other, name)) std::abort();
  (void)zt::isEqualToPath(other, name);
  (void)zt::isDirectParentPathOfPath(other, name);
  (void)zt::stringByDeletingBeginningOfPath(name, other);
  (void)zt::stringByDeletingBeginningOfNormalizedPath(name, other);
  return 0;
}
