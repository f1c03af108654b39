#include "crashguard/internal/plist_file.h"

#include <errno.h>
#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

namespace zt::crashguard_internal {

namespace {

constexpr int kMaximumNesting = 64;

struct PlistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

struct FreeDeleter {
  void operator()(char* p) const { std::free(p); }
};

std::string parentOf(const std::string& path) {
  const auto slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

ZTValue valueFromNode(plist_t node, int depth, bool& ok);

ZTValueDictionary dictionaryFromNode(plist_t node, int depth, bool& ok) {
  ZTValueDictionary result;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  if (!iterator) return result;
  // The iterator stops with a null key after the last item; the dictionary's size bounds the loop.
  const std::uint32_t count = plist_dict_get_size(node);
  for (std::uint32_t i = 0; i < count; ++i) {
    char* rawKey = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &rawKey, &item);
    std::unique_ptr<char, FreeDeleter> key(rawKey);
    if (!key || !item) break;
    ZTValue value = valueFromNode(item, depth + 1, ok);
    if (!ok) break;
    result.insert_or_assign(std::string(key.get()), std::move(value));
  }
  std::free(iterator);
  return result;
}

ZTValue valueFromNode(plist_t node, int depth, bool& ok) {
  if (depth > kMaximumNesting) {
    ok = false;
    return {};
  }
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t v = 0;
      plist_get_bool_val(node, &v);
      return ZTValue(v != 0);
    }
    case PLIST_UINT: {
      std::uint64_t v = 0;
      plist_get_uint_val(node, &v);
      return ZTValue(v);
    }
    case PLIST_REAL: {
      double v = 0;
      plist_get_real_val(node, &v);
      return ZTValue(v);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
      char* raw = nullptr;
      plist_get_string_val(node, &raw);
      std::unique_ptr<char, FreeDeleter> text(raw);
      return ZTValue(std::string(text ? text.get() : ""));
    }
    case PLIST_DATA: {
      char* raw = nullptr;
      std::uint64_t length = 0;
      plist_get_data_val(node, &raw, &length);
      std::unique_ptr<char, FreeDeleter> data(raw);
      const auto* bytes = reinterpret_cast<const std::uint8_t*>(data.get());
      return ZTValue(ZTBytes(bytes, bytes + (data ? length : 0)));
    }
    case PLIST_DATE: {
      std::int32_t seconds = 0, microseconds = 0;
      plist_get_date_val(node, &seconds, &microseconds);
      return ZTValue(ZTDate(static_cast<double>(seconds) + microseconds / 1e6));
    }
    case PLIST_ARRAY: {
      ZTValueArray items;
      const std::uint32_t count = plist_array_get_size(node);
      for (std::uint32_t i = 0; i < count && ok; ++i) items.push_back(valueFromNode(plist_array_get_item(node, i), depth + 1, ok));
      return ZTValue(std::move(items));
    }
    case PLIST_DICT: return ZTValue(dictionaryFromNode(node, depth, ok));
    default: return {};
  }
}

plist_t nodeFromValue(const ZTValue& value) {
  switch (value.type()) {
    case ZTValue::Type::Null: return plist_new_string("");
    case ZTValue::Type::Bool: return plist_new_bool(*value.getIf<bool>() ? 1 : 0);
    case ZTValue::Type::Int: return plist_new_uint(static_cast<std::uint64_t>(*value.getIf<std::int64_t>()));
    case ZTValue::Type::UInt: return plist_new_uint(*value.getIf<std::uint64_t>());
    case ZTValue::Type::Double: return plist_new_real(*value.getIf<double>());
    case ZTValue::Type::String: return plist_new_string(value.getIf<std::string>()->c_str());
    case ZTValue::Type::Bytes: {
      const ZTBytes& bytes = *value.getIf<ZTBytes>();
      return plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    case ZTValue::Type::Date: {
      const double seconds = value.getIf<ZTDate>()->timeIntervalSinceReferenceDate();
      const double whole = std::floor(seconds);
      return plist_new_date(static_cast<std::int32_t>(whole), static_cast<std::int32_t>((seconds - whole) * 1e6));
    }
    case ZTValue::Type::Array: {
      plist_t array = plist_new_array();
      for (const ZTValue& item : *value.getIf<ZTValueArray>()) plist_array_append_item(array, nodeFromValue(item));
      return array;
    }
    case ZTValue::Type::Dictionary: {
      plist_t dictionary = plist_new_dict();
      for (const auto& [key, item] : *value.getIf<ZTValueDictionary>()) {
        plist_dict_set_item(dictionary, key.c_str(), nodeFromValue(item));
      }
      return dictionary;
    }
  }
  return plist_new_string("");
}

bool fail(ZTError* error, int errnoValue, const std::string& path) {
  ZTSetError(error, ZTError::posix(errnoValue, path));
  return false;
}

bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

std::optional<std::vector<char>> readWholeFile(const std::string& path, ZTError* error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    fail(error, errno, path);
    return std::nullopt;
  }
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    fail(error, errno, path);
    return std::nullopt;
  }
  if (!S_ISREG(st.st_mode)) {
    fail(error, EINVAL, path);
    return std::nullopt;
  }
  if (static_cast<std::uint64_t>(st.st_size) > kMaximumFileSize) {
    fail(error, EFBIG, path);
    return std::nullopt;
  }
  std::vector<char> bytes;
  bytes.reserve(static_cast<std::size_t>(st.st_size));
  char buffer[16384];
  while (true) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      fail(error, errno, path);
      return std::nullopt;
    }
    if (got == 0) break;
    if (bytes.size() + static_cast<std::size_t>(got) > kMaximumFileSize) {
      fail(error, EFBIG, path);
      return std::nullopt;
    }
    bytes.insert(bytes.end(), buffer, buffer + got);
  }
  return bytes;
}

std::optional<ZTValueDictionary> dictionaryFromPropertyList(const std::vector<char>& bytes) {
  if (bytes.empty() || bytes.size() > kMaximumFileSize) return std::nullopt;
  // libplist keeps NUL bytes inside keys and strings (raw in XML text, or in a binary list) and then
  // aborts the process (an assertion) when asked for such a text. XML forbids the character, so a
  // list is read through its XML form, and one whose XML form holds a NUL byte is malformed.
  std::string xml;
  if (plist_is_binary(bytes.data(), static_cast<std::uint32_t>(bytes.size()))) {
    plist_t binaryRoot = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &binaryRoot);
    const PlistPtr binary(binaryRoot);
    if (!binary) return std::nullopt;
    char* text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(binary.get(), &text, &length);
    if (!text) return std::nullopt;
    xml.assign(text, length);
    plist_to_xml_free(text);
  } else {
    xml.assign(bytes.data(), bytes.size());
  }
  if (xml.find('\0') != std::string::npos) return std::nullopt;
  plist_t raw = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &raw);
  PlistPtr root(raw);
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
  bool ok = true;
  ZTValueDictionary dictionary = dictionaryFromNode(root.get(), 0, ok);
  if (!ok) return std::nullopt;
  return dictionary;
}

std::string xmlPropertyList(const ZTValueDictionary& dictionary) {
  PlistPtr root(nodeFromValue(ZTValue(dictionary)));
  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &xml, &length);
  std::string text(xml ? xml : "", xml ? length : 0);
  if (xml) plist_to_xml_free(xml);
  return text;
}

bool fileExists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

bool createDirectories(const std::string& path, ZTError* error) {
  std::error_code code;
  std::filesystem::create_directories(path, code);
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
  return fail(error, code ? code.value() : ENOTDIR, path);
}

bool removeTree(const std::string& path, ZTError* error) {
  std::error_code code;
  std::filesystem::remove_all(path, code);
  if (code && code.value() != ENOENT) return fail(error, code.value(), path);
  return true;
}

bool removeFile(const std::string& path, ZTError* error) {
  if (::unlink(path.c_str()) != 0) return fail(error, errno, path);
  return true;
}

bool writeFileAtomically(const std::string& path, const std::string& bytes, ZTError* error) {
  const std::string folder = parentOf(path);
  struct stat st {};
  if (::stat(folder.c_str(), &st) != 0) {
    std::error_code code;
    std::filesystem::create_directories(folder, code);
    if (!code) ::chmod(folder.c_str(), 0700);
  }
  std::string temporary = path + ".XXXXXX";
  const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return fail(error, errno, path);
  const bool written = writeAll(fd, bytes.data(), bytes.size()) && ::fsync(fd) == 0;
  const int writeErrno = errno;
  if (::close(fd) != 0 || !written) {
    ::unlink(temporary.c_str());
    return fail(error, written ? errno : writeErrno, path);
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    const int renameErrno = errno;
    ::unlink(temporary.c_str());
    return fail(error, renameErrno, path);
  }
  const int folderFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folderFd >= 0) {
    ::fsync(folderFd);
    ::close(folderFd);
  }
  return true;
}

}  // namespace zt::crashguard_internal
