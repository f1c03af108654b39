#include "zentrel/filesystem/unique_names.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>

#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/platform/exceptions.h"

namespace {

using zt::test::ScopedEnvironment;
using zt::test::ScratchFolder;

// A folder of taken names; records every candidate it is asked about.
struct Taken {
  std::set<std::string> names;
  std::vector<std::string> asked;

  ZTCanCreateItemBlock canCreate() {
    return [this](const std::string& name, const std::any&) {
      asked.push_back(name);
      return names.count(name) == 0;
    };
  }
};

std::string unique(Taken& taken, const std::string& name, bool isDirectory, std::optional<std::string> separator,
                   std::optional<std::string> suffix, std::int64_t start) {
  return ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock(name, {}, isDirectory, separator, suffix, start,
                                                            taken.canCreate());
}

TEST(UniqueName, FreeNameIsKept) {
  Taken taken{{"a-1.txt", "a-2.txt"}};
  EXPECT_EQ(unique(taken, "a.txt", false, "-", std::nullopt, 1), "a.txt");
  EXPECT_EQ(taken.asked, (std::vector<std::string>{"a.txt"}));
}

TEST(UniqueName, NumbersFromStartNumber) {
  Taken taken{{"a.txt", "a-1.txt", "a-2.txt", "a-3.txt", "a-4.txt", "a-5.txt"}};
  EXPECT_EQ(unique(taken, "a.txt", false, "-", std::nullopt, 1), "a-6.txt");
  EXPECT_EQ(taken.asked,
            (std::vector<std::string>{"a.txt", "a-1.txt", "a-2.txt", "a-3.txt", "a-4.txt", "a-5.txt", "a-6.txt"}));
  Taken empty{{"a"}};
  EXPECT_EQ(unique(empty, "a", false, " ", std::nullopt, 7), "a 7");
}

TEST(UniqueName, CanonicalNumberAtTheEndContinuesTheSequence) {
  Taken taken{{"file-41.txt"}};
  EXPECT_EQ(unique(taken, "file-41.txt", false, "-", std::nullopt, 1), "file-42.txt");
  Taken big{{"r-2147483647.txt"}};
  EXPECT_EQ(unique(big, "r-2147483647.txt", false, "-", std::nullopt, 1), "r-2147483648.txt");
  // Only the last separator counts.
  Taken dashed{{"my-file-3"}};
  EXPECT_EQ(unique(dashed, "my-file-3", false, "-", std::nullopt, 1), "my-file-4");
}

TEST(UniqueName, NonCanonicalTailsAreNumberedAsWholeStems) {
  for (const auto& [name, expected] :
       std::vector<std::pair<std::string, std::string>>{{"file-00.txt", "file-00-1.txt"},
                                                        {"report-03.txt", "report-03-1.txt"},
                                                        {"v-1a.txt", "v-1a-1.txt"},
                                                        {"v-+1.txt", "v-+1-1.txt"},
                                                        {"v-.txt", "v--1.txt"},
                                                        {"v-99999999999.txt", "v-99999999999-1.txt"}}) {
    Taken taken{{name}};
    EXPECT_EQ(unique(taken, name, false, "-", std::nullopt, 1), expected) << name;
  }
}

TEST(UniqueName, TailIsReadOneUnitAfterTheSeparatorStart) {
  // With a three-character separator the tail starts inside it, so no number is ever recognised.
  Taken taken{{"a - 3.txt"}};
  EXPECT_EQ(unique(taken, "a - 3.txt", false, " - ", std::nullopt, 1), "a - 3 - 1.txt");
  // A one-unit separator outside ASCII works like "-".
  Taken dash{{"a—3.txt"}};
  EXPECT_EQ(unique(dash, "a—3.txt", false, "—", std::nullopt, 1), "a—4.txt");
}

TEST(UniqueName, SuffixSequence) {
  Taken taken{{"a.txt"}};
  EXPECT_EQ(unique(taken, "a.txt", false, " ", "copy", 2), "a copy.txt");
  taken.names.insert("a copy.txt");
  taken.asked.clear();
  EXPECT_EQ(unique(taken, "a.txt", false, " ", "copy", 2), "a copy 2.txt");
  taken.names.insert("a copy 2.txt");
  EXPECT_EQ(unique(taken, "a.txt", false, " ", "copy", 2), "a copy 3.txt");
  // A suffix disables the number continuation.
  Taken numbered{{"a 3.txt", "a 3 copy.txt"}};
  EXPECT_EQ(unique(numbered, "a 3.txt", false, " ", "copy", 2), "a 3 copy 2.txt");
}

TEST(UniqueName, DirectoriesAreNumberedOnTheWholeName) {
  Taken taken{{"pkg.app"}};
  EXPECT_EQ(unique(taken, "pkg.app", true, "-", std::nullopt, 1), "pkg.app-1");
  Taken file{{"pkg.app"}};
  EXPECT_EQ(unique(file, "pkg.app", false, "-", std::nullopt, 1), "pkg-1.app");
  Taken copy{{"My.Folder"}};
  EXPECT_EQ(unique(copy, "My.Folder", true, " ", "copy", 2), "My.Folder copy");
}

TEST(UniqueName, MissingSeparatorStillGivesAFreeNameWithTheExtension) {
  // Callers pass a separator whenever they pass no suffix; without one the name must still be free,
  // keep the stem, counter and extension, and never be a taken name.
  Taken taken{{"a.txt"}};
  const std::string name = unique(taken, "a.txt", false, std::nullopt, std::nullopt, 1);
  EXPECT_NE(name, "a.txt");
  EXPECT_EQ(name.rfind("a", 0), 0u);
  EXPECT_TRUE(name.ends_with("1.txt")) << name;
}

TEST(UniqueName, ParentContextIsPassedThrough) {
  const std::any parent = std::string("remote:/folder");
  int calls = 0;
  const std::string name = ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock(
      "x", parent, false, "-", std::nullopt, 1, [&](const std::string&, const std::any& given) {
        EXPECT_EQ(std::any_cast<std::string>(given), "remote:/folder");
        return ++calls == 3;
      });
  EXPECT_EQ(name, "x-2");
}

TEST(UniqueName, MissingHandlerIsAProgrammingError) {
  EXPECT_THROW((void)ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock("a", {}, false, "-", std::nullopt, 1, {}),
               ZTInternalInconsistencyException);
  EXPECT_THROW((void)ZTGenerateUniquePathUsingItemExistsBlock("/d/a", false, "-", std::nullopt, 1, {}),
               ZTInternalInconsistencyException);
}

TEST(UniquePath, UsesTheExistenceHandlerOnFullPaths) {
  std::vector<std::string> asked;
  const std::string path = ZTGenerateUniquePathUsingItemExistsBlock("/d/a.txt", false, "-", std::nullopt, 1,
                                                                    [&](const std::string& candidate) {
                                                                      asked.push_back(candidate);
                                                                      return candidate != "/d/a-2.txt";
                                                                    });
  EXPECT_EQ(path, "/d/a-2.txt");
  EXPECT_EQ(asked, (std::vector<std::string>{"/d/a.txt", "/d/a-1.txt", "/d/a-2.txt"}));
}

TEST(UniquePath, MacStyleOnRealFiles) {
  ScratchFolder dir;
  EXPECT_EQ(ZTGenerateMacStyleUniquePath(dir / "a.txt", false), dir / "a.txt");
  for (const char* name : {"a-1.txt", "a-2.txt", "a-3.txt", "a-4.txt", "a-5.txt"}) zt::test::writeFile(dir / name, "x");
  // Numbered files alone do not make the name taken.
  EXPECT_EQ(ZTGenerateMacStyleUniquePath(dir / "a.txt", false), dir / "a.txt");
  zt::test::writeFile(dir / "a.txt", "x");
  EXPECT_EQ(ZTGenerateMacStyleUniquePath(dir / "a.txt", false), dir / "a-6.txt");
  EXPECT_EQ(ZTGenerateMacStyleUniquePath(dir / "a-5.txt", false), dir / "a-6.txt");

  zt::test::makeDirectory(dir / "pkg.app");
  EXPECT_EQ(ZTGenerateMacStyleUniquePath(dir / "pkg.app", true), dir / "pkg.app-1");
  // A dangling symbolic link occupies its name.
  ASSERT_EQ(::symlink((dir / "nowhere").c_str(), (dir / "link.txt").c_str()), 0);
  EXPECT_EQ(ZTGenerateMacStyleUniquePath(dir / "link.txt", false), dir / "link-1.txt");
  EXPECT_EQ(ZTGenerateUniquePath(dir / "a.txt", false, " ", "copy", 2), dir / "a copy.txt");
}

}  // namespace
