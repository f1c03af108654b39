#include "zentrel/filesystem/file_version_conflicts.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

#include "zentrel/filesystem/trash.h"
#include "zentrel/filesystem/unique_names.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/log.h"

namespace {

bool samePath(const std::shared_ptr<ZTFileVersion>& a, const std::shared_ptr<ZTFileVersion>& b) {
  return a && b && a->URL().path() == b->URL().path();
}

bool hasURL(const std::shared_ptr<ZTFileVersion>& version) {
  return version && version->URL().isFileURL() && !version->URL().path().empty();
}

void eraseVersion(ZTFileVersionList& list, const std::shared_ptr<ZTFileVersion>& version) {
  if (!version) return;
  list.erase(std::remove_if(list.begin(), list.end(), [&](const auto& v) { return samePath(v, version); }),
             list.end());
}

std::string describe(const std::shared_ptr<ZTFileVersion>& version) {
  return version ? version->description() : std::string("(null)");
}

std::string exceptionText(std::exception_ptr exception) {
  try {
    std::rethrow_exception(std::move(exception));
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown exception";
  }
}

std::string joinPath(const std::string& folder, const std::string& name) {
  if (!folder.empty() && folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

std::string formatDate(ZTDate date) {
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat formatter(icu::UnicodeString("YYYY-MM-dd HH-mm-ss", -1, US_INV), icu::Locale("en_US"),
                                  status);
  if (U_FAILURE(status)) return "(null)";
  icu::UnicodeString text;
  formatter.format(static_cast<UDate>(date.timeIntervalSince1970() * 1000.0), text);
  std::string result;
  text.toUTF8String(result);
  return result;
}

// Runs the flow's steps; returns when the flow ends, whichever way.
struct ResolutionFlow {
  ZTFileURL url;
  ZTFileVersionList toSave;
  ZTFileVersionList toDelete;
  ZTFileURL parentURLToSaveTo;
  std::shared_ptr<ZTFileCoordinator> coordinator;
  ZTRemoveCurrentVersionHandler removeCurrent;
  ZTResolveConflictsProgressHandler progress;
  ZTResolveConflictsCompletionHandler completion;
  ZTResolveConflictsErrorHandler failure;
  std::size_t savingCount = 0;

  void run() {
    const std::uint64_t total = toSave.size() + toDelete.size();
    const std::shared_ptr<ZTFileVersion> current = ZTFileVersion::currentVersionOfItemAtURL(url);

    if (savingCount >= 2) {
      ZTError error;
      if (!ZTFileManager::defaultManager()->createDirectoryAtPath(parentURLToSaveTo.path(), true, {}, &error)) {
        ZTLogf("createDirectoryAtURL error %s", error.description().c_str());
        zt::invokeErrorHandlerOnMainQueue(failure, nullptr, error);
        return;
      }
    }

    std::shared_ptr<ZTFileVersion> kept;
    const auto currentInSave =
        std::find_if(toSave.begin(), toSave.end(), [&](const auto& v) { return samePath(v, current); });
    if (current && currentInSave != toSave.end()) {
      toSave.erase(currentInSave);
      kept = current;
    } else if (!toSave.empty()) {
      const std::shared_ptr<ZTFileVersion> first = toSave.front();
      ZTError error;
      const bool saved = zt::resolveConflictFileVersion(first, url, coordinator, &error).has_value();
      if (!saved)
        ZTLogf("resolveConflictFileVersion versionToSave: %s url %s error %s", describe(first).c_str(),
               url.absoluteString().c_str(), error.description().c_str());
      toSave.erase(toSave.begin());
      eraseVersion(toDelete, current);
      kept = first;
      if (!saved) {
        zt::invokeErrorHandlerOnMainQueue(failure, first, error);
        return;
      }
    } else {
      ZTError error;
      bool removed = false;
      try {
        removed = removeCurrent(url, &error);
      } catch (...) {
        ZTLogf("ERROR: the remove-current-version handler threw: %s", exceptionText(std::current_exception()).c_str());
        error = ZTError(ZTCocoaErrorDomain, ZTFileWriteUnknownError);
        removed = false;
      }
      eraseVersion(toDelete, current);
      kept = current;
      if (!removed) {
        zt::invokeErrorHandlerOnMainQueue(failure, current, error);
        return;
      }
    }

    if (zt::invokeProgressHandlerOnMainQueue(progress, 1, total, url)) return;

    std::uint64_t processed = 1;
    for (const auto& version : toSave) {
      const std::string name = version ? zt::fileNameForConflictFileFromFileVersion(*version) : std::string();
      const ZTFileURL target = zt::macStyleUniqueURL(ZTFileURL::fileURLWithPath(joinPath(parentURLToSaveTo.path(), name)));
      ZTError error;
      if (!zt::resolveConflictFileVersion(version, target, coordinator, &error)) {
        ZTLogf("resolveConflictFileVersion version: %s urlToSaveTo %s error %s", describe(version).c_str(),
               target.absoluteString().c_str(), error.description().c_str());
        zt::invokeErrorHandlerOnMainQueue(failure, version, error);
        return;
      }
      processed += 1;
      if (zt::invokeProgressHandlerOnMainQueue(progress, processed, total, target)) return;
    }

    for (const auto& version : toDelete) {
      ZTError error;
      if (!zt::removeConflictFileVersion(version, coordinator, &error)) {
        ZTLogf("resolveConflictFileVersion version: %s error %s", describe(version).c_str(),
               error.description().c_str());
        zt::invokeErrorHandlerOnMainQueue(failure, version, error);
        return;
      }
      processed += 1;
      if (zt::invokeProgressHandlerOnMainQueue(progress, processed, total, std::nullopt)) return;
    }

    if (completion) {
      ZTDispatchQueue::main()->async([completion = std::move(completion), total, kept] {
        try {
          completion(total, kept);
        } catch (...) {
          ZTLogf("ERROR: the conflict resolution completion handler threw: %s",
                 exceptionText(std::current_exception()).c_str());
        }
      });
    }
  }
};

}  // namespace

namespace zt {

std::shared_ptr<ZTFileVersion> latestVersionOfItemAtURL(const ZTFileURL& url) {
  std::shared_ptr<ZTFileVersion> candidate;
  for (const auto& version : allVersionsOfItemAtURL(url)) {
    if (!version->modificationDate()) continue;
    if (!candidate || *candidate->modificationDate() < *version->modificationDate()) candidate = version;
  }
  return candidate;
}

ZTFileVersionList allVersionsOfItemAtURL(const ZTFileURL& url) {
  ZTFileVersionList versions;
  std::set<std::string> seen;
  auto add = [&](std::shared_ptr<ZTFileVersion> version) {
    if (version && seen.insert(version->URL().path()).second) versions.push_back(std::move(version));
  };
  add(ZTFileVersion::currentVersionOfItemAtURL(url));
  for (auto& version : ZTFileVersion::otherVersionsOfItemAtURL(url)) add(std::move(version));
  return versions;
}

bool removeConflictFileVersion(const std::shared_ptr<ZTFileVersion>& version,
                               const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, ZTError* error) {
  if (!hasURL(version) || !version->isConflict()) return false;
  const auto coordinator = fileCoordinator ? fileCoordinator : ZTFileCoordinator::create();
  bool removed = false;
  ZTError removalError;
  ZTError claimError;
  coordinator->coordinateWritingItemAtURL(version->URL().path(), ZTFileCoordinatorWritingForDeleting, &claimError,
                                          [&](const std::string&) {
                                            removed = version->removeAndReturnError(&removalError);
                                            if (removed) version->setResolved(true);
                                          });
  ZTSetError(error, removed ? ZTError() : removalError);
  return removed;
}

bool removeConflictFileVersions(const ZTFileVersionList& versions,
                                const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, ZTError* error) {
  if (versions.empty()) return false;
  for (const auto& version : versions)
    if (!removeConflictFileVersion(version, fileCoordinator, error)) return false;
  return true;
}

std::optional<ZTFileURL> resolveConflictFileVersion(const std::shared_ptr<ZTFileVersion>& version,
                                                    const ZTFileURL& url,
                                                    const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                                    ZTError* error) {
  if (!hasURL(version) || !version->isConflict()) return std::nullopt;
  ZTError replaceError;
  std::optional<ZTFileURL> saved = version->replaceItemAtURL(url, 0, &replaceError, fileCoordinator);
  if (!removeConflictFileVersion(version, fileCoordinator, nullptr)) saved.reset();
  ZTSetError(error, replaceError);
  return saved;
}

std::optional<std::vector<ZTFileURL>> resolveConflictFileVersions(const ZTFileVersionList& versions,
                                                                  const ZTFileURL& folderURL,
                                                                  const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                                                  ZTError* error) {
  std::vector<ZTFileURL> saved;
  bool failed = false;
  for (const auto& version : versions) {
    if (!hasURL(version)) continue;
    const std::string name = fileNameForConflictFileFromFileVersion(*version);
    const ZTFileURL target = macStyleUniqueURL(ZTFileURL::fileURLWithPath(joinPath(folderURL.path(), name)));
    ZTError stepError;
    if (auto url = resolveConflictFileVersion(version, target, fileCoordinator, &stepError))
      saved.push_back(*url);
    else {
      failed = true;
      ZTSetError(error, stepError);
    }
  }
  if (failed) return std::nullopt;
  return saved;
}

void resolveConflictsForItemAtURL(const ZTFileURL& url, const ZTFileVersionList& savingVersions,
                                  const ZTFileVersionList& deletingVersions, const ZTFileURL& parentURLToSaveTo,
                                  const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                  ZTRemoveCurrentVersionHandler removeCurrentVersionHandler,
                                  ZTResolveConflictsProgressHandler progressHandler,
                                  ZTResolveConflictsCompletionHandler completionHandler,
                                  ZTResolveConflictsErrorHandler errorHandler) {
  auto flow = std::make_shared<ResolutionFlow>();
  flow->url = url;
  flow->toSave = savingVersions;
  flow->toDelete = deletingVersions;
  flow->savingCount = savingVersions.size();
  flow->parentURLToSaveTo = parentURLToSaveTo;
  flow->coordinator = fileCoordinator;
  flow->removeCurrent = removeCurrentVersionHandler
                            ? std::move(removeCurrentVersionHandler)
                            : ZTRemoveCurrentVersionHandler([](const ZTFileURL& itemURL, ZTError* error) {
                                return zt::moveItemToTrash(itemURL.path(), error).has_value();
                              });
  flow->progress = std::move(progressHandler);
  flow->completion = std::move(completionHandler);
  flow->failure = std::move(errorHandler);
  ZTDispatchQueue::global()->async([flow] { flow->run(); });
}

bool invokeProgressHandlerOnMainQueue(const ZTResolveConflictsProgressHandler& progressHandler,
                                      std::uint64_t processedVersionsCount, std::uint64_t totalVersionsCount,
                                      const std::optional<ZTFileURL>& savedVersionURL) {
  if (!progressHandler) return false;
  bool stop = false;
  const bool ran = ZTDispatchQueue::main()->sync([&] {
    try {
      progressHandler(processedVersionsCount, totalVersionsCount, savedVersionURL, &stop);
    } catch (...) {
      ZTLogf("ERROR: the conflict resolution progress handler threw: %s",
             exceptionText(std::current_exception()).c_str());
      stop = false;
    }
  });
  return ran && stop;
}

void invokeErrorHandlerOnMainQueue(const ZTResolveConflictsErrorHandler& errorHandler,
                                   const std::shared_ptr<ZTFileVersion>& failedFileVersion, const ZTError& error) {
  if (!errorHandler) return;
  ZTDispatchQueue::main()->async([errorHandler, failedFileVersion, error] {
    try {
      errorHandler(failedFileVersion, error);
    } catch (...) {
      ZTLogf("ERROR: the conflict resolution error handler threw: %s", exceptionText(std::current_exception()).c_str());
    }
  });
}

std::string fileNameForConflictFileFromFileVersion(const ZTFileVersion& version) {
  return fileNameForConflictFileName(version.localizedName(), version);
}

std::string fileNameForConflictFileName(std::string_view fileName, const ZTFileVersion& version) {
  return fileNameForConflictFileName(fileName, version.localizedNameOfSavingComputer(), version.modificationDate());
}

std::string fileNameForConflictFileName(std::string_view fileName, const std::optional<std::string>& deviceName,
                                        const std::optional<ZTDate>& modificationDate) {
  const std::string dateText = modificationDate ? formatDate(*modificationDate) : std::string("(null)");
  std::string_view stem = fileName;
  std::string_view extension;
  const std::size_t slash = fileName.rfind('/');
  const std::size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
  const std::size_t dot = fileName.rfind('.');
  if (dot != std::string_view::npos && dot > nameStart && dot + 1 < fileName.size()) {
    stem = fileName.substr(0, dot);
    extension = fileName.substr(dot + 1);
  }
  std::string result(stem);
  if (deviceName)
    result += " (" + stringByLeavingOnlyBasicMultilingualPlaneCharactersInString(*deviceName) + " " + dateText + ")";
  else
    result += " (" + dateText + ")";
  if (!extension.empty()) result += "." + std::string(extension);
  return result;
}

std::string stringByLeavingOnlyBasicMultilingualPlaneCharactersInString(std::string_view text) {
  const icu::UnicodeString unicode =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> clusters(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status)) return {};
  clusters->setText(unicode);
  icu::UnicodeString kept;
  std::int32_t start = clusters->first();
  // next() moves forward on every call and ends at DONE: bounded by the text's length.
  for (std::int32_t end = clusters->next(); end != icu::BreakIterator::DONE; start = end, end = clusters->next())
    if (end - start == 1) kept.append(unicode.charAt(start));
  std::string result;
  kept.toUTF8String(result);
  return result;
}

std::string macStyleUniquePath(const std::string& path) { return ZTGenerateMacStyleUniquePath(path, false); }

ZTFileURL macStyleUniqueURL(const ZTFileURL& url) {
  if (!url.isFileURL()) return url;
  return ZTFileURL::fileURLWithPath(macStyleUniquePath(url.path()));
}

}  // namespace zt
