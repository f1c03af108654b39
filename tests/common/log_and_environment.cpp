#include "common/log_and_environment.h"

#include <cstdlib>
#include <string_view>

#include "zentrel/platform/log.h"

namespace zt::test {

LogCapture::LogCapture() : state_(std::make_shared<State>()) {
  ZTSetLogSink([state = state_](std::string_view line) {
    ZTLockGuard lock(state->mutex);
    state->lines.emplace_back(line);
  });
}

LogCapture::~LogCapture() { ZTSetLogSink({}); }

std::vector<std::string> LogCapture::lines() const {
  ZTLockGuard lock(state_->mutex);
  return state_->lines;
}

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value) : name_(name) {
  if (const char* old = std::getenv(name)) {
    hadValue_ = true;
    oldValue_ = old;
  }
  if (value != nullptr) ::setenv(name, value, 1);
  else ::unsetenv(name);
}

ScopedEnvironment::~ScopedEnvironment() {
  if (hadValue_) ::setenv(name_.c_str(), oldValue_.c_str(), 1);
  else ::unsetenv(name_.c_str());
}

}  // namespace zt::test
