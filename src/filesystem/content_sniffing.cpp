#include "zentrel/filesystem/content_sniffing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/unicode.h"
#include "zentrel/filesystem/file_descriptor.h"
#include "zentrel/filesystem/path_strings.h"

namespace {

constexpr std::size_t kHeaderLength = 24;
constexpr std::size_t kSampleLength = 4096;

class ReadOnlyFile {
 public:
  // Only regular files are read: opening without blocking and checking the kind keeps a FIFO or a
  // device from stalling the caller.
  explicit ReadOnlyFile(std::string_view path)
      : fd_(zt::fs_internal::usablePath(path) ? ::open(std::string(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)
                                              : -1) {
    struct stat st {};
    if (fd_ && (::fstat(fd_.get(), &st) != 0 || !S_ISREG(st.st_mode))) fd_.reset();
  }

  bool isOpen() const { return static_cast<bool>(fd_); }
  // Reads up to `length` bytes (fewer at the end of the file); nullopt on a read error.
  std::optional<std::string> read(std::size_t length) {
    std::string buffer(length, '\0');
    std::size_t filled = 0;
    while (filled < length) {
      const ssize_t n = ::read(fd_.get(), buffer.data() + filled, length - filled);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return std::nullopt;
      if (n == 0) break;
      filled += static_cast<std::size_t>(n);
    }
    buffer.resize(filled);
    return buffer;
  }

 private:
  ZTFileDescriptor fd_;
};

bool isASCII(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::optional<std::string> header(std::string_view path) {
  ReadOnlyFile file(path);
  if (!file.isOpen()) return std::nullopt;
  return file.read(kHeaderLength);
}

}  // namespace

bool ZTIsPlainTextFileAtPath(std::string_view path) {
  ReadOnlyFile file(path);
  if (!file.isOpen()) return false;
  const std::optional<std::string> head = file.read(kHeaderLength);
  if (!head) return false;
  if (isASCII(*head)) {
    if (head->rfind("bplist", 0) == 0 || head->rfind("%PDF", 0) == 0) return false;
    if (head->find("<DOCTYPE") != std::string::npos) return false;
  }
  if (head->find('\0') != std::string::npos) return false;
  const std::optional<std::string> rest = file.read(kSampleLength - kHeaderLength);
  return rest && rest->find('\0') == std::string::npos;
}

std::optional<std::string> ZTFileExtensionUsingContentForFileAtPath(std::string_view path) {
  const std::optional<std::string> head = header(path);
  if (head && isASCII(*head) && head->rfind("%PDF", 0) == 0) return std::string("pdf");
  return std::nullopt;
}

std::string ZTFileNameWithContentCorrectedExtensionForFileAtPath(std::string_view path) {
  const std::string name = zt::lastPathComponent(path);
  if (zt::fs_internal::caseInsensitiveEqual(zt::pathExtension(name), "pdf")) return name;
  if (ZTFileExtensionUsingContentForFileAtPath(path) == std::optional<std::string>("pdf")) {
    return zt::stringBySettingPathExtension(name, "pdf", true);
  }
  return name;
}
