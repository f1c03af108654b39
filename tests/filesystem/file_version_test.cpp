#include "zentrel/filesystem/file_version.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/file_version_conflicts.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/thread.h"

namespace {

using zt::test::LogCapture;
using zt::test::ScopedEnvironment;
using zt::test::ScratchFolder;
using zt::test::writeFile;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    names.insert(it->path().filename().string());
  return names;
}

ZTDate localDate(int year, int month, int day, int hour, int minute, int second) {
  std::tm parts{};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  parts.tm_isdst = -1;
  return ZTDate::dateWithTimeIntervalSince1970(static_cast<double>(std::mktime(&parts)));
}

void setModificationTime(const std::string& path, ZTDate date) {
  struct timespec times[2];
  times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(date.timeIntervalSince1970());
  times[0].tv_nsec = times[1].tv_nsec = 0;
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

ZTFileURL fileURL(const std::string& path) { return ZTFileURL::fileURLWithPath(path); }

std::shared_ptr<ZTFileVersion> versionNamed(const ZTFileVersionList& versions, const std::string& fileName) {
  for (const auto& v : versions)
    if (v->URL().path().size() >= fileName.size() &&
        v->URL().path().compare(v->URL().path().size() - fileName.size(), fileName.size(), fileName) == 0)
      return v;
  return nullptr;
}

// ---- the naming table --------------------------------------------------------------------------

TEST(ConflictCopyNames, RecognisesEachClientsNamesWithTheirDevice) {
  struct Case {
    const char* item;
    const char* copy;
    const char* client;
    std::optional<std::string> device;
    ZTDate date;
  };
  const Case cases[] = {
      {"Report.pdf", "Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "Syncthing", "ABCDEFG",
       localDate(2024, 3, 5, 14, 7, 33)},
      {"archive.tar.gz", "archive.tar.sync-conflict-20231231-235959-Q7RZ2KD.gz", "Syncthing", "Q7RZ2KD",
       localDate(2023, 12, 31, 23, 59, 59)},
      {"Makefile", "Makefile.sync-conflict-20240101-000000-AAAAAAA", "Syncthing", "AAAAAAA",
       localDate(2024, 1, 1, 0, 0, 0)},
      {"Report.pdf", "Report (conflicted copy 2024-03-05 140733).pdf", "Nextcloud", std::nullopt,
       localDate(2024, 3, 5, 14, 7, 33)},
      {"Report.pdf", "Report (conflicted copy alice 2024-03-05 140733).pdf", "Nextcloud", "alice",
       localDate(2024, 3, 5, 14, 7, 33)},
      {"notes.txt", "notes_conflict-20240305-140733.txt", "Nextcloud", std::nullopt,
       localDate(2024, 3, 5, 14, 7, 33)},
      {"Report.pdf", "Report (Bob's conflicted copy 2024-03-05).pdf", "Dropbox", "Bob", localDate(2024, 3, 5, 0, 0, 0)},
      {"Report.pdf", "Report (Bob's conflicted copy 2024-03-05) (2).pdf", "Dropbox", "Bob",
       localDate(2024, 3, 5, 0, 0, 0)},
      {"Report.pdf", "Report (Jürgen Müller\xE2\x80\x99s conflicted copy 2024-03-05).pdf", "Dropbox", "Jürgen Müller",
       localDate(2024, 3, 5, 0, 0, 0)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.copy);
    const auto parsed = ZTFileVersion::parseConflictCopyName(c.item, c.copy);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(parsed->syncClient, c.client);
    EXPECT_EQ(parsed->deviceName, c.device);
    EXPECT_EQ(parsed->nameDate, c.date);
  }
}

TEST(ConflictCopyNames, RejectsLookalikesOtherDocumentsAndImpossibleDates) {
  const char* notCopies[] = {
      "Report.pdf",                                        // the item itself
      "Report-2.pdf",                                      // a unique-name copy, not a conflict
      "Report (conflicted copy 2024-13-05 140733).pdf",    // month 13
      "Report (conflicted copy 2024-04-31 140733).pdf",    // 31 April
      "Report (conflicted copy 2024-03-05 250000).pdf",    // hour 25
      "Report.sync-conflict-20240305-140733-ABCDEFG.txt",  // another extension
      "Report.sync-conflict-20240305-140733-.pdf",         // no device
      "Reports.sync-conflict-20240305-140733-ABCDEFG.pdf", // another stem
      "Report (Bob's conflicted copy 2024-03-05) (x).pdf", // counter not a number
      "Report (conflicted copy 2024-03-05 140733).pdf.part",
  };
  for (const char* name : notCopies) EXPECT_FALSE(ZTFileVersion::parseConflictCopyName("Report.pdf", name)) << name;
  EXPECT_FALSE(ZTFileVersion::parseConflictCopyName("", "x.sync-conflict-20240305-140733-ABCDEFG"));
}

// ---- listing -----------------------------------------------------------------------------------

struct Document {
  ScratchFolder scratch;
  std::unique_ptr<ScopedEnvironment> dataHome;
  std::string item;
  Document() {
    dataHome = std::make_unique<ScopedEnvironment>("XDG_DATA_HOME", (scratch / "data").c_str());
    zt::test::makeDirectory(scratch / "docs");
    item = scratch / "docs/Report.pdf";
    writeFile(item, "current");
  }
  std::string copy(const std::string& name, std::string_view contents, ZTDate date) {
    const std::string path = scratch / ("docs/" + name);
    writeFile(path, contents);
    setModificationTime(path, date);
    return path;
  }
  std::string trashed(const std::string& name) const { return scratch / ("data/Trash/files/" + name); }
};

TEST(FileVersionListing, FindsEveryClientsCopiesAmongThousandsOfUnrelatedFiles) {
  Document doc;
  for (int i = 0; i < 2000; ++i) writeFile(doc.scratch / ("docs/Report-" + std::to_string(i) + ".pdf"), "x");
  writeFile(doc.scratch / "docs/Other (conflicted copy 2024-03-05 140733).pdf", "other document");
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "s", localDate(2024, 3, 5, 14, 7, 33));
  doc.copy("Report (conflicted copy alice 2024-03-06 101010).pdf", "n", localDate(2024, 3, 6, 10, 10, 10));
  doc.copy("Report (Bob's conflicted copy 2024-03-07) (1).pdf", "d", localDate(2024, 3, 7, 9, 0, 0));
  zt::test::makeDirectory(doc.scratch / "docs/Report_conflict-20240305-140733.pdf");  // a folder: not a copy

  const auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(others.size(), 3u);
  for (const auto& v : others) {
    EXPECT_TRUE(v->isConflict());
    EXPECT_FALSE(v->isResolved());
    EXPECT_EQ(v->localizedName(), "Report.pdf");
  }
  EXPECT_EQ(versionNamed(others, "ABCDEFG.pdf")->localizedNameOfSavingComputer(), "ABCDEFG");
  EXPECT_EQ(versionNamed(others, "101010).pdf")->localizedNameOfSavingComputer(), "alice");
  EXPECT_EQ(versionNamed(others, "(1).pdf")->localizedNameOfSavingComputer(), "Bob");
  EXPECT_EQ(versionNamed(others, "(1).pdf")->modificationDate(), localDate(2024, 3, 7, 9, 0, 0));

  const auto all = zt::allVersionsOfItemAtURL(fileURL(doc.item));
  EXPECT_EQ(all.size(), 4u);
  const auto current = versionNamed(all, "/Report.pdf");
  ASSERT_TRUE(current);
  EXPECT_FALSE(current->isConflict());
  EXPECT_FALSE(current->localizedNameOfSavingComputer());
}

TEST(FileVersionListing, LatestVersionKeepsTheFirstOnEqualDates) {
  Document doc;
  setModificationTime(doc.item, localDate(2024, 3, 5, 12, 0, 0));
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "old", localDate(2024, 3, 1, 0, 0, 0));
  auto latest = zt::latestVersionOfItemAtURL(fileURL(doc.item));
  ASSERT_TRUE(latest);
  EXPECT_FALSE(latest->isConflict());

  doc.copy("Report (conflicted copy 2024-03-05 120000).pdf", "tie", localDate(2024, 3, 5, 12, 0, 0));
  latest = zt::latestVersionOfItemAtURL(fileURL(doc.item));
  EXPECT_FALSE(latest->isConflict()) << "the current version is met first and keeps a tie";

  doc.copy("Report (Bob's conflicted copy 2024-03-09).pdf", "new", localDate(2024, 3, 9, 0, 0, 0));
  latest = zt::latestVersionOfItemAtURL(fileURL(doc.item));
  EXPECT_EQ(latest->localizedNameOfSavingComputer(), "Bob");

  EXPECT_FALSE(zt::latestVersionOfItemAtURL(fileURL(doc.scratch / "docs/missing.pdf")));
  EXPECT_FALSE(zt::latestVersionOfItemAtURL(ZTFileURL::URLWithString("https://example.org/Report.pdf")));
}

TEST(FileVersionListing, ResolvedCopiesLeaveTheListUntilUnmarked) {
  Document doc;
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "s", localDate(2024, 3, 5, 14, 7, 33));
  auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(others.size(), 1u);
  others[0]->setResolved(true);
  EXPECT_TRUE(ZTFileVersion::unresolvedConflictVersionsOfItemAtURL(fileURL(doc.item)).empty());
  others[0]->setResolved(false);
  EXPECT_EQ(ZTFileVersion::unresolvedConflictVersionsOfItemAtURL(fileURL(doc.item)).size(), 1u);
}

// ---- the version store ----------------------------------------------------------------------

TEST(FileVersionStore, KeepsAnApplicationsVersionsWithTheirDetails) {
  Document doc;
  writeFile(doc.scratch / "draft.pdf", "draft from the laptop");
  setModificationTime(doc.scratch / "draft.pdf", localDate(2024, 3, 5, 14, 7, 33));
  ZTError error;
  const auto conflict = ZTFileVersion::addVersionOfItemAtURL(fileURL(doc.item), fileURL(doc.scratch / "draft.pdf"),
                                                             std::string("laptop"), true, &error);
  ASSERT_TRUE(conflict) << error.description();
  EXPECT_TRUE(conflict->isStored());
  EXPECT_TRUE(conflict->isConflict());
  EXPECT_EQ(conflict->localizedName(), "Report.pdf");
  EXPECT_EQ(conflict->localizedNameOfSavingComputer(), "laptop");
  EXPECT_EQ(conflict->modificationDate(), localDate(2024, 3, 5, 14, 7, 33));
  EXPECT_EQ(conflict->URL().path().rfind(doc.scratch / "data/zentrel/versions/", 0), 0u) << conflict->URL().path();
  EXPECT_EQ(readFile(conflict->URL().path()), "draft from the laptop");
  const auto kept = ZTFileVersion::addVersionOfItemAtURL(fileURL(doc.item), fileURL(doc.item), std::nullopt, false);
  ASSERT_TRUE(kept);

  EXPECT_EQ(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).size(), 2u);
  auto conflicts = ZTFileVersion::unresolvedConflictVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(conflicts.size(), 1u);
  EXPECT_EQ(conflicts[0]->localizedNameOfSavingComputer(), "laptop");
  EXPECT_EQ(zt::allVersionsOfItemAtURL(fileURL(doc.item)).size(), 3u);

  // The resolved mark is kept in the store, so a fresh listing (another process, say) sees it.
  conflicts[0]->setResolved(true);
  EXPECT_TRUE(ZTFileVersion::unresolvedConflictVersionsOfItemAtURL(fileURL(doc.item)).empty());
  const std::string folder = conflict->URL().path().substr(0, conflict->URL().path().rfind('/'));
  conflicts[0]->setResolved(false);

  // Removing a stored conflict puts its copy in the trash and takes it off the list.
  conflicts = ZTFileVersion::unresolvedConflictVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(conflicts.size(), 1u);
  EXPECT_TRUE(zt::removeConflictFileVersions(conflicts, nullptr, &error)) << error.description();
  EXPECT_FALSE(zt::test::exists(conflict->URL().path()));
  EXPECT_EQ(readFile(doc.trashed(conflict->URL().path().substr(folder.size() + 1))), "draft from the laptop");
  EXPECT_EQ(readFile(folder + "/versions.plist").find("laptop"), std::string::npos);
  EXPECT_EQ(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).size(), 1u);
  EXPECT_EQ(readFile(doc.item), "current");

  // Stored versions outlive the document and its folder.
  std::filesystem::remove_all(doc.scratch / "docs");
  EXPECT_EQ(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).size(), 1u);
}

TEST(FileVersionStore, BadContentsAndABrokenListLeaveNothingHalfDone) {
  Document doc;
  ZTError error;
  EXPECT_FALSE(ZTFileVersion::addVersionOfItemAtURL(fileURL(doc.item), fileURL(doc.scratch / "missing.pdf"),
                                                    std::nullopt, true, &error));
  EXPECT_EQ(error.code(), ZTFileReadNoSuchFileError);
  EXPECT_FALSE(ZTFileVersion::addVersionOfItemAtURL(fileURL(doc.item), fileURL(doc.scratch / "docs"), std::nullopt,
                                                    true, &error));
  EXPECT_TRUE(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).empty());

  const auto first = ZTFileVersion::addVersionOfItemAtURL(fileURL(doc.item), fileURL(doc.item), std::nullopt, true);
  ASSERT_TRUE(first);
  const std::string folder = first->URL().path().substr(0, first->URL().path().rfind('/'));
  writeFile(folder + "/versions.plist", "<?xml version=\"1.0\"?><plist><dict><key>item</key>");
  EXPECT_TRUE(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).empty()) << "an unreadable list is empty";
  EXPECT_TRUE(ZTFileVersion::addVersionOfItemAtURL(fileURL(doc.item), fileURL(doc.item), std::nullopt, true));
  EXPECT_EQ(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).size(), 1u);
  const auto names = namesIn(folder);
  EXPECT_EQ(std::count_if(names.begin(), names.end(), [](const std::string& n) { return n[0] == '.'; }), 0)
      << "no temporary list left";
}

// ---- names -------------------------------------------------------------------------------------

TEST(ConflictFileNames, NameDeviceAndWeekBasedYear) {
  const ZTDate march = localDate(2024, 3, 5, 14, 7, 33);
  EXPECT_EQ(zt::fileNameForConflictFileName("Report.pdf", std::string("Mac mini"), march),
            "Report (Mac mini 2024-03-05 14-07-33).pdf");
  EXPECT_EQ(zt::fileNameForConflictFileName("Report.pdf", std::nullopt, march), "Report (2024-03-05 14-07-33).pdf");
  EXPECT_EQ(zt::fileNameForConflictFileName("Makefile", std::string("pc"), march), "Makefile (pc 2024-03-05 14-07-33)");
  EXPECT_EQ(zt::fileNameForConflictFileName("Report.pdf", std::string("pc"), std::nullopt), "Report (pc (null)).pdf");
  // 30 December 2024 is in the first week of 2025.
  EXPECT_EQ(zt::fileNameForConflictFileName("a.txt", std::nullopt, localDate(2024, 12, 30, 8, 0, 0)),
            "a (2025-12-30 08-00-00).txt");
}

TEST(ConflictFileNames, DeviceNamesKeepOnlySingleUnitCharacters) {
  EXPECT_EQ(zt::stringByLeavingOnlyBasicMultilingualPlaneCharactersInString("B\xC3\xBCro \xF0\x9F\x93\xB1"), "B\xC3\xBCro ");
  EXPECT_EQ(zt::stringByLeavingOnlyBasicMultilingualPlaneCharactersInString("Bu\xCC\x88ro \xF0\x9F\x93\xB1"), "Bro ");
  EXPECT_EQ(zt::stringByLeavingOnlyBasicMultilingualPlaneCharactersInString("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x92\xBB"), "");
  EXPECT_EQ(zt::stringByLeavingOnlyBasicMultilingualPlaneCharactersInString("\xE6\x9D\xB1\xE4\xBA\xAC"), "\xE6\x9D\xB1\xE4\xBA\xAC");
  EXPECT_EQ(zt::stringByLeavingOnlyBasicMultilingualPlaneCharactersInString(""), "");
}

// ---- removing and saving -----------------------------------------------------------------------

TEST(ConflictRemoval, GoesToTheTrashAndRefusesWhatIsNotAConflict) {
  Document doc;
  const std::string copy =
      doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "s", localDate(2024, 3, 5, 14, 7, 33));
  const ZTError sentinel(ZTCocoaErrorDomain, 42);
  ZTError error = sentinel;
  EXPECT_FALSE(zt::removeConflictFileVersions({}, nullptr, &error));
  EXPECT_EQ(error, sentinel);
  const auto current = ZTFileVersion::currentVersionOfItemAtURL(fileURL(doc.item));
  EXPECT_FALSE(zt::removeConflictFileVersions({current}, nullptr, &error));
  EXPECT_EQ(error, sentinel) << "a version that is not a conflict leaves the error alone";
  EXPECT_TRUE(zt::test::exists(doc.item));

  const auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(others.size(), 1u);
  EXPECT_TRUE(zt::removeConflictFileVersions(others, nullptr, &error));
  EXPECT_EQ(error.code(), 0);
  EXPECT_TRUE(others[0]->isResolved());
  EXPECT_FALSE(zt::test::exists(copy));
  EXPECT_EQ(readFile(doc.trashed("Report.sync-conflict-20240305-140733-ABCDEFG.pdf")), "s");
  EXPECT_TRUE(zt::test::exists(doc.scratch / "data/Trash/info/Report.sync-conflict-20240305-140733-ABCDEFG.pdf.trashinfo"));
  EXPECT_TRUE(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).empty());

  // Removed a second time: it has vanished.
  EXPECT_FALSE(zt::removeConflictFileVersion(others[0], nullptr, &error));
  EXPECT_EQ(error.code(), ENOENT);
}

TEST(ConflictSaving, ReplacesTheItemWholeOrLeavesItAlone) {
  Document doc;
  doc.copy("Report (conflicted copy 2024-03-05 140733).pdf", "their edit", localDate(2024, 3, 5, 14, 7, 33));
  auto version = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).at(0);
  ZTError error;
  const auto saved = zt::resolveConflictFileVersion(version, fileURL(doc.item), nullptr, &error);
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->path(), doc.item);
  EXPECT_EQ(readFile(doc.item), "their edit");
  EXPECT_EQ(namesIn(doc.scratch / "docs"), std::set<std::string>{"Report.pdf"}) << "no temporary file, copy trashed";

  // A version that vanished before it was saved: nothing written, the error says why.
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "s", localDate(2024, 3, 5, 14, 7, 33));
  version = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).at(0);
  std::filesystem::remove(version->URL().path());
  EXPECT_FALSE(zt::resolveConflictFileVersion(version, fileURL(doc.item), nullptr, &error));
  EXPECT_EQ(error.domain(), ZTCocoaErrorDomain);
  EXPECT_EQ(error.code(), ZTFileReadNoSuchFileError);
  EXPECT_EQ(readFile(doc.item), "their edit");

  // A target in a folder that cannot exist: the copy is still removed (to the trash) and the
  // result is nil.
  doc.copy("Report (Bob's conflicted copy 2024-03-05).pdf", "d", localDate(2024, 3, 5, 0, 0, 0));
  version = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).at(0);
  EXPECT_FALSE(zt::resolveConflictFileVersion(version, fileURL(doc.item + "/inside.pdf"), nullptr, &error));
  EXPECT_NE(error.code(), 0);
  EXPECT_EQ(readFile(doc.trashed("Report (Bob's conflicted copy 2024-03-05).pdf")), "d");
}

TEST(ConflictSaving, SavesSeveralBesideEachOtherUnderUniqueNames) {
  Document doc;
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "one", localDate(2024, 3, 5, 14, 7, 33));
  doc.copy("Report (conflicted copy alice 2024-03-05 140733).pdf", "two", localDate(2024, 3, 5, 14, 7, 33));
  zt::test::makeDirectory(doc.scratch / "kept");
  writeFile(doc.scratch / "kept/Report (ABCDEFG 2024-03-05 14-07-33).pdf", "taken");
  const auto versions = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(versions.size(), 2u);
  const auto saved = zt::resolveConflictFileVersions(versions, fileURL(doc.scratch / "kept"), nullptr);
  ASSERT_TRUE(saved);
  ASSERT_EQ(saved->size(), 2u);
  // Listed by name: the Nextcloud copy sorts first.
  EXPECT_EQ((*saved)[0].path(), doc.scratch / "kept/Report (alice 2024-03-05 14-07-33).pdf");
  EXPECT_EQ((*saved)[1].path(), doc.scratch / "kept/Report (ABCDEFG 2024-03-05 14-07-33)-1.pdf");
  EXPECT_EQ(readFile((*saved)[1].path()), "one");
  EXPECT_EQ(readFile(doc.scratch / "kept/Report (ABCDEFG 2024-03-05 14-07-33).pdf"), "taken");
  EXPECT_EQ(namesIn(doc.scratch / "docs"), std::set<std::string>{"Report.pdf"});
}

// ---- the resolution flow, on the real main run loop ----------------------------------------------

struct Progress {
  std::uint64_t processed;
  std::uint64_t total;
  std::optional<std::string> savedPath;
  bool onMainThread;
  friend bool operator==(const Progress&, const Progress&) = default;
};

struct FlowResult {
  std::vector<Progress> progress;
  bool completed = false;
  std::uint64_t completedTotal = 0;
  std::shared_ptr<ZTFileVersion> kept;
  bool failed = false;
  std::shared_ptr<ZTFileVersion> failedVersion;
  ZTError error;
  bool reportsOnMainThread = true;
};

// Starts the flow from the main thread and turns the main run loop until it reports its end (or
// `stopAt` progress reports have been seen, which then asks the flow to stop).
FlowResult runFlow(const std::string& item, const ZTFileVersionList& saving, const ZTFileVersionList& deleting,
                   const std::string& parent, std::size_t stopAt = 0,
                   ZTRemoveCurrentVersionHandler removeCurrent = nullptr) {
  EXPECT_TRUE(ZTThread::isMainThread());
  auto result = std::make_shared<FlowResult>();
  zt::resolveConflictsForItemAtURL(
      fileURL(item), saving, deleting, fileURL(parent), nullptr, std::move(removeCurrent),
      [result, stopAt](std::uint64_t processed, std::uint64_t total, const std::optional<ZTFileURL>& url, bool* stop) {
        result->progress.push_back(
            {processed, total, url ? std::optional<std::string>(url->path()) : std::nullopt, ZTThread::isMainThread()});
        if (stopAt != 0 && result->progress.size() == stopAt) *stop = true;
      },
      [result](std::uint64_t total, const std::shared_ptr<ZTFileVersion>& kept) {
        result->reportsOnMainThread = result->reportsOnMainThread && ZTThread::isMainThread();
        result->completed = true;
        result->completedTotal = total;
        result->kept = kept;
      },
      [result](const std::shared_ptr<ZTFileVersion>& failed, const ZTError& error) {
        result->reportsOnMainThread = result->reportsOnMainThread && ZTThread::isMainThread();
        result->failed = true;
        result->failedVersion = failed;
        result->error = error;
      });
  const auto ended = [&] {
    return result->completed || result->failed || (stopAt != 0 && result->progress.size() >= stopAt);
  };
  ZTRunLoop::main()->runWithCondition([&] { return !ended(); }, std::chrono::seconds(20));
  EXPECT_TRUE(ended()) << "the flow did not end in time";
  // Anything still on its way (a completion after a stop would be a fault) arrives within this turn.
  ZTRunLoop::main()->runOnce(std::chrono::milliseconds(200));
  return *result;
}

TEST(ConflictResolutionFlow, KeepCurrentAndDeleteTheOthers) {
  Document doc;
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "s", localDate(2024, 3, 5, 14, 7, 33));
  doc.copy("Report (Bob's conflicted copy 2024-03-05).pdf", "d", localDate(2024, 3, 5, 0, 0, 0));
  const auto current = ZTFileVersion::currentVersionOfItemAtURL(fileURL(doc.item));
  const auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  const std::string parent = doc.scratch / "saved";

  const FlowResult r = runFlow(doc.item, {current}, others, parent);
  const std::vector<Progress> expected{{1, 3, doc.item, true}, {2, 3, std::nullopt, true}, {3, 3, std::nullopt, true}};
  EXPECT_EQ(r.progress, expected);
  ASSERT_TRUE(r.completed);
  EXPECT_TRUE(r.reportsOnMainThread);
  EXPECT_EQ(r.completedTotal, 3u);
  ASSERT_TRUE(r.kept);
  EXPECT_EQ(r.kept->URL().path(), doc.item);
  EXPECT_FALSE(zt::test::exists(parent)) << "fewer than two to save: no folder";
  EXPECT_EQ(readFile(doc.item), "current");
  EXPECT_EQ(namesIn(doc.scratch / "docs"), std::set<std::string>{"Report.pdf"});
  EXPECT_EQ(namesIn(doc.scratch / "data/Trash/files").size(), 2u);
}

TEST(ConflictResolutionFlow, DeleteEverythingCountsPastTheTotal) {
  Document doc;
  doc.copy("Report (conflicted copy 2024-03-05 140733).pdf", "n", localDate(2024, 3, 5, 14, 7, 33));
  const auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  const FlowResult r = runFlow(doc.item, {}, others, doc.scratch / "saved");
  const std::vector<Progress> expected{{1, 1, doc.item, true}, {2, 1, std::nullopt, true}};
  EXPECT_EQ(r.progress, expected);
  ASSERT_TRUE(r.completed);
  EXPECT_EQ(r.completedTotal, 1u);
  EXPECT_EQ(r.kept->URL().path(), doc.item);
  EXPECT_TRUE(namesIn(doc.scratch / "docs").empty());
  EXPECT_EQ(readFile(doc.trashed("Report.pdf")), "current") << "the document itself can be restored";
}

TEST(ConflictResolutionFlow, SaveTwoWhereNeitherIsCurrentWithATakenName) {
  Document doc;
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "first", localDate(2024, 3, 5, 14, 7, 33));
  doc.copy("Report (Bob's conflicted copy 2024-03-05).pdf", "second", localDate(2024, 3, 5, 14, 7, 33));
  const auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(others.size(), 2u);
  const auto a = versionNamed(others, "ABCDEFG.pdf");
  const auto b = versionNamed(others, "2024-03-05).pdf");
  const std::string parent = doc.scratch / "saved/deeper";
  zt::test::makeDirectory(doc.scratch / "saved");
  zt::test::makeDirectory(parent);
  writeFile(parent + "/Report (Bob 2024-03-05 14-07-33).pdf", "taken");

  const FlowResult r = runFlow(doc.item, {a, b}, {}, parent);
  const std::vector<Progress> expected{{1, 2, doc.item, true},
                                       {2, 2, parent + "/Report (Bob 2024-03-05 14-07-33)-1.pdf", true}};
  EXPECT_EQ(r.progress, expected);
  ASSERT_TRUE(r.completed);
  EXPECT_EQ(r.kept->URL().path(), a->URL().path());
  EXPECT_EQ(readFile(doc.item), "first");
  EXPECT_EQ(readFile(parent + "/Report (Bob 2024-03-05 14-07-33)-1.pdf"), "second");
  EXPECT_EQ(readFile(parent + "/Report (Bob 2024-03-05 14-07-33).pdf"), "taken");
  EXPECT_EQ(namesIn(doc.scratch / "docs"), std::set<std::string>{"Report.pdf"});
}

TEST(ConflictResolutionFlow, StopInTheFirstReportEndsWithoutCompletion) {
  Document doc;
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "s", localDate(2024, 3, 5, 14, 7, 33));
  const auto current = ZTFileVersion::currentVersionOfItemAtURL(fileURL(doc.item));
  const auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  const FlowResult r = runFlow(doc.item, {current}, others, doc.scratch / "saved", 1);
  EXPECT_EQ(r.progress.size(), 1u);
  EXPECT_FALSE(r.completed);
  EXPECT_FALSE(r.failed);
  EXPECT_EQ(ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item)).size(), 1u) << "nothing after the stop";
}

TEST(ConflictResolutionFlow, EmojiDeviceNameIsFilteredInTheSavedName) {
  Document doc;
  doc.copy("Report (B\xC3\xBCro \xF0\x9F\x93\xB1's conflicted copy 2024-03-05).pdf", "dropbox",
           localDate(2024, 3, 5, 14, 7, 33));
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "syncthing", localDate(2024, 3, 5, 14, 7, 33));
  const auto current = ZTFileVersion::currentVersionOfItemAtURL(fileURL(doc.item));
  auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  ASSERT_EQ(others.size(), 2u);
  const auto dropbox = versionNamed(others, "2024-03-05).pdf");
  EXPECT_EQ(dropbox->localizedNameOfSavingComputer(), "B\xC3\xBCro \xF0\x9F\x93\xB1");
  const std::string parent = doc.scratch / "saved";
  const FlowResult r = runFlow(doc.item, {current, dropbox}, {}, parent);
  ASSERT_TRUE(r.completed);
  ASSERT_EQ(r.progress.size(), 2u);
  EXPECT_EQ(r.progress[1].savedPath, parent + "/Report (B\xC3\xBCro  2024-03-05 14-07-33).pdf");
  EXPECT_EQ(readFile(parent + "/Report (B\xC3\xBCro  2024-03-05 14-07-33).pdf"), "dropbox");
}

TEST(ConflictResolutionFlow, FailuresAreReportedWithTheVersionAndLogged) {
  Document doc;
  doc.copy("Report.sync-conflict-20240305-140733-ABCDEFG.pdf", "s", localDate(2024, 3, 5, 14, 7, 33));
  doc.copy("Report (Bob's conflicted copy 2024-03-05).pdf", "d", localDate(2024, 3, 5, 14, 7, 33));
  auto others = ZTFileVersion::otherVersionsOfItemAtURL(fileURL(doc.item));
  {
    // The save folder cannot be made (a file stands where a folder should be).
    LogCapture log;
    const FlowResult r = runFlow(doc.item, others, {}, doc.item + "/sub");
    ASSERT_TRUE(r.failed);
    EXPECT_TRUE(r.reportsOnMainThread);
    EXPECT_FALSE(r.failedVersion);
    EXPECT_TRUE(r.progress.empty());
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines()[0].rfind("createDirectoryAtURL error Error Domain=", 0), 0u) << log.lines()[0];
    EXPECT_EQ(readFile(doc.item), "current");
  }
  {
    // A version vanished before it could be removed: reported with that version, the earlier
    // removal stays done.
    const auto current = ZTFileVersion::currentVersionOfItemAtURL(fileURL(doc.item));
    std::filesystem::remove(others[1]->URL().path());
    LogCapture log;
    const FlowResult r = runFlow(doc.item, {current}, others, doc.scratch / "saved");
    ASSERT_TRUE(r.failed);
    EXPECT_FALSE(r.completed);
    ASSERT_TRUE(r.failedVersion);
    EXPECT_EQ(r.failedVersion->URL().path(), others[1]->URL().path());
    EXPECT_EQ(r.progress.size(), 2u);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines()[0].rfind("resolveConflictFileVersion version: <ZTFileVersion: " + others[1]->URL().path(), 0),
              0u)
        << log.lines()[0];
  }
}

TEST(ConflictResolutionFlow, ThrowingRemoveHandlerIsAFailureNotACrash) {
  Document doc;
  LogCapture log;
  const FlowResult r = runFlow(doc.item, {}, {}, doc.scratch / "saved", 0,
                               [](const ZTFileURL&, ZTError*) -> bool { throw std::runtime_error("no"); });
  ASSERT_TRUE(r.failed);
  EXPECT_EQ(r.error.code(), ZTFileWriteUnknownError);
  EXPECT_EQ(readFile(doc.item), "current");
}

}  // namespace
