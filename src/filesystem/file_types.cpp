#include "zentrel/filesystem/file_types.h"

#include <array>
#include <utility>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/type_registry.h"
#include "filesystem/internal/unicode.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/platform/localization.h"

namespace {

using zt::fs_internal::TypeRegistry;

constexpr std::string_view kOctetStream = "application/octet-stream";

const zt::fs_internal::StringMap<std::string>& mimeFallbackTable() {
  static const zt::fs_internal::StringMap<std::string> table = {
      {"zip", "application/x-zip-compressed"},
      {"htm", "text/html"},
      {"html", "text/html"},
      {"mdl", "text/html"},
      {"txt", "text/plain"},
      {"gif", "image/gif"},
      {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},
      {"tiff", "image/tiff"},
      {"tif", "image/tiff"},
      {"bmp", "image/x-MS-bmp"},
      {"rtf", "application/rtf"},
      {"pdf", "application/pdf"},
      {"mpeg", "video/mpeg"},
      {"mpg", "video/mpeg"},
      {"mpe", "video/mpeg"},
      {"wav", "audio/x-wav"},
      {"mov", "video/quicktime"},
      {"m4v", "video/x-m4v"},
      {"3gp", "video/3gpp"},
  };
  return table;
}

// In order: the first row whose extensions hold the lower-cased extension gives the text.
constexpr std::array<std::pair<std::string_view, std::string_view>, 18> kReadableKinds = {{
    {"html", "HTML Document"},
    {"htm", "HTML Document"},
    {"zip", "ZIP archive"},
    {"jpg", "JPEG image"},
    {"jpeg", "JPEG image"},
    {"tif", "TIFF image"},
    {"tiff", "TIFF image"},
    {"png", "PNG image"},
    {"gif", "GIF image"},
    {"heif", "HEIF image"},
    {"heic", "HEIC image"},
    {"key", "Keynote presentation"},
    {"numbers", "Numbers sheet"},
    {"pages", "Pages document"},
    {"webarchive", "Web Archive"},
    {"guide", "Paperlane Guide"},
    {"zthelp", "Paperlane Help"},
    {"mov", "MOV video"},
}};

const zt::fs_internal::StringSet& packageExtensions() {
  static const zt::fs_internal::StringSet set = {"pages", "numbers", "key", "rtfd", "mpkg", "epub"};
  return set;
}

const char* identifierForTypeCode(std::int64_t type) {
  switch (type) {
    case ZTFileTypeImage:
      return "public.image";
    case ZTFileTypeMovie:
      return "public.movie";
    case ZTFileTypeAudio:
      return "public.audio";
    default:
      return nullptr;
  }
}

}  // namespace

namespace {

// The answer for a lower-case extension, worked out through the identifiers.
std::string mimeTypeThroughIdentifiers(const std::string& lower) {
  const TypeRegistry& registry = TypeRegistry::shared();
  if (std::optional<std::string> mimeType =
          registry.mimeTypeForIdentifier(registry.identifierForExtension(lower, false))) {
    return *mimeType;
  }
  const auto fallback = mimeFallbackTable().find(lower);
  if (fallback != mimeFallbackTable().end()) return fallback->second;
  return std::string(kOctetStream);
}

// The answers for every extension with a non-dynamic identifier, worked out once, so a lookup is
// one probe. Any other extension has a dynamic identifier without a MIME type: the fallback table
// answers it.
const zt::fs_internal::StringMap<std::string>& knownMimeTypes() {
  static const zt::fs_internal::StringMap<std::string> answers = [] {
    zt::fs_internal::StringMap<std::string> built;
    for (const std::string& extension : TypeRegistry::shared().knownExtensions()) {
      built.emplace(extension, mimeTypeThroughIdentifiers(extension));
    }
    return built;
  }();
  return answers;
}

}  // namespace

std::string ZTMimeTypeForFileExtension(std::string_view extension) {
  if (extension.empty()) return std::string(kOctetStream);
  const std::string lower = zt::fs_internal::lowercase(extension);
  const auto known = knownMimeTypes().find(lower);
  if (known != knownMimeTypes().end()) return known->second;
  const auto fallback = mimeFallbackTable().find(lower);
  if (fallback != mimeFallbackTable().end()) return fallback->second;
  return std::string(kOctetStream);
}

std::string ZTMimeTypeForFileAtPath(std::string_view path) {
  return ZTMimeTypeForFileExtension(zt::pathExtension(path));
}

std::optional<std::string> ZTUTIForFileExtension(std::string_view extension, bool isDirectory) {
  if (extension.empty()) {
    if (isDirectory) return std::string("public.folder");
    return std::nullopt;
  }
  std::string identifier =
      TypeRegistry::shared().identifierForExtension(zt::fs_internal::lowercase(extension), isDirectory);
  if (TypeRegistry::isDynamic(identifier)) return std::nullopt;
  return identifier;
}

std::optional<std::string> ZTUTIFromMimeType(std::string_view mimeType) {
  if (mimeType.empty()) return std::nullopt;
  return TypeRegistry::shared().identifierForMimeType(mimeType);
}

std::string ZTExtensionForMimeType(std::string_view mimeType) {
  const std::optional<std::string> identifier = ZTUTIFromMimeType(mimeType);
  if (!identifier) return {};
  return TypeRegistry::shared().preferredExtensionForIdentifier(*identifier).value_or(std::string());
}

bool ZTIsFileExtensionOfType(std::string_view extension, std::int64_t type) {
  const char* target = identifierForTypeCode(type);
  if (target == nullptr) return false;
  const std::optional<std::string> identifier = ZTUTIForFileExtension(zt::fs_internal::lowercase(extension), false);
  return identifier && TypeRegistry::shared().conformsTo(*identifier, target);
}

bool ZTIsFileAtPathOfType(std::string_view path, std::int64_t type) {
  return ZTIsFileExtensionOfType(zt::pathExtension(path), type);
}

bool ZTIsFileAtURLOfType(const ZTFileURL& url, std::int64_t type) {
  return url.isFileURL() && ZTIsFileAtPathOfType(url.path(), type);
}

std::string ZTPathExtensionToReadable(std::string_view extension) {
  if (extension.empty()) return ZTLocalizedString("Unknown file");
  const std::string lower = zt::fs_internal::lowercase(extension);
  for (const auto& [candidate, text] : kReadableKinds) {
    if (lower == candidate) return ZTLocalizedString(text);
  }
  return zt::fs_internal::uppercase(extension) + " " + ZTLocalizedString("Document");
}

bool ZTIsPackageFileExtension(std::string_view extension) {
  if (extension.empty()) return false;
  const std::string lower = zt::fs_internal::lowercase(extension);
  if (packageExtensions().count(lower) != 0) return true;
  const TypeRegistry& registry = TypeRegistry::shared();
  return registry.conformsTo(registry.identifierForExtension(lower, false), "com.apple.package");
}

bool ZTIsPackageFilePath(std::string_view path) {
  bool folder = false;
  if (zt::fs_internal::itemExists(path, folder) && !folder) return false;
  return ZTIsPackageFileExtension(zt::pathExtension(path));
}

bool ZTIsPackageFileURL(const ZTFileURL& url) { return url.isFileURL() && ZTIsPackageFilePath(url.path()); }

bool ZTIsPackageOrFilePath(std::string_view path) {
  bool folder = false;
  if (!zt::fs_internal::itemExists(path, folder) || !folder) return true;
  return ZTIsPackageFileExtension(zt::pathExtension(path));
}
