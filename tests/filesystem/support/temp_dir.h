#pragma once
// Test helpers: a fresh folder under the system temporary folder, removed with everything in it
// when the object goes away; small file writers; a log capture.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

namespace zt::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() joined with a relative name.
  std::string operator/(std::string_view name) const;

 private:
  std::string path_;
};

// Writes the bytes to the file, creating or truncating it; fails the test on error.
void writeFile(const std::string& path, std::string_view bytes);
void makeDirectory(const std::string& path);
bool exists(const std::string& path);
bool isRegularFile(const std::string& path);
std::size_t fileSize(const std::string& path);

// Routes ZTLog to memory while alive; restores the default sink afterwards.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<std::string> lines() const;

 private:
  struct State {
    mutable ZTMutex mutex;
    std::vector<std::string> lines ZT_GUARDED_BY(mutex);
  };
  std::shared_ptr<State> state_;
};

// Sets an environment variable for the life of the object, then restores the old value.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const char* value);  // nullptr unsets
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  bool hadValue_ = false;
  std::string oldValue_;
};

}  // namespace zt::test
