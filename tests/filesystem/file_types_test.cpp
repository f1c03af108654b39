#include "zentrel/filesystem/file_types.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "filesystem/internal/mime_database.h"
#include "filesystem/internal/type_registry.h"
#include "filesystem/support/scratch_folder.h"

namespace {

using zt::fs_internal::MimeDatabase;
using zt::fs_internal::TypeRegistry;
using zt::test::ScratchFolder;

bool systemDatabaseAvailable() { return !MimeDatabase::shared().isEmpty(); }

TEST(MimeTypes, ForExtensions) {
  EXPECT_EQ(ZTMimeTypeForFileExtension("PDF"), "application/pdf");
  EXPECT_EQ(ZTMimeTypeForFileExtension("pdf"), "application/pdf");
  EXPECT_EQ(ZTMimeTypeForFileExtension(""), "application/octet-stream");
  EXPECT_EQ(ZTMimeTypeForFileExtension("zt-no-such-extension"), "application/octet-stream");
  EXPECT_EQ(ZTMimeTypeForFileExtension("Jpg"), "image/jpeg");
  EXPECT_EQ(ZTMimeTypeForFileExtension("txt"), "text/plain");
  EXPECT_EQ(ZTMimeTypeForFileExtension("mov"), "video/quicktime");
  // Known to no database or built-in type: the fallback table answers.
  EXPECT_EQ(ZTMimeTypeForFileExtension("mdl"), "text/html");
  // A folder-only type has no MIME type.
  EXPECT_EQ(ZTMimeTypeForFileExtension("app"), "application/octet-stream");
  EXPECT_EQ(ZTMimeTypeForFileAtPath("/x/y/Report.HTML"), "text/html");
  EXPECT_EQ(ZTMimeTypeForFileAtPath("/x/y/"), "application/octet-stream");
  EXPECT_EQ(ZTMimeTypeForFileExtension("\xff\xfe"), "application/octet-stream");
}

TEST(MimeTypes, FromTheSystemDatabase) {
  if (!systemDatabaseAvailable()) GTEST_SKIP() << "shared-mime-info is not installed";
  EXPECT_EQ(ZTMimeTypeForFileExtension("odt"), "application/vnd.oasis.opendocument.text");
  EXPECT_EQ(ZTMimeTypeForFileExtension("webm"), "video/webm");
  EXPECT_EQ(ZTUTIForFileExtension("odt", false), "org.freedesktop.mime.application.vnd.oasis.opendocument.text");
  EXPECT_EQ(ZTExtensionForMimeType("application/vnd.oasis.opendocument.text"), "odt");
  EXPECT_TRUE(ZTIsFileExtensionOfType("webm", ZTFileTypeMovie));
  EXPECT_TRUE(ZTIsFileExtensionOfType("flac", ZTFileTypeAudio));
  EXPECT_TRUE(ZTIsFileExtensionOfType("xcf", ZTFileTypeImage));
  EXPECT_FALSE(ZTIsFileExtensionOfType("odt", ZTFileTypeImage));
  // Aliases resolve to the canonical type.
  EXPECT_EQ(ZTUTIFromMimeType("text/xml"), "public.xml");
  EXPECT_EQ(ZTUTIFromMimeType("application/x-zip-compressed"), "public.zip-archive");
}

TEST(TypeIdentifiers, ForExtensions) {
  EXPECT_EQ(ZTUTIForFileExtension("", true), "public.folder");
  EXPECT_EQ(ZTUTIForFileExtension("", false), std::nullopt);
  EXPECT_EQ(ZTUTIForFileExtension("jpg", false), "public.jpeg");
  EXPECT_EQ(ZTUTIForFileExtension("JPEG", false), "public.jpeg");
  EXPECT_EQ(ZTUTIForFileExtension("pdf", false), "com.adobe.pdf");
  EXPECT_EQ(ZTUTIForFileExtension("app", true), "com.apple.application-bundle");
  EXPECT_EQ(ZTUTIForFileExtension("app", false), "com.apple.application-bundle");
  // Only folder types count for folders; what is left is dynamic and answered as nothing.
  EXPECT_EQ(ZTUTIForFileExtension("jpg", true), std::nullopt);
  EXPECT_EQ(ZTUTIForFileExtension("zt-no-such-extension", false), std::nullopt);
}

TEST(TypeIdentifiers, FromMimeTypesAndBack) {
  EXPECT_EQ(ZTUTIFromMimeType(""), std::nullopt);
  EXPECT_EQ(ZTUTIFromMimeType("image/jpeg"), "public.jpeg");
  EXPECT_EQ(ZTUTIFromMimeType("IMAGE/JPEG"), "public.jpeg");
  EXPECT_EQ(ZTUTIFromMimeType("inode/directory"), "public.folder");
  const std::optional<std::string> unknown = ZTUTIFromMimeType("application/x-zt-unknown");
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->substr(0, 4), "dyn.");
  EXPECT_EQ(TypeRegistry::shared().mimeTypeForIdentifier(*unknown), "application/x-zt-unknown");

  EXPECT_EQ(ZTExtensionForMimeType("image/jpeg"), "jpeg");
  EXPECT_EQ(ZTExtensionForMimeType("application/pdf"), "pdf");
  EXPECT_EQ(ZTExtensionForMimeType("text/plain"), "txt");
  EXPECT_EQ(ZTExtensionForMimeType("video/quicktime"), "mov");
  EXPECT_EQ(ZTExtensionForMimeType("application/x-zt-unknown"), "");
  EXPECT_EQ(ZTExtensionForMimeType(""), "");
  EXPECT_EQ(ZTExtensionForMimeType("inode/directory"), "");
}

TEST(TypeIdentifiers, OfAType) {
  EXPECT_TRUE(ZTIsFileExtensionOfType("jpg", ZTFileTypeImage));
  EXPECT_TRUE(ZTIsFileExtensionOfType("PNG", ZTFileTypeImage));
  EXPECT_TRUE(ZTIsFileExtensionOfType("mov", ZTFileTypeMovie));
  EXPECT_TRUE(ZTIsFileExtensionOfType("mp4", ZTFileTypeMovie));
  EXPECT_TRUE(ZTIsFileExtensionOfType("mp3", ZTFileTypeAudio));
  EXPECT_FALSE(ZTIsFileExtensionOfType("mp3", ZTFileTypeImage));
  EXPECT_FALSE(ZTIsFileExtensionOfType("pdf", ZTFileTypeImage));
  EXPECT_FALSE(ZTIsFileExtensionOfType("jpg", 0));
  EXPECT_FALSE(ZTIsFileExtensionOfType("jpg", 4));
  EXPECT_FALSE(ZTIsFileExtensionOfType("", ZTFileTypeImage));
  EXPECT_TRUE(ZTIsFileAtPathOfType("/photos/IMG_1.JPG", ZTFileTypeImage));
  EXPECT_FALSE(ZTIsFileAtPathOfType("/photos/IMG_1", ZTFileTypeImage));
  EXPECT_TRUE(ZTIsFileAtURLOfType(ZTFileURL::fileURLWithPath("/m/a.mov"), ZTFileTypeMovie));
  EXPECT_FALSE(ZTIsFileAtURLOfType(ZTFileURL::URLWithString("https://h/a.mov"), ZTFileTypeMovie));
}

TEST(ReadableKinds, TableOrderAndGenericDocuments) {
  EXPECT_EQ(ZTPathExtensionToReadable("JPG"), "JPEG image");
  EXPECT_EQ(ZTPathExtensionToReadable("htm"), "HTML Document");
  EXPECT_EQ(ZTPathExtensionToReadable("heic"), "HEIC image");
  EXPECT_EQ(ZTPathExtensionToReadable("key"), "Keynote presentation");
  EXPECT_EQ(ZTPathExtensionToReadable("guide"), "Paperlane Guide");
  EXPECT_EQ(ZTPathExtensionToReadable("zthelp"), "Paperlane Help");
  EXPECT_EQ(ZTPathExtensionToReadable("Docx"), "DOCX Document");
  EXPECT_EQ(ZTPathExtensionToReadable("tar.gz"), "TAR.GZ Document");
  EXPECT_EQ(ZTPathExtensionToReadable(""), "Unknown file");
}

TEST(Packages, Extensions) {
  for (const char* extension : {"pages", "numbers", "key", "rtfd", "mpkg", "epub", "PAGES", "app", "plugin"}) {
    EXPECT_TRUE(ZTIsPackageFileExtension(extension)) << extension;
  }
  for (const char* extension : {"", "txt", "zip", "zt-no-such-extension", "folder", "bundle", "framework"}) {
    EXPECT_FALSE(ZTIsPackageFileExtension(extension)) << extension;
  }
}

TEST(Packages, RealFoldersAndFiles) {
  ScratchFolder dir;
  zt::test::writeFile(dir / "x.pages", "not a folder");
  zt::test::makeDirectory(dir / "y.pages");
  zt::test::makeDirectory(dir / "Tool.app");
  zt::test::makeDirectory(dir / "plain");
  zt::test::makeDirectory(dir / "photos.d");
  zt::test::writeFile(dir / "a.txt", "x");

  EXPECT_FALSE(ZTIsPackageFilePath(dir / "x.pages"));  // an existing file is never a package
  EXPECT_TRUE(ZTIsPackageFilePath(dir / "y.pages"));
  EXPECT_TRUE(ZTIsPackageFilePath(dir / "Tool.app"));
  EXPECT_FALSE(ZTIsPackageFilePath(dir / "plain"));
  EXPECT_TRUE(ZTIsPackageFilePath(dir / "missing.pages"));  // nothing there: the extension decides
  EXPECT_FALSE(ZTIsPackageFilePath(""));

  EXPECT_TRUE(ZTIsPackageOrFilePath(dir / "missing"));
  EXPECT_TRUE(ZTIsPackageOrFilePath(dir / "a.txt"));
  EXPECT_TRUE(ZTIsPackageOrFilePath(dir / "x.pages"));
  EXPECT_TRUE(ZTIsPackageOrFilePath(dir / "y.pages"));
  EXPECT_FALSE(ZTIsPackageOrFilePath(dir / "plain"));
  EXPECT_FALSE(ZTIsPackageOrFilePath(dir / "photos.d"));

  EXPECT_TRUE(ZTIsPackageFileURL(ZTFileURL::fileURLWithPath(dir / "y.pages", true)));
  EXPECT_FALSE(ZTIsPackageFileURL(ZTFileURL::URLWithString("https://h/y.pages")));
  EXPECT_FALSE(ZTIsPackageFileURL(ZTFileURL()));
}

// A database made of real files, to check precedence, weights, aliases and the hierarchy.
class PrivateMimeDatabase : public ::testing::Test {
 protected:
  void SetUp() override {
    zt::test::makeDirectory(high + "/mime");
    zt::test::makeDirectory(low + "/mime");
    zt::test::writeFile(high + "/mime/globs2",
                        "# comment\n"
                        "50:application/x-zt-doc:*.ztdoc\n"
                        "40:application/x-zt-other:*.ztdoc\n"
                        "50:image/x-zt-raw:*.ztraw\n"
                        "50:image/x-zt-raw:*.ztr\n"
                        "50:text/x-zt-cs:*.ZTCS:cs\n"
                        "50:application/x-zt-cleared:__NOGLOBS__\n");
    zt::test::writeFile(high + "/mime/aliases", "application/x-zt-old application/x-zt-doc\n");
    zt::test::writeFile(high + "/mime/subclasses", "application/x-zt-doc application/zip\n");
    zt::test::writeFile(low + "/mime/globs2",
                        "60:application/x-zt-cleared:*.ztclr\n"
                        "50:application/x-zt-lower:*.ztlow\n");
    database = MimeDatabase::load({high + "/mime", low + "/mime", dir / "missing/mime"});
  }

  ScratchFolder dir;
  std::string high = dir / "high";
  std::string low = dir / "low";
  MimeDatabase database;
};

TEST_F(PrivateMimeDatabase, GlobsWeightsAndPrecedence) {
  ASSERT_FALSE(database.isEmpty());
  ASSERT_NE(database.mimeTypeForExtension("ztdoc"), nullptr);
  EXPECT_EQ(*database.mimeTypeForExtension("ztdoc"), "application/x-zt-doc");
  EXPECT_EQ(*database.mimeTypeForExtension("ztlow"), "application/x-zt-lower");
  EXPECT_EQ(database.mimeTypeForExtension("ztclr"), nullptr);  // cleared by the folder above
  EXPECT_EQ(database.mimeTypeForExtension("ztcs"), nullptr);   // case-sensitive upper-case glob
  EXPECT_EQ(*database.preferredExtension("image/x-zt-raw"), "ztraw");
  EXPECT_EQ(database.canonicalName("Application/X-ZT-Old"), "application/x-zt-doc");
  EXPECT_TRUE(database.isKnown("application/x-zt-cleared"));
}

TEST_F(PrivateMimeDatabase, IdentifiersFollowTheHierarchy) {
  const TypeRegistry registry(database);
  const std::string raw = registry.identifierForExtension("ztraw", false);
  EXPECT_EQ(raw, "org.freedesktop.mime.image.x-zt-raw");
  EXPECT_TRUE(registry.conformsTo(raw, "public.image"));
  EXPECT_TRUE(registry.conformsTo(raw, "public.data"));
  EXPECT_FALSE(registry.conformsTo(raw, "public.movie"));
  EXPECT_EQ(registry.mimeTypeForIdentifier(raw), "image/x-zt-raw");
  EXPECT_EQ(registry.preferredExtensionForIdentifier(raw), "ztraw");

  const std::string doc = registry.identifierForExtension("ztdoc", false);
  EXPECT_TRUE(registry.conformsTo(doc, "public.zip-archive"));  // subclass of application/zip
  EXPECT_TRUE(registry.conformsTo(doc, "public.archive"));
  EXPECT_FALSE(registry.conformsTo(doc, "com.apple.package"));
  EXPECT_EQ(registry.identifierForMimeType("application/x-zt-old"), doc);

  // Built-in identifiers answer without the system database.
  EXPECT_EQ(registry.identifierForExtension("jpg", false), "public.jpeg");
  EXPECT_TRUE(registry.conformsTo("public.jpeg", "public.image"));
  EXPECT_TRUE(registry.conformsTo("com.apple.application-bundle", "com.apple.package"));
  EXPECT_TRUE(registry.conformsTo("public.folder", "public.directory"));
  EXPECT_FALSE(registry.conformsTo("public.folder", "com.apple.package"));

  const std::string unknown = registry.identifierForExtension("zzq", false);
  EXPECT_TRUE(TypeRegistry::isDynamic(unknown));
  EXPECT_TRUE(registry.conformsTo(unknown, "public.data"));
  EXPECT_FALSE(registry.conformsTo(unknown, "public.image"));
  EXPECT_EQ(registry.preferredExtensionForIdentifier(unknown), "zzq");
  EXPECT_EQ(registry.mimeTypeForIdentifier(unknown), std::nullopt);
  EXPECT_NE(unknown, registry.identifierForExtension("zzr", false));
}

// The glob lines of Debian's database for C and C++ sources, with the old flagless "*.C" line that
// once made every ".c" file C++: case-sensitive globs are tried on the name as written, then the
// case-insensitive ones on its lower-case form.
TEST(MimeGlobMatching, CaseSensitiveGlobsFirstThenLowerCase) {
  ScratchFolder dir;
  zt::test::writeFile(dir / "globs2",
                      "50:text/x-c++src:*.C:cs\n"
                      "50:text/x-c++src:*.C\n"
                      "50:text/x-csrc:*.c:cs\n"
                      "50:text/x-csrc:*.c\n"
                      "50:text/x-genie:*.gs:cs\n"
                      "50:image/gif:*.gif\n");
  const MimeDatabase database = MimeDatabase::load({dir.path()});
  const auto typeOf = [&](std::string_view extension) {
    const std::string* type = database.mimeTypeForExtension(extension);
    return type == nullptr ? std::string("(none)") : *type;
  };
  EXPECT_EQ(typeOf("c"), "text/x-csrc");
  EXPECT_EQ(typeOf("C"), "text/x-c++src");
  EXPECT_EQ(typeOf("GIF"), "image/gif");
  EXPECT_EQ(typeOf("gs"), "text/x-genie");
  EXPECT_EQ(typeOf("GS"), "(none)");  // a case-sensitive glob matches only as written

  // A database without the flags: the glob written in lower case wins the lower-case lookup.
  zt::test::writeFile(dir / "globs2", "50:text/x-c++src:*.C\n50:text/x-csrc:*.c\n");
  const MimeDatabase old = MimeDatabase::load({dir.path()});
  ASSERT_NE(old.mimeTypeForExtension("c"), nullptr);
  EXPECT_EQ(*old.mimeTypeForExtension("c"), "text/x-csrc");
}

// MIME type names are compared ignoring case, and answered as the database spells them.
TEST(MimeGlobMatching, TypeNamesWithCapitalsKeepTheirTypes) {
  ScratchFolder dir;
  zt::test::writeFile(dir / "globs2",
                      "50:application/vnd.ms-word.document.macroEnabled.12:*.docm\n"
                      "50:audio/AMR:*.amr\n");
  zt::test::writeFile(dir / "aliases", "image/x-MS-bmp image/bmp\naudio/amr-encrypted audio/AMR\n");
  zt::test::writeFile(dir / "subclasses",
                      "application/vnd.ms-word.document.macroEnabled.12 application/zip\n");
  zt::test::writeFile(dir / "types", "application/vnd.ms-word.document.macroEnabled.12\naudio/AMR\nimage/bmp\n");
  const MimeDatabase database = MimeDatabase::load({dir.path()});
  const TypeRegistry registry(database);

  const std::string docm = registry.identifierForExtension("docm", false);
  EXPECT_EQ(docm, "org.freedesktop.mime.application.vnd.ms-word.document.macroEnabled.12");
  EXPECT_EQ(registry.mimeTypeForIdentifier(docm), "application/vnd.ms-word.document.macroEnabled.12");
  EXPECT_EQ(registry.identifierForMimeType("APPLICATION/VND.MS-WORD.DOCUMENT.MACROENABLED.12"), docm);
  EXPECT_TRUE(registry.conformsTo(docm, "public.zip-archive"));
  EXPECT_EQ(registry.preferredExtensionForIdentifier(docm), "docm");

  EXPECT_EQ(registry.identifierForMimeType("image/x-MS-bmp"), "com.microsoft.bmp");
  EXPECT_EQ(registry.identifierForMimeType("image/x-ms-bmp"), "com.microsoft.bmp");
  EXPECT_EQ(database.canonicalName("audio/AMR-encrypted"), "audio/AMR");
  EXPECT_EQ(registry.identifierForMimeType("audio/amr"), "org.freedesktop.mime.audio.AMR");
  EXPECT_TRUE(registry.conformsTo(registry.identifierForExtension("amr", false), "public.audio"));
}

TEST(MimeTypes, OfficeMacroDocumentsAndCSourcesFromTheSystemDatabase) {
  if (!systemDatabaseAvailable()) GTEST_SKIP() << "shared-mime-info is not installed";
  for (const char* extension : {"xlsm", "docm", "pptm", "vsdm"}) {
    const std::optional<std::string> identifier = ZTUTIForFileExtension(extension, false);
    ASSERT_TRUE(identifier) << extension;
    EXPECT_EQ(identifier->rfind("org.freedesktop.mime.application.vnd.ms-", 0), 0u) << *identifier;
    EXPECT_EQ(ZTExtensionForMimeType(ZTMimeTypeForFileExtension(extension)), extension);
  }
  EXPECT_EQ(ZTMimeTypeForFileExtension("docm"), "application/vnd.ms-word.document.macroEnabled.12");
  // The fallback table's spelling is an alias of image/bmp.
  EXPECT_EQ(ZTUTIFromMimeType("image/x-MS-bmp"), "com.microsoft.bmp");
  EXPECT_EQ(ZTMimeTypeForFileAtPath("/src/main.c"), "text/x-csrc");
  EXPECT_EQ(ZTMimeTypeForFileAtPath("/src/main.cpp"), "text/x-c++src");
  // The extension is lower-cased before the lookup, so "main.C" is a C source here as well.
  EXPECT_EQ(ZTMimeTypeForFileAtPath("/src/MAIN.C"), "text/x-csrc");
}

TEST(MimeDatabaseLoading, MissingFoldersGiveAnEmptyDatabase) {
  const MimeDatabase empty = MimeDatabase::load({"/zt-missing/mime", ""});
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_EQ(empty.mimeTypeForExtension("txt"), nullptr);
  const TypeRegistry registry(empty);
  EXPECT_EQ(registry.identifierForExtension("jpg", false), "public.jpeg");
  EXPECT_TRUE(TypeRegistry::isDynamic(registry.identifierForExtension("odt", false)));
}

}  // namespace

namespace {

// Shared tables are built on first use from whichever thread gets there first; lookups from many
// threads at once must agree with each other.
TEST(FileTypesConcurrency, LookupsFromManyThreadsAgree) {
  std::vector<std::thread> threads;
  std::atomic<int> mismatches{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&mismatches] {
      for (int i = 0; i < 200; ++i) {
        if (ZTMimeTypeForFileExtension("pdf") != "application/pdf") ++mismatches;
        if (!ZTIsFileExtensionOfType("jpg", ZTFileTypeImage)) ++mismatches;
        if (ZTPathExtensionToReadable("png") != "PNG image") ++mismatches;
        if (!ZTIsPackageFileExtension("pages")) ++mismatches;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
