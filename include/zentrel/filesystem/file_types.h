#pragma once
// File types: extensions, MIME types, uniform type identifiers, readable kind names and packages.
//
// MIME knowledge comes from the freedesktop shared-mime-info database, read once per process on
// first use (later lookups never touch the disk). Type identifiers are the classic vocabulary
// ("public.jpeg", "public.image", "public.folder", "com.adobe.pdf", "com.apple.package"...); types
// the database knows but the vocabulary does not are named "org.freedesktop.mime.<media>.<sub>",
// and what neither knows gets a dynamic identifier starting with "dyn.". Conformance ("is a JPEG
// an image?") follows the MIME hierarchy: image/*, video/*, audio/*, inode/directory and the
// database's subclasses.
//
// Without a database (shared-mime-info not installed) the fixed MIME fallback table below and the
// built-in identifiers still answer for the common types.
//
// Every function may be called from any thread and never throws. Extensions are compared ignoring
// case. Bad input (empty strings, invalid UTF-8, paths that name nothing) gives the documented
// fallback: "application/octet-stream", nullopt, "" or false.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/export.h"

// Type codes of the of-a-type tests; any other code is never matched.
enum ZTFileType : std::int64_t {
  ZTFileTypeImage = 1,
  ZTFileTypeMovie = 2,
  ZTFileTypeAudio = 3,
};

// The MIME type of an extension: the database's answer, else the fallback table (zip, htm, html,
// mdl, txt, gif, jpg, jpeg, tiff, tif, bmp, rtf, pdf, mpeg, mpg, mpe, wav, mov, m4v, 3gp), else
// "application/octet-stream" (also for an empty extension).
ZT_API std::string ZTMimeTypeForFileExtension(std::string_view extension);
// The same for the path's extension. The file is not read.
ZT_API std::string ZTMimeTypeForFileAtPath(std::string_view path);

// The preferred identifier of an extension; with isDirectory only folder types count. nullopt when
// only a dynamic identifier could be made. For an empty extension: "public.folder" when isDirectory,
// else nullopt.
ZT_API std::optional<std::string> ZTUTIForFileExtension(std::string_view extension, bool isDirectory);
// The preferred identifier of a MIME type (a dynamic one when the type is unknown); nullopt for "".
ZT_API std::optional<std::string> ZTUTIFromMimeType(std::string_view mimeType);
// The preferred extension of the MIME type, or "" when it has none.
ZT_API std::string ZTExtensionForMimeType(std::string_view mimeType);

// Whether the extension's identifier conforms to the image, movie or audio type (ZTFileType).
ZT_API bool ZTIsFileExtensionOfType(std::string_view extension, std::int64_t type);
ZT_API bool ZTIsFileAtPathOfType(std::string_view path, std::int64_t type);
ZT_API bool ZTIsFileAtURLOfType(const ZTFileURL& url, std::int64_t type);

// A readable kind name ("JPEG image", "DOCX Document", "Unknown file"), translated through the
// application's gettext domain.
ZT_API std::string ZTPathExtensionToReadable(std::string_view extension);

// Packages: folders shown to the user as one document. An extension is a package extension when
// it is one of "pages", "numbers", "key", "rtfd", "mpkg", "epub" or its identifier conforms to
// "com.apple.package" (e.g. "app").
ZT_API bool ZTIsPackageFileExtension(std::string_view extension);
// An existing item that is not a folder is never a package; otherwise the extension decides.
ZT_API bool ZTIsPackageFilePath(std::string_view path);
// False for URLs that are not file URLs.
ZT_API bool ZTIsPackageFileURL(const ZTFileURL& url);
// True for anything that is not an existing folder (missing paths included); for a folder the
// extension decides.
ZT_API bool ZTIsPackageOrFilePath(std::string_view path);
