#include "zentrel/filesystem/paths.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/standard_directories.h"

namespace {

using zt::test::ScratchFolder;

TEST(PathNormalization, StandardizesRepeatedSlashesDotsAndParentReferences) {
  EXPECT_EQ(ZTNormalizeBeginingOfPath("/a//b/./c/../d"), "/a/b/d");
  EXPECT_EQ(ZTNormalizeBeginingOfPath("/a/b/"), "/a/b");
  EXPECT_EQ(ZTNormalizeBeginingOfPath("/../../a"), "/a");
  EXPECT_EQ(ZTNormalizeBeginingOfPath("a/./b//c"), "a/b/c");
  EXPECT_EQ(ZTNormalizeBeginingOfPath("a/../b"), "a/../b");  // relative paths keep ".."
  EXPECT_EQ(ZTNormalizeBeginingOfPath("~"), ZTHomeDirectory());
  EXPECT_EQ(ZTNormalizeBeginingOfPath("~/x"), ZTHomeDirectory() + "/x");
}

TEST(PathNormalization, PrivatePrefixIsDroppedByHandOnlyWhenStandardizationChangedNothing) {
  // Unchanged by standardization: the hand reduction drops "/private" although the shorter path
  // does not exist.
  EXPECT_EQ(ZTNormalizeBeginingOfPath("/private/zt-surely-missing/x"), "/zt-surely-missing/x");
  // Changed by standardization ("..") and the shorter path missing: the standardized result is final.
  EXPECT_EQ(ZTNormalizeBeginingOfPath("/private/zt-surely-missing/../zt-surely-missing/x"),
            "/private/zt-surely-missing/x");
  // Standardization itself drops "/private" when the shorter path exists.
  ScratchFolder dir;
  EXPECT_EQ(ZTNormalizeBeginingOfPath("/private" + dir.path() + "/./"), dir.path());
  // "/private" not followed by "/" is an ordinary name.
  EXPECT_EQ(ZTNormalizeBeginingOfPath("/privateer/x"), "/privateer/x");
}

TEST(PathNormalization, EndAlwaysHasExactlyOneSlash) {
  EXPECT_EQ(ZTNormalizeEndOfPath(""), "/");
  EXPECT_EQ(ZTNormalizeEndOfPath("/a"), "/a/");
  EXPECT_EQ(ZTNormalizeEndOfPath("/a/"), "/a/");
  EXPECT_EQ(ZTNormalizePath("/a/b//"), "/a/b/");
  EXPECT_EQ(ZTNormalizePath(""), "/");
  EXPECT_EQ(ZTNormalizePath("/"), "/");
}

TEST(PathComparison, EqualityIgnoresTrailingSlashAndRedundantParts) {
  EXPECT_TRUE(ZTIsPathEqualToPath("/a/b", "/a/b/"));
  EXPECT_TRUE(ZTIsPathEqualToPath("/a/./b", "/a//b"));
  EXPECT_TRUE(ZTIsPathEqualToPath("/a/x/../b", "/a/b"));
  EXPECT_FALSE(ZTIsPathEqualToPath("/a/b", "/a/B"));
  EXPECT_FALSE(ZTIsPathEqualToPath("/a/b", "/a/bc"));
}

TEST(PathComparison, BaseIsAStrictAncestorOnComponentBoundaries) {
  EXPECT_TRUE(ZTIsPathBasePathOfPath("/a/b", "/a/b/c"));
  EXPECT_TRUE(ZTIsPathBasePathOfPath("/a/b/", "/a/b/c/d"));
  EXPECT_TRUE(ZTIsPathBasePathOfPath("/", "/a"));
  EXPECT_TRUE(ZTIsPathBasePathOfPath("/a/./b", "/a//b/c"));
  EXPECT_FALSE(ZTIsPathBasePathOfPath("/a/b", "/a/b/"));   // a path is not its own base
  EXPECT_FALSE(ZTIsPathBasePathOfPath("/a/b", "/a/bc"));   // not below, although a text prefix
  EXPECT_FALSE(ZTIsPathBasePathOfPath("/a/b/c", "/a/b"));  // the other way round
  EXPECT_FALSE(ZTIsPathBasePathOfPath("", "/a"));
  EXPECT_FALSE(ZTIsPathBasePathOfPath("/a", ""));
  EXPECT_FALSE(ZTIsPathBasePathOfPath("/a/../b", "/a/c"));
}

TEST(PathComparison, BadInputNeverThrows) {
  const std::string nul("/a/b\0c", 6);
  const std::string invalid = "/a/\xff\xfe/b";
  // The NUL stays part of the path: cutting there would name another file.
  EXPECT_EQ(ZTNormalizePath(nul), std::string("/a/b\0c/", 7));
  EXPECT_TRUE(ZTIsPathBasePathOfPath("/a", nul));
  EXPECT_TRUE(ZTIsPathBasePathOfPath("/a/\xff\xfe", invalid));
  EXPECT_EQ(ZTDeleteBeginningOfPathWithOptions("/A", invalid, ZTPathCaseInsensitiveSearch), "/\xff\xfe/b");
}

TEST(DeletingBeginningOfPath, RemovesTheFirstMatchWhereverItIs) {
  EXPECT_EQ(ZTDeleteBeginningOfPath("/a/b", "/a/b/c/d"), "/c/d");
  EXPECT_EQ(ZTDeleteBeginningOfPath("/a/b/", "/a/b/c/d/"), "/c/d");  // the end is standardized too
  // "/a/b/" does not occur in "/a/b": nothing removed.
  EXPECT_EQ(ZTDeleteBeginningOfPath("/a/b", "/a/b"), "/a/b");
  // The match is not anchored at the start.
  EXPECT_EQ(ZTDeleteBeginningOfPath("/a", "/x/a/y"), "/x/y");
  // Not found: the path with its beginning normalized.
  EXPECT_EQ(ZTDeleteBeginningOfPath("/q", "/x//y/./z"), "/x/y/z");
  EXPECT_EQ(ZTDeleteBeginningOfPath("", "/x/y"), "/x/y");
}

TEST(DeletingBeginningOfPath, HonoursSearchOptions) {
  EXPECT_EQ(ZTDeleteBeginningOfPath("/A/B", "/a/b/c"), "/a/b/c");
  EXPECT_EQ(ZTDeleteBeginningOfPathWithOptions("/A/B", "/a/b/c", ZTPathCaseInsensitiveSearch), "/c");
  EXPECT_EQ(ZTDeleteBeginningOfPathWithOptions("/Ä", "/ä/x", ZTPathCaseInsensitiveSearch), "/x");
  EXPECT_EQ(ZTDeleteBeginningOfPathWithOptions("/a", "/x/a/y", ZTPathAnchoredSearch), "/x/a/y");
  EXPECT_EQ(ZTDeleteBeginningOfPathWithOptions("/a", "/a/x/a/y", ZTPathBackwardsSearch), "/a/x/y");
}

TEST(RelativePaths, KeepTheBaseFolderNameAndRoundTrip) {
  const std::vector<std::string> bases = {"/U/x/Docs"};
  const std::string relative = ZTAbsolutePathToRelative("/U/x/Docs/s/a.pdf", bases);
  EXPECT_EQ(relative, "/Docs/s/a.pdf");
  EXPECT_EQ(ZTRelativePathToAbsolute(relative, "/U/x/Docs"), "/U/x/Docs/s/a.pdf");
  EXPECT_EQ(ZTRelativePathToAbsolute("Docs/s/a.pdf", "/U/x/Docs/"), "/U/x/Docs/s/a.pdf");
  // The base itself is not below itself: unchanged.
  EXPECT_EQ(ZTAbsolutePathToRelative("/U/x/Docs", bases), "/U/x/Docs");
  EXPECT_EQ(ZTAbsolutePathToRelative("/U/x/Docsy/a", bases), "/U/x/Docsy/a");
  // The base's parent comes from its normalized spelling.
  EXPECT_EQ(ZTAbsolutePathToRelative("/U/x/Docs/a.pdf", {"/U/x/Docs/."}), "/Docs/a.pdf");
  EXPECT_EQ(ZTAbsolutePathToRelative("/U/x/Docs/a.pdf", {"/U/y/../x/Docs/"}), "/Docs/a.pdf");
}

TEST(RelativePaths, FirstMatchingBaseInListOrderWins) {
  const std::vector<std::string> bases = {"/U/other", "/U/x", "/U/x/Docs"};
  EXPECT_EQ(ZTAbsolutePathToRelative("/U/x/Docs/a.pdf", bases), "/x/Docs/a.pdf");
  const std::vector<std::string> reversed = {"/U/x/Docs", "/U/x"};
  EXPECT_EQ(ZTAbsolutePathToRelative("/U/x/Docs/a.pdf", reversed), "/Docs/a.pdf");
  // A base at the root: its parent is "/", and the round trip still holds.
  const std::string fromRoot = ZTAbsolutePathToRelative("/U/x/a", {"/U"});
  EXPECT_EQ(fromRoot, "/U/x/a");
  EXPECT_EQ(ZTRelativePathToAbsolute(fromRoot, "/U"), "/U/x/a");
}

TEST(RelativePaths, RoundTripsForManyShapes) {
  const std::vector<std::string> bases = {"/home/u/Documents", "/media/disk/Photos"};
  for (const std::string path : {"/home/u/Documents/a", "/home/u/Documents/a b/c.d/e", "/media/disk/Photos/2024/x.jpg",
                                 "/home/u/Documents/Documents/x"}) {
    const std::string relative = ZTAbsolutePathToRelative(path, bases);
    ASSERT_NE(relative, path) << path;
    const std::string base = relative.rfind("/Documents", 0) == 0 ? bases[0] : bases[1];
    EXPECT_EQ(ZTRelativePathToAbsolute(relative, base), path);
  }
}

TEST(RelativePaths, FileURLVariants) {
  const ZTFileURL url = ZTFileURL::fileURLWithPath("/U/x/Docs/a b.pdf");
  const ZTFileURL relative = ZTAbsoluteURLToRelative(url, {ZTFileURL::fileURLWithPath("/U/x/Docs", true)});
  EXPECT_TRUE(relative.isFileURL());
  EXPECT_EQ(relative.path(), "/Docs/a b.pdf");
  EXPECT_EQ(ZTRelativeURLToAbsolute(relative, ZTFileURL::fileURLWithPath("/U/x/Docs", true)).path(),
            "/U/x/Docs/a b.pdf");
  // No match: the same URL back.
  const ZTFileURL other = ZTFileURL::fileURLWithPath("/elsewhere/a.pdf");
  EXPECT_EQ(ZTAbsoluteURLToRelative(other, {ZTFileURL::fileURLWithPath("/U")}), other);
}

TEST(FileURL, ParsesAndPrintsFileURLs) {
  const ZTFileURL parsed = ZTFileURL::URLWithString("file:///tmp/a%20b/%C3%A4.txt");
  EXPECT_TRUE(parsed.isFileURL());
  EXPECT_EQ(parsed.path(), "/tmp/a b/ä.txt");
  EXPECT_EQ(parsed.absoluteString(), "file:///tmp/a%20b/%C3%A4.txt");
  EXPECT_EQ(ZTFileURL::URLWithString("file://localhost/x/").path(), "/x");
  EXPECT_TRUE(ZTFileURL::URLWithString("file://localhost/x/").hasDirectoryPath());
  EXPECT_FALSE(ZTFileURL::URLWithString("https://example.org/a.pages").isFileURL());
  EXPECT_EQ(ZTFileURL::URLWithString("https://example.org/a").absoluteString(), "https://example.org/a");
  EXPECT_TRUE(ZTFileURL::URLWithString("not a url").isEmpty());
  EXPECT_TRUE(ZTFileURL::URLWithString("file://otherhost/x").isEmpty());
  EXPECT_TRUE(ZTFileURL::fileURLWithPath("").isEmpty());
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(ZTFileURL::fileURLWithPath("rel/x").path(), std::string(cwd) + "/rel/x");
}

}  // namespace

namespace {

// Random absolute paths made of the parts that matter to normalization, checked against
// std::filesystem's lexical normalization (which shares the rules for absolute paths).
std::string randomAbsolutePath(std::mt19937& random) {
  static const char* const kParts[] = {"a", "b", "bc", ".", "..", "", "x.y", "..."};
  std::uniform_int_distribution<int> count(0, 7);
  std::uniform_int_distribution<int> part(0, 7);
  std::string path;
  const int n = count(random);
  for (int i = 0; i < n; ++i) path += std::string("/") + kParts[part(random)];
  if (path.empty() || (random() % 4) == 0) path += "/";
  return path;
}

std::string lexicalModel(const std::string& path) {
  std::string normal = std::filesystem::path(path).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return normal;
}

std::vector<std::string> componentsOf(const std::string& normal) {
  std::vector<std::string> parts;
  for (const auto& part : std::filesystem::path(normal)) {
    if (!part.empty() && part != "/") parts.push_back(part.string());
  }
  return parts;
}

TEST(PathNormalizationProperties, AgreesWithLexicalNormalizationOnAbsolutePaths) {
  std::mt19937 random(20261122);
  for (int i = 0; i < 5000; ++i) {
    const std::string path = randomAbsolutePath(random);
    const std::string normalized = ZTNormalizeBeginingOfPath(path);
    ASSERT_EQ(normalized, lexicalModel(path)) << path;
    ASSERT_EQ(ZTNormalizePath(ZTNormalizePath(path)), ZTNormalizePath(path)) << path;
    ASSERT_EQ(ZTNormalizePath(path).back(), '/') << path;
  }
}

TEST(PathNormalizationProperties, BaseTestMeansStrictComponentPrefix) {
  std::mt19937 random(7);
  for (int i = 0; i < 5000; ++i) {
    const std::string base = randomAbsolutePath(random);
    // Half of the paths extend the base, so that both answers occur often.
    const std::string path = (random() % 2) ? base + randomAbsolutePath(random) : randomAbsolutePath(random);
    const std::vector<std::string> b = componentsOf(lexicalModel(base));
    const std::vector<std::string> p = componentsOf(lexicalModel(path));
    const bool expected = b.size() < p.size() && std::equal(b.begin(), b.end(), p.begin());
    ASSERT_EQ(ZTIsPathBasePathOfPath(base, path), expected) << base << " | " << path;
    if (expected) {
      const std::string relative = ZTAbsolutePathToRelative(path, {base});
      ASSERT_EQ(ZTRelativePathToAbsolute(relative, base), ZTNormalizeBeginingOfPath(path)) << base << " | " << path;
    }
  }
}

}  // namespace
