#pragma once
// Test helpers: a scratch folder, small file writers, a log capture, a scoped environment variable.
//
// A ScratchFolder is a fresh folder under $TMPDIR (else /tmp), removed with everything in it when
// the object goes away — also when the test fails (assertions return, exceptions unwind) and when
// a child process ends through std::exit (death-test children re-run the test body and so make
// folders of their own: every folder still alive when its creating process exits is removed
// then). Removal makes read-only or unsearchable subfolders writable first, so tests may take
// permissions away.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/log_and_environment.h"

namespace zt::test {

class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  // path() joined with a relative name.
  std::string operator/(std::string_view name) const;

 private:
  std::string path_;
};

// Ends a death-test child with status 0 when ok, else 1, through std::exit so that the child's
// scratch folders are removed.
[[noreturn]] void finishChildProcess(bool ok);

// Removes a folder tree, first giving its owner access to every subfolder. True when nothing is
// left.
bool removeTree(const std::string& path);

// Writes the bytes to the file, creating or truncating it; fails the test on error.
void writeFile(const std::string& path, std::string_view bytes);
void makeDirectory(const std::string& path);
bool exists(const std::string& path);
bool isRegularFile(const std::string& path);
std::size_t fileSize(const std::string& path);

}  // namespace zt::test
