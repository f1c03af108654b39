#pragma once
// Test helpers for file tests: a fresh folder under $TMPDIR (else /tmp) or another base, removed
// with everything in it when the object goes away (read-only subfolders are opened up first).

#include <string>
#include <string_view>

namespace zt::test {

class TemporaryFolder {
 public:
  explicit TemporaryFolder(std::string base = {});
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

void writeBytes(const std::string& path, std::string_view bytes);
std::string readBytes(const std::string& path);
bool pathExists(const std::string& path);  // links not followed
// Whether the process is exempt from permission checks (root), where denied-access cases cannot
// be staged.
bool permissionChecksBypassed();

}  // namespace zt::test
