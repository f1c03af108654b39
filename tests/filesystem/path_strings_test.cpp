#include "zentrel/filesystem/path_strings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "filesystem/support/scratch_folder.h"

namespace {

using zt::test::ScratchFolder;

TEST(PathVocabulary, ComponentsAndExtensions) {
  EXPECT_EQ(zt::lastPathComponent("/tmp/a.txt"), "a.txt");
  EXPECT_EQ(zt::lastPathComponent("/tmp/"), "tmp");
  EXPECT_EQ(zt::lastPathComponent("a//"), "a");
  EXPECT_EQ(zt::lastPathComponent("/"), "/");
  EXPECT_EQ(zt::lastPathComponent(""), "");

  EXPECT_EQ(zt::stringByDeletingLastPathComponent("/tmp/a.txt"), "/tmp");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent("/tmp/lock/"), "/tmp");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent("/tmp"), "/");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent("/"), "/");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent("a.txt"), "");
  EXPECT_EQ(zt::stringByDeletingLastPathComponent("a//b"), "a");

  EXPECT_EQ(zt::pathExtension("/tmp/a.tar.gz"), "gz");
  EXPECT_EQ(zt::pathExtension("/tmp/.hidden"), "");
  EXPECT_EQ(zt::pathExtension("/tmp/.hidden.txt"), "txt");
  EXPECT_EQ(zt::pathExtension("/tmp.d/a"), "");
  EXPECT_EQ(zt::pathExtension("/tmp/a.txt/"), "txt");
  EXPECT_EQ(zt::pathExtension("a."), "");

  EXPECT_EQ(zt::stringByDeletingPathExtension("/tmp/a.txt"), "/tmp/a");
  EXPECT_EQ(zt::stringByDeletingPathExtension("/tmp/a.bundle/"), "/tmp/a");
  EXPECT_EQ(zt::stringByDeletingPathExtension(".hidden"), ".hidden");
  EXPECT_EQ(zt::stringByDeletingPathExtension("/"), "/");
}

TEST(PathVocabulary, JoiningAndSplitting) {
  EXPECT_EQ(zt::stringByAppendingPathComponent("/tmp", "a"), "/tmp/a");
  EXPECT_EQ(zt::stringByAppendingPathComponent("/tmp/", "/a/"), "/tmp/a");
  EXPECT_EQ(zt::stringByAppendingPathComponent("/", "a"), "/a");
  EXPECT_EQ(zt::stringByAppendingPathComponent("", "a"), "a");
  EXPECT_EQ(zt::stringByAppendingPathComponent("/tmp", ""), "/tmp");
  EXPECT_EQ(zt::stringByAppendingPathExtension("/tmp/a", "txt"), "/tmp/a.txt");
  EXPECT_EQ(zt::stringByAppendingPathExtension("/tmp/", "txt"), "/tmp.txt");

  EXPECT_EQ(zt::pathComponents("/a//b"), (std::vector<std::string>{"/", "a", "b"}));
  EXPECT_EQ(zt::pathComponents("a/b/"), (std::vector<std::string>{"a", "b", "/"}));
  EXPECT_EQ(zt::pathComponents("/"), (std::vector<std::string>{"/"}));
  EXPECT_TRUE(zt::pathComponents("").empty());
  EXPECT_EQ(zt::pathWithComponents({"/", "a", "b"}), "/a/b");
  EXPECT_EQ(zt::pathWithComponents(zt::pathComponents("/x/y/z/")), "/x/y/z");
}

TEST(PathStrings, SlashHelpers) {
  EXPECT_EQ(zt::stringByPrependingSlashToPath("a"), "/a");
  EXPECT_EQ(zt::stringByPrependingSlashToPath("/a"), "/a");
  EXPECT_EQ(zt::stringByPrependingSlashToPath(""), "");
  EXPECT_EQ(zt::stringByAppendingSlashToPath(""), "/");
  EXPECT_EQ(zt::stringByAppendingSlashToPath("/a"), "/a/");
  EXPECT_EQ(zt::stringByAppendingSlashToPath("/a/"), "/a/");
}

TEST(PathStrings, NormalizationOptions) {
  EXPECT_EQ(zt::stringByNormalizingPathAndAddingTrailingSlash("/a//b/", true), "/a/b/");
  EXPECT_EQ(zt::stringByNormalizingPathAndAddingTrailingSlash("/a//b/", false), "/a/b");
  ScratchFolder dir;
  zt::test::makeDirectory(dir / "real/sub");
  ASSERT_EQ(::symlink((dir / "real").c_str(), (dir / "link").c_str()), 0);
  EXPECT_EQ(zt::stringByNormalizingPathWithOptions(dir / "link/sub/missing/x", ZTPathNormalizationResolveSymbolicLinks),
            dir / "real/sub/missing/x");
  EXPECT_EQ(zt::stringByNormalizingPathWithOptions(dir / "link", ZTPathNormalizationForComparison), dir / "real/");
  EXPECT_EQ(zt::stringByNormalizingPathWithOptions("/zt-missing/a", ZTPathNormalizationForComparison),
            "/zt-missing/a/");
  // A link to a link resolves fully; a dangling link stays as it is, with what follows it.
  ASSERT_EQ(::symlink((dir / "link").c_str(), (dir / "link2").c_str()), 0);
  EXPECT_EQ(zt::stringByNormalizingPathWithOptions(dir / "link2/sub", ZTPathNormalizationResolveSymbolicLinks),
            dir / "real/sub");
  ASSERT_EQ(::symlink((dir / "nowhere").c_str(), (dir / "dangling").c_str()), 0);
  EXPECT_EQ(zt::stringByNormalizingPathWithOptions(dir / "dangling/x", ZTPathNormalizationResolveSymbolicLinks),
            dir / "dangling/x");
  EXPECT_EQ(zt::stringByNormalizingPathWithOptions("relative/link", ZTPathNormalizationResolveSymbolicLinks),
            "relative/link");
}

TEST(PathStrings, DeletingBeginnings) {
  EXPECT_EQ(zt::stringByDeletingBeginningOfPath("/a/b/c", "/a"), "/b/c");
  EXPECT_EQ(zt::stringByDeletingBeginningOfPath("/a/b/c/", "/a"), "/b/c/");
  EXPECT_EQ(zt::stringByDeletingBeginningOfPath("/a", "/a"), "/");
  EXPECT_EQ(zt::stringByDeletingBeginningOfPath("/x/a/b", "/a"), "/b");  // found anywhere
  EXPECT_EQ(zt::stringByDeletingBeginningOfPath("/x//y", "/q"), "/x/y");

  EXPECT_EQ(zt::stringByDeletingBeginningOfNormalizedPath("/a/b/c", "/a"), "/b/c");
  EXPECT_EQ(zt::stringByDeletingBeginningOfNormalizedPath("/a/", "/a"), "/");
  EXPECT_EQ(zt::stringByDeletingBeginningOfNormalizedPath("/a/b", "/x"), "/a/b");
}

TEST(PathStrings, ComparisonsUseNormalizedForms) {
  EXPECT_TRUE(zt::isBasePathOfPath("/a/b", "/a/b/c"));
  EXPECT_FALSE(zt::isBasePathOfPath("/a/b", "/a/b/"));
  EXPECT_FALSE(zt::isBasePathOfPath("/a/b", "/a/bc"));
  EXPECT_FALSE(zt::isBasePathOfPath("", "/a"));
  EXPECT_TRUE(zt::isEqualOrBasePathOfPath("/a/b", "/a/b/"));
  EXPECT_TRUE(zt::isEqualOrBasePathOfPath("/a/b", "/a/b/c"));
  EXPECT_FALSE(zt::isEqualOrBasePathOfPath("/a/b", "/a/bc"));
  EXPECT_FALSE(zt::isEqualOrBasePathOfPath("/a", ""));
  EXPECT_TRUE(zt::isEqualToPath("/a/./b/", "/a//b"));
  EXPECT_FALSE(zt::isEqualToPath("", "/"));
  EXPECT_TRUE(zt::isEqualToPath("", ""));
  EXPECT_TRUE(zt::isEqualToCaseInsensitivePath("/Tmp/ÄB", "/tmp/äb/"));
  EXPECT_FALSE(zt::isEqualToCaseInsensitivePath("/tmp/a", "/tmp/b"));
}

TEST(PathStrings, SymbolicLinksCompareAsTheirTargets) {
  ScratchFolder dir;
  zt::test::makeDirectory(dir / "real");
  ASSERT_EQ(::symlink((dir / "real").c_str(), (dir / "link").c_str()), 0);
  EXPECT_TRUE(zt::isEqualToPath(dir / "link", dir / "real"));
  EXPECT_TRUE(zt::isBasePathOfPath(dir / "link", dir / "real/new-file"));
  EXPECT_FALSE(zt::isBasePathOfPath(dir / "link", dir / "real"));
}

TEST(PathStrings, DirectParent) {
  EXPECT_TRUE(zt::isDirectParentPathOfPath("/a", "/a/b"));
  EXPECT_TRUE(zt::isDirectParentPathOfPath("/a/", "/a/b/"));
  EXPECT_TRUE(zt::isDirectParentPathOfPath("/", "/a"));
  EXPECT_FALSE(zt::isDirectParentPathOfPath("/a", "/a/b/c"));
  EXPECT_FALSE(zt::isDirectParentPathOfPath("/", "/"));
  EXPECT_FALSE(zt::isDirectParentPathOfPath("/a", ""));
}

TEST(PathStrings, RelativePathBelowBase) {
  EXPECT_EQ(zt::relativePathWithBasePath("/a/b/c/d", "/a/b"), "c/d");
  EXPECT_EQ(zt::relativePathWithBasePath("/a/b/c", "/a/b"), "c");
  EXPECT_EQ(zt::relativePathWithBasePath("/a/b", "/a/b"), std::nullopt);
  EXPECT_EQ(zt::relativePathWithBasePath("/x/y", "/a"), "/x/y");  // not below: a copy
  EXPECT_EQ(zt::relativePathWithBasePath("/a/b", ""), "/a/b");
}

TEST(PathStrings, LastURLComponentAndExtensions) {
  EXPECT_EQ(zt::stringByDeletingLastURLComponent("/a/b"), "/a/");
  EXPECT_EQ(zt::stringByDeletingLastURLComponent("https://h/x/y.html"), "https://h/x/");
  EXPECT_EQ(zt::stringByDeletingLastURLComponent("a"), "");

  EXPECT_EQ(zt::stringBySettingPathExtension("a.txt", "md", true), "a.md");
  EXPECT_EQ(zt::stringBySettingPathExtension("a.txt", "", true), "a");
  EXPECT_EQ(zt::stringBySettingPathExtension("a", "md", true), "a.md");
  EXPECT_EQ(zt::stringBySettingPathExtension("a.txt", "md", false), "a.txt.md");
  EXPECT_EQ(zt::stringBySettingPathExtension("a.TXT", "txt", false), "a.TXT");
  EXPECT_EQ(zt::stringBySettingPathExtension("a.txt", "", false), "a.txt");
}

TEST(PathStrings, Standardizing) {
  EXPECT_EQ(zt::stringByStandardizingPath(""), "");
  EXPECT_EQ(zt::stringByStandardizingPath("/"), "/");
  EXPECT_EQ(zt::stringByStandardizingPath("//"), "/");
  EXPECT_EQ(zt::stringByStandardizingPath("/.."), "/");
  EXPECT_EQ(zt::stringByStandardizingPath("./"), ".");
  EXPECT_EQ(zt::stringByStandardizingPath("/a/b/../../c/"), "/c");
}

}  // namespace
