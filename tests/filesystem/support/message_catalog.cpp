#include "filesystem/support/message_catalog.h"

#include <cstdint>
#include <vector>

#include "filesystem/support/scratch_folder.h"

namespace zt::test {

namespace {
void put32(std::string& out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}
}  // namespace

void writeMessageCatalog(const std::string& directory, const std::string& language, const std::string& domain,
                         const std::map<std::string, std::string>& translations) {
  std::map<std::string, std::string> entries = translations;  // sorted by message id, as gettext searches
  entries[""] = "Content-Type: text/plain; charset=UTF-8\n";
  const auto count = static_cast<std::uint32_t>(entries.size());
  const std::uint32_t originalsTable = 28;
  const std::uint32_t translationsTable = originalsTable + 8 * count;
  std::uint32_t data = translationsTable + 8 * count;

  std::string header;
  put32(header, 0x950412de);
  put32(header, 0);
  put32(header, count);
  put32(header, originalsTable);
  put32(header, translationsTable);
  put32(header, 0);  // no hash table
  put32(header, data);
  std::string originals, translated, strings;
  for (const auto& [id, text] : entries) {
    put32(originals, static_cast<std::uint32_t>(id.size()));
    put32(originals, data + static_cast<std::uint32_t>(strings.size()));
    strings += id;
    strings.push_back('\0');
  }
  for (const auto& [id, text] : entries) {
    put32(translated, static_cast<std::uint32_t>(text.size()));
    put32(translated, data + static_cast<std::uint32_t>(strings.size()));
    strings += text;
    strings.push_back('\0');
  }
  const std::string folder = directory + "/" + language + "/LC_MESSAGES";
  makeDirectory(folder);
  writeFile(folder + "/" + domain + ".mo", header + originals + translated + strings);
}

}  // namespace zt::test
