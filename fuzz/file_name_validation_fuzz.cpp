// File-name validation of arbitrary bytes (invalid UTF-8, NUL, long names) with an arbitrary set
// of forbidden characters. A name the check accepts never holds "/" or NUL.
#include <cstdlib>

#include "fuzz_input.h"
#include "zentrel/filesystem/file_name_validation.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string name = zt_fuzz::text(input, 1200);
  const std::optional<std::string> forbidden =
      input.ConsumeBool() ? std::optional<std::string>(zt_fuzz::text(input, 32)) : std::nullopt;
  if (!ZTValidateLocalFileName(name) && name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
    std::abort();
  }
  (void)ZTValidateLocalFileNameWithForbiddenCharacters(name, forbidden);
  return 0;
}
