#include "filesystem/support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "zentrel/platform/log.h"

namespace zt::test {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && base[0] != '\0' ? base : "/tmp") + "/zt-fs-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    ADD_FAILURE() << "cannot create a temporary folder from " << pattern;
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  ASSERT_TRUE(out) << "cannot write " << path;
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(out.good()) << "cannot write " << path;
}

void makeDirectory(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  ASSERT_FALSE(error) << "cannot create " << path << ": " << error.message();
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

bool isRegularFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::size_t fileSize(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? static_cast<std::size_t>(st.st_size) : 0;
}

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
  if (value != nullptr) {
    ::setenv(name, value, 1);
  } else {
    ::unsetenv(name);
  }
}

ScopedEnvironment::~ScopedEnvironment() {
  if (hadValue_) {
    ::setenv(name_.c_str(), oldValue_.c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

}  // namespace zt::test
