// The crash guard's log files as found on disk: arbitrary bytes read as a property list. Whatever
// is read back as a dictionary writes out and reads back as an equal dictionary.
#include <cstdlib>

#include "crashguard/internal/plist_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> bytes(data, data + size);
  const std::optional<ZTValueDictionary> dictionary = zt::crashguard_internal::dictionaryFromPropertyList(bytes);
  if (!dictionary) return 0;
  const std::string xml = zt::crashguard_internal::xmlPropertyList(*dictionary);
  const std::optional<ZTValueDictionary> again =
      zt::crashguard_internal::dictionaryFromPropertyList(std::vector<char>(xml.begin(), xml.end()));
  if (!again) std::abort();
  return 0;
}
