#pragma once
// Uniform type identifiers on top of the MIME database.
//
// Identifiers come in three forms:
//  - well-known identifiers from a fixed table ("public.jpeg", "public.folder", "com.adobe.pdf",
//    "com.apple.package"...), each with its MIME type, preferred extension and parents;
//  - "org.freedesktop.mime.<media>.<subtype>" for a MIME type the database knows and the table
//    does not ("org.freedesktop.mime.application.vnd.oasis.opendocument.text");
//  - dynamic identifiers for what neither knows: "dyn.e" + base32 of an extension, "dyn.m" +
//    base32 of a MIME type.
// Conformance follows the table's parents and the MIME hierarchy: the database's subclasses,
// image/*, video/*, audio/* and text/* to public.image, public.movie, public.audio and
// public.text, text/* to text/plain, inode/directory to public.folder, any other type to
// public.data.
//
// Stateless apart from the shared MIME database and the table, both built once; any thread.

#include <optional>
#include <string>
#include <string_view>

#include "filesystem/internal/mime_database.h"

namespace zt::fs_internal {

class TypeRegistry {
 public:
  static const TypeRegistry& shared();
  explicit TypeRegistry(const MimeDatabase& database);

  // The preferred identifier of a lower-case extension; with mustBeDirectory only identifiers that
  // conform to public.directory count (others give a dynamic identifier).
  std::string identifierForExtension(std::string_view lowercaseExtension, bool mustBeDirectory) const;
  // The preferred identifier of a MIME type, compared ignoring case; empty for an empty type.
  std::string identifierForMimeType(std::string_view mimeType) const;
  std::optional<std::string> mimeTypeForIdentifier(std::string_view identifier) const;
  std::optional<std::string> preferredExtensionForIdentifier(std::string_view identifier) const;
  bool conformsTo(std::string_view identifier, std::string_view target) const;
  // Every extension the table or the database knows (lower-case ones only for the case-sensitive
  // globs, as lookups are by lower-case extension): all others get a dynamic identifier.
  std::vector<std::string> knownExtensions() const;
  static bool isDynamic(std::string_view identifier);

 private:
  std::vector<std::string> parentsOf(const std::string& identifier) const;
  bool searchAncestors(std::string_view identifier, std::string_view target) const;

  const MimeDatabase& database_;
  // Every ancestor of each well-known identifier, computed once, so that the common conformance
  // questions are one hash probe.
  StringMap<StringSet> wellKnownAncestors_;
};

}  // namespace zt::fs_internal
