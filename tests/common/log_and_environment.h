#pragma once
// Test helpers every test binary has: a capture of the library's log lines and a scoped
// environment variable.

#include <memory>
#include <string>
#include <vector>

#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

namespace zt::test {

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
