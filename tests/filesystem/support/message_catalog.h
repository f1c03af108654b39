#pragma once
// Writes a gettext message catalogue (.mo) for tests of translated texts.

#include <map>
#include <string>

namespace zt::test {

// Writes <directory>/<language>/LC_MESSAGES/<domain>.mo holding the given translations (UTF-8).
void writeMessageCatalog(const std::string& directory, const std::string& language, const std::string& domain,
                         const std::map<std::string, std::string>& translations);

}  // namespace zt::test
