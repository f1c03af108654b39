#include "filesystem/internal/type_registry.h"

#include <algorithm>
#include <deque>
#include <initializer_list>

namespace zt::fs_internal {

namespace {

struct WellKnownType {
  const char* identifier;
  const char* mimeType;            // "" when none
  const char* preferredExtension;  // "" when none
  std::initializer_list<const char*> extensions;
  std::initializer_list<const char*> parents;
};

// clang-format off
const WellKnownType kWellKnownTypes[] = {
  {"public.item", "", "", {}, {}},
  {"public.content", "", "", {}, {}},
  {"public.data", "", "", {}, {"public.item"}},
  {"public.composite-content", "", "", {}, {"public.content"}},
  {"public.directory", "", "", {}, {"public.item"}},
  {"public.folder", "inode/directory", "", {}, {"public.directory"}},
  {"com.apple.package", "", "", {}, {"public.directory"}},
  {"com.apple.bundle", "", "bundle", {"bundle"}, {"public.directory"}},
  {"com.apple.application-bundle", "", "app", {"app"}, {"com.apple.bundle", "com.apple.package"}},
  {"com.apple.framework", "", "framework", {"framework"}, {"com.apple.bundle"}},
  {"com.apple.plugin", "", "plugin", {"plugin"}, {"com.apple.bundle", "com.apple.package"}},
  {"com.apple.rtfd", "", "rtfd", {"rtfd"}, {"com.apple.package", "public.composite-content"}},
  {"public.text", "", "", {}, {"public.data", "public.content"}},
  {"public.plain-text", "text/plain", "txt", {"txt", "text"}, {"public.text"}},
  {"public.html", "text/html", "html", {"html", "htm"}, {"public.text"}},
  {"public.xml", "application/xml", "xml", {"xml"}, {"public.text"}},
  {"public.json", "application/json", "json", {"json"}, {"public.text"}},
  {"public.rtf", "application/rtf", "rtf", {"rtf"}, {"public.text"}},
  {"public.image", "", "", {}, {"public.data", "public.content"}},
  {"public.jpeg", "image/jpeg", "jpeg", {"jpeg", "jpg", "jpe"}, {"public.image"}},
  {"public.png", "image/png", "png", {"png"}, {"public.image"}},
  {"com.compuserve.gif", "image/gif", "gif", {"gif"}, {"public.image"}},
  {"public.tiff", "image/tiff", "tiff", {"tiff", "tif"}, {"public.image"}},
  {"com.microsoft.bmp", "image/bmp", "bmp", {"bmp"}, {"public.image"}},
  {"public.heic", "image/heic", "heic", {"heic"}, {"public.image"}},
  {"public.heif", "image/heif", "heif", {"heif"}, {"public.image"}},
  {"public.svg-image", "image/svg+xml", "svg", {"svg"}, {"public.image"}},
  {"org.webmproject.webp", "image/webp", "webp", {"webp"}, {"public.image"}},
  {"public.audiovisual-content", "", "", {}, {"public.data", "public.content"}},
  {"public.movie", "", "", {}, {"public.audiovisual-content"}},
  {"public.mpeg", "video/mpeg", "mpg", {"mpeg", "mpg", "mpe"}, {"public.movie"}},
  {"public.mpeg-4", "video/mp4", "mp4", {"mp4"}, {"public.movie"}},
  {"com.apple.quicktime-movie", "video/quicktime", "mov", {"mov", "qt"}, {"public.movie"}},
  {"com.apple.m4v-video", "video/x-m4v", "m4v", {"m4v"}, {"public.movie"}},
  {"public.3gpp", "video/3gpp", "3gp", {"3gp"}, {"public.movie"}},
  {"public.avi", "video/x-msvideo", "avi", {"avi"}, {"public.movie"}},
  {"public.audio", "", "", {}, {"public.audiovisual-content"}},
  {"public.mp3", "audio/mpeg", "mp3", {"mp3"}, {"public.audio"}},
  {"public.mpeg-4-audio", "audio/mp4", "m4a", {"m4a"}, {"public.audio"}},
  {"com.microsoft.waveform-audio", "audio/x-wav", "wav", {"wav"}, {"public.audio"}},
  {"public.aiff-audio", "audio/x-aiff", "aiff", {"aiff", "aif"}, {"public.audio"}},
  {"com.adobe.pdf", "application/pdf", "pdf", {"pdf"}, {"public.data", "public.composite-content"}},
  {"public.archive", "", "", {}, {"public.data"}},
  {"public.zip-archive", "application/zip", "zip", {"zip"}, {"public.archive"}},
  {"org.gnu.gnu-zip-archive", "application/gzip", "gz", {"gz"}, {"public.archive"}},
  {"com.apple.webarchive", "application/x-webarchive", "webarchive", {"webarchive"},
   {"public.data", "public.composite-content"}},
  {"org.idpf.epub-container", "application/epub+zip", "epub", {"epub"},
   {"public.zip-archive", "public.composite-content"}},
};
// clang-format on

constexpr std::string_view kFreedesktopPrefix = "org.freedesktop.mime.";
constexpr std::string_view kDynamicExtensionPrefix = "dyn.e";
constexpr std::string_view kDynamicMimePrefix = "dyn.m";
constexpr char kBase32[] = "abcdefghijklmnopqrstuvwxyz234567";

std::string base32(std::string_view bytes) {
  std::string out;
  unsigned buffer = 0;
  int bits = 0;
  for (unsigned char c : bytes) {
    buffer = (buffer << 8) | c;
    bits += 8;
    while (bits >= 5) {
      out.push_back(kBase32[(buffer >> (bits - 5)) & 31]);
      bits -= 5;
    }
  }
  if (bits > 0) out.push_back(kBase32[(buffer << (5 - bits)) & 31]);
  return out;
}

std::optional<std::string> fromBase32(std::string_view text) {
  std::string out;
  unsigned buffer = 0;
  int bits = 0;
  for (char c : text) {
    const char* at = std::char_traits<char>::find(kBase32, 32, c);
    if (at == nullptr) return std::nullopt;
    buffer = (buffer << 5) | static_cast<unsigned>(at - kBase32);
    bits += 5;
    if (bits >= 8) {
      out.push_back(static_cast<char>((buffer >> (bits - 8)) & 0xFF));
      bits -= 8;
    }
  }
  return out;
}

struct Table {
  StringMap<const WellKnownType*> byIdentifier;
  FoldedMap<const WellKnownType*> byMimeType;
  StringMap<std::vector<const WellKnownType*>> byExtension;
};

const Table& table() {
  static const Table built = [] {
    Table t;
    for (const WellKnownType& type : kWellKnownTypes) {
      t.byIdentifier.emplace(type.identifier, &type);
      if (type.mimeType[0] != '\0') t.byMimeType.emplace(type.mimeType, &type);
      for (const char* extension : type.extensions) t.byExtension[extension].push_back(&type);
    }
    return t;
  }();
  return built;
}

const WellKnownType* wellKnown(std::string_view identifier) {
  const auto it = table().byIdentifier.find(identifier);
  return it == table().byIdentifier.end() ? nullptr : it->second;
}

}  // namespace

const TypeRegistry& TypeRegistry::shared() {
  static const TypeRegistry registry(MimeDatabase::shared());
  return registry;
}

TypeRegistry::TypeRegistry(const MimeDatabase& database) : database_(database) {
  for (const WellKnownType& type : kWellKnownTypes) {
    StringSet ancestors;
    std::deque<std::string> pending{type.identifier};
    while (!pending.empty()) {
      const std::string current = std::move(pending.front());
      pending.pop_front();
      for (std::string& parent : parentsOf(current)) {
        if (parent != type.identifier && ancestors.insert(parent).second) pending.push_back(std::move(parent));
      }
    }
    wellKnownAncestors_.emplace(type.identifier, std::move(ancestors));
  }
}

std::vector<std::string> TypeRegistry::knownExtensions() const {
  std::vector<std::string> extensions;
  for (const auto& entry : table().byExtension) extensions.push_back(entry.first);
  database_.forEachExtension([&extensions](const std::string& extension) {
    if (std::none_of(extension.begin(), extension.end(), [](char c) { return c >= 'A' && c <= 'Z'; })) {
      extensions.push_back(extension);
    }
  });
  return extensions;
}

bool TypeRegistry::isDynamic(std::string_view identifier) { return identifier.substr(0, 4) == "dyn."; }

std::string TypeRegistry::identifierForExtension(std::string_view lowercaseExtension, bool mustBeDirectory) const {
  const auto known = table().byExtension.find(lowercaseExtension);
  if (known != table().byExtension.end()) {
    for (const WellKnownType* type : known->second) {
      if (!mustBeDirectory || conformsTo(type->identifier, "public.directory")) return type->identifier;
    }
  }
  if (const std::string* mimeType = database_.mimeTypeForExtension(lowercaseExtension)) {
    std::string identifier = identifierForMimeType(*mimeType);
    if (!mustBeDirectory || conformsTo(identifier, "public.directory")) return identifier;
  }
  return std::string(kDynamicExtensionPrefix) + base32(lowercaseExtension);
}

std::string TypeRegistry::identifierForMimeType(std::string_view mimeType) const {
  if (mimeType.empty()) return {};
  const std::string canonical = database_.canonicalName(mimeType);  // the database's spelling
  const auto known = table().byMimeType.find(canonical);
  if (known != table().byMimeType.end()) return known->second->identifier;
  const std::size_t slash = canonical.find('/');
  if (database_.isKnown(canonical) && slash != std::string::npos && canonical.find('.') > slash) {
    std::string identifier(kFreedesktopPrefix);
    identifier += canonical;
    identifier[kFreedesktopPrefix.size() + slash] = '.';
    return identifier;
  }
  return std::string(kDynamicMimePrefix) + base32(MimeDatabase::foldedName(canonical));
}

std::optional<std::string> TypeRegistry::mimeTypeForIdentifier(std::string_view identifier) const {
  if (const WellKnownType* type = wellKnown(identifier)) {
    if (type->mimeType[0] == '\0') return std::nullopt;
    return std::string(type->mimeType);
  }
  if (identifier.substr(0, kFreedesktopPrefix.size()) == kFreedesktopPrefix) {
    std::string mimeType(identifier.substr(kFreedesktopPrefix.size()));
    const std::size_t dot = mimeType.find('.');
    if (dot == std::string::npos) return std::nullopt;
    mimeType[dot] = '/';
    return mimeType;
  }
  if (identifier.substr(0, kDynamicMimePrefix.size()) == kDynamicMimePrefix) {
    return fromBase32(identifier.substr(kDynamicMimePrefix.size()));
  }
  return std::nullopt;
}

std::optional<std::string> TypeRegistry::preferredExtensionForIdentifier(std::string_view identifier) const {
  if (const WellKnownType* type = wellKnown(identifier); type != nullptr && type->preferredExtension[0] != '\0') {
    return std::string(type->preferredExtension);
  }
  if (identifier.substr(0, kDynamicExtensionPrefix.size()) == kDynamicExtensionPrefix) {
    return fromBase32(identifier.substr(kDynamicExtensionPrefix.size()));
  }
  if (const std::optional<std::string> mimeType = mimeTypeForIdentifier(identifier)) {
    if (const std::string* extension = database_.preferredExtension(*mimeType)) return *extension;
  }
  return std::nullopt;
}

std::vector<std::string> TypeRegistry::parentsOf(const std::string& identifier) const {
  std::vector<std::string> parents;
  if (const WellKnownType* type = wellKnown(identifier)) {
    for (const char* parent : type->parents) parents.emplace_back(parent);
  }
  if (identifier.substr(0, kDynamicExtensionPrefix.size()) == kDynamicExtensionPrefix) {
    parents.emplace_back("public.data");
    return parents;
  }
  const std::optional<std::string> mimeType = mimeTypeForIdentifier(identifier);
  if (!mimeType) return parents;
  for (const std::string& parent : database_.parents(*mimeType)) parents.push_back(identifierForMimeType(parent));
  const FoldedEqual same;
  const std::string_view media = std::string_view(*mimeType).substr(0, mimeType->find('/'));
  if (same(media, "image")) parents.emplace_back("public.image");
  if (same(media, "video")) parents.emplace_back("public.movie");
  if (same(media, "audio")) parents.emplace_back("public.audio");
  if (same(media, "text")) {
    parents.emplace_back("public.text");
    if (!same(*mimeType, "text/plain")) parents.emplace_back("public.plain-text");
  }
  if (same(*mimeType, "inode/directory")) {
    parents.emplace_back("public.folder");
  } else if (!same(media, "inode")) {
    parents.emplace_back("public.data");
  }
  return parents;
}

bool TypeRegistry::conformsTo(std::string_view identifier, std::string_view target) const {
  if (identifier.empty() || target.empty()) return false;
  if (identifier == target) return true;
  const auto known = wellKnownAncestors_.find(identifier);
  if (known != wellKnownAncestors_.end()) return known->second.count(target) != 0;
  return searchAncestors(identifier, target);
}

bool TypeRegistry::searchAncestors(std::string_view identifier, std::string_view target) const {
  StringSet seen;
  std::deque<std::string> pending{std::string(identifier)};
  seen.emplace(identifier);
  while (!pending.empty()) {
    const std::string current = std::move(pending.front());
    pending.pop_front();
    for (std::string& parent : parentsOf(current)) {
      if (parent == target) return true;
      const auto known = wellKnownAncestors_.find(parent);
      if (known != wellKnownAncestors_.end()) {
        if (known->second.count(target) != 0) return true;
        continue;  // its ancestors are all in the set just checked
      }
      if (seen.insert(parent).second) pending.push_back(std::move(parent));
    }
  }
  return false;
}

}  // namespace zt::fs_internal
