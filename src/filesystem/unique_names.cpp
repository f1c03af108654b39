#include "zentrel/filesystem/unique_names.h"

#include <unicode/unistr.h>

#include <climits>
#include <cstdio>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/temporary_folder.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/platform/exceptions.h"

namespace {

// Reads a 32-bit integer the classic way: leading blanks skipped, optional sign, digits up to the
// first other character; 0 when there are none; clamped to the 32-bit range.
std::int32_t intValue(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  std::int64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > static_cast<std::int64_t>(INT_MAX) + 1) value = static_cast<std::int64_t>(INT_MAX) + 1;
  }
  if (negative) value = -value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<std::int32_t>(value);
}

std::string withExtension(std::string candidate, const std::string& extension) {
  if (!extension.empty()) {
    candidate.push_back('.');
    candidate.append(extension);
  }
  return candidate;
}

}  // namespace

std::string ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock(
    const std::string& name, const std::any& parent, bool isDirectory, const std::optional<std::string>& separator,
    const std::optional<std::string>& suffix, std::int64_t startNumber, const ZTCanCreateItemBlock& canCreate) {
  if (!canCreate) {
    throw ZTInternalInconsistencyException(
        "ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock needs a handler that says which names can be created");
  }
  if (canCreate(name, parent)) return name;

  std::string stem = name;
  std::string extension;
  if (!isDirectory) {
    extension = zt::pathExtension(name);
    if (!extension.empty()) stem = zt::stringByDeletingPathExtension(name);
  }
  const std::string separatorText = separator ? *separator : std::string("(null)");
  std::uint64_t counter = static_cast<std::uint64_t>(startNumber);

  if (suffix) {
    stem += separatorText + *suffix;
    const std::string candidate = withExtension(stem, extension);
    if (canCreate(candidate, parent)) return candidate;
  } else if (separator && !separator->empty()) {
    const icu::UnicodeString unicodeStem = icu::UnicodeString::fromUTF8(stem);
    const icu::UnicodeString unicodeSeparator = icu::UnicodeString::fromUTF8(*separator);
    const int32_t at = unicodeStem.lastIndexOf(unicodeSeparator);
    if (at >= 0) {
      // The tail starts one UTF-16 unit after the separator's start, whatever its length.
      std::string tail;
      unicodeStem.tempSubString(at + 1).toUTF8String(tail);
      const std::int32_t number = intValue(tail);
      char formatted[16];
      std::snprintf(formatted, sizeof formatted, "%d", number);
      if (tail == formatted) {
        std::string head;
        unicodeStem.tempSubString(0, at).toUTF8String(head);
        stem = std::move(head);
        counter = static_cast<std::uint64_t>(static_cast<std::int64_t>(number) + 1);
      }
    }
  }

  for (;; ++counter) {
    std::string candidate = stem + separatorText + std::to_string(counter);
    candidate = withExtension(std::move(candidate), extension);
    if (canCreate(candidate, parent)) return candidate;
  }
}

std::string ZTGenerateUniquePathUsingItemExistsBlock(const std::string& path, bool isDirectory,
                                                     const std::optional<std::string>& separator,
                                                     const std::optional<std::string>& suffix, std::int64_t startNumber,
                                                     const ZTItemExistsBlock& itemExists) {
  if (!itemExists) {
    throw ZTInternalInconsistencyException(
        "ZTGenerateUniquePathUsingItemExistsBlock needs a handler that says whether an item exists");
  }
  const std::string parentPath = zt::stringByDeletingLastPathComponent(path);
  const std::string name = zt::lastPathComponent(path);
  const std::string chosen = ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock(
      name, std::any(parentPath), isDirectory, separator, suffix, startNumber,
      [&itemExists](const std::string& candidate, const std::any& parent) {
        return !itemExists(zt::stringByAppendingPathComponent(std::any_cast<const std::string&>(parent), candidate));
      });
  return zt::stringByAppendingPathComponent(parentPath, chosen);
}

std::string ZTGenerateUniquePath(const std::string& path, bool isDirectory, const std::optional<std::string>& separator,
                                 const std::optional<std::string>& suffix, std::int64_t startNumber) {
  static const ZTItemExistsBlock kItemExists = [](const std::string& candidate) {
    return zt::fs_internal::itemExists(candidate);
  };
  return ZTGenerateUniquePathUsingItemExistsBlock(path, isDirectory, separator, suffix, startNumber, kItemExists);
}

std::string ZTGenerateMacStyleUniquePath(const std::string& path, bool isDirectory) {
  return ZTGenerateUniquePath(path, isDirectory, std::string("-"), std::nullopt, 1);
}

std::optional<std::string> ZTGenerateTempFilePath(std::string_view fileName) {
  namespace fsi = zt::fs_internal;
  if (!fileName.empty() && !fsi::isSingleName(fileName)) return std::nullopt;
  std::optional<fsi::OpenFolder> folder = fsi::openPrivateTemporaryFolder(fsi::processEnvironment(), nullptr);
  if (!folder) return std::nullopt;
  const std::string stem = zt::stringByDeletingPathExtension(fileName);
  std::string name;
  ZTFileDescriptor reservation = fsi::createUniqueFile(folder->descriptor.get(), stem + "-", "", name);
  if (!reservation) return std::nullopt;
  // Kept open on purpose: the open file reserves the name for this process, as the classic
  // contract says.
  [[maybe_unused]] const int kept = reservation.release();
  return zt::stringByAppendingPathComponent(folder->path, name) + "." + zt::pathExtension(fileName);
}
