#include "zentrel/filesystem/coordinated_file_operations.h"

#include <string>
#include <utility>

#include "zentrel/filesystem/file_manager_additions.h"

namespace zt {
namespace {

std::shared_ptr<ZTFileCoordinator> coordinatorOrNew(const std::shared_ptr<ZTFileCoordinator>& given) {
  return given ? given : ZTFileCoordinator::create();
}

// The caller's error: the coordinator's when the claim failed, else the operation's.
void reportError(ZTError* out, const ZTError& coordinationError, const ZTError& accessorError) {
  if (!out) return;
  *out = coordinationError.domain().empty() ? accessorError : coordinationError;
}

bool itemIsPresent(ZTFileManager& fileManager, const std::string& path) {
  return fileManager.fileExistsAtPath(path, nullptr, ZTLinkTraversal::DontFollow);
}

}  // namespace

bool coordinatedFileExistsAtPath(ZTFileManager&, std::string_view path, bool* isDirectory) {
  bool exists = false;
  ZTFileCoordinator::create()->coordinateReadingItemAtURL(
      ZTFileURL::fileURLWithPath(path).path(), ZTFileCoordinatorReadingWithoutChanges, nullptr,
      [&](const std::string& newPath) { exists = ZTFileManager::defaultManager()->fileExistsAtPath(newPath, isDirectory); });
  return exists;
}

std::optional<ZTValue> attributesOfItemAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path,
                                                              ZTError* error) {
  return attributesOfItemAtPathWithCoordination(fileManager, path, nullptr, error);
}

std::optional<ZTValue> attributesOfItemAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path,
                                                              const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                                              ZTError* error) {
  std::optional<ZTValue> attributes;
  ZTError coordinationError;
  ZTError accessorError;
  coordinatorOrNew(fileCoordinator)
      ->coordinateReadingItemAtURL(ZTFileURL::fileURLWithPath(path).path(),
                                   ZTFileCoordinatorReadingImmediatelyAvailableMetadataOnly, &coordinationError,
                                   [&](const std::string& newPath) {
                                     attributes = fileManager.attributesOfItemAtPath(newPath, &accessorError);
                                   });
  reportError(error, coordinationError, accessorError);
  return attributes;
}

bool ensureDirectoryExistsAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path, ZTError* error) {
  return ensureDirectoryExistsAtPathWithCoordination(fileManager, path, nullptr, error);
}

bool ensureDirectoryExistsAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path,
                                                 const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                                 ZTError* error) {
  bool result = false;
  ZTError coordinationError;
  ZTError accessorError;
  coordinatorOrNew(fileCoordinator)
      ->coordinateWritingItemAtURL(ZTFileURL::fileURLWithPath(path).path(), ZTFileCoordinatorWritingForReplacing,
                                   &coordinationError, [&](const std::string& newPath) {
                                     result = ensureDirectoryExistsAtPath(fileManager, newPath, &accessorError);
                                   });
  if (!result) reportError(error, coordinationError, accessorError);
  return result;
}

bool removeItemAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path, ZTError* error) {
  return removeItemAtPathWithCoordination(fileManager, path, nullptr, 0, error);
}

bool removeItemAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path,
                                      const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, std::uint64_t options,
                                      ZTError* error) {
  bool result = false;
  ZTError coordinationError;
  ZTError accessorError;
  coordinatorOrNew(fileCoordinator)
      ->coordinateWritingItemAtURL(ZTFileURL::fileURLWithPath(path).path(), ZTFileCoordinatorWritingForDeleting,
                                   &coordinationError, [&](const std::string& newPath) {
                                     if ((options & 1) == 0 && !itemIsPresent(fileManager, newPath)) {
                                       result = true;
                                       return;
                                     }
                                     result = fileManager.removeItemAtPath(newPath, &accessorError);
                                   });
  if (!result) reportError(error, coordinationError, accessorError);
  return result;
}

bool moveItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                      std::string_view destinationPath, ZTError* error) {
  return moveItemWithCoordinationFromPath(fileManager, sourcePath, destinationPath, nullptr, 0, error);
}

bool moveItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                      std::string_view destinationPath,
                                      const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, std::uint64_t options,
                                      ZTError* error) {
  return moveItemWithCoordinationFromURL(fileManager, ZTFileURL::fileURLWithPath(sourcePath),
                                         ZTFileURL::fileURLWithPath(destinationPath), fileCoordinator, options, error);
}

bool moveItemWithCoordinationFromURL(ZTFileManager& fileManager, const ZTFileURL& sourceURL,
                                     const ZTFileURL& destinationURL,
                                     const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, std::uint64_t options,
                                     ZTError* error) {
  bool result = false;
  ZTError coordinationError;
  ZTError accessorError;
  const auto coordinator = coordinatorOrNew(fileCoordinator);
  coordinator->coordinateWritingItemAtURL(
      sourceURL.path(), ZTFileCoordinatorWritingForMoving, destinationURL.path(), ZTFileCoordinatorWritingForReplacing,
      &coordinationError, [&](const std::string& newSource, const std::string& newDestination) {
        coordinator->itemAtURLWillMoveToURL(newSource, newDestination);
        if ((options & 1) != 0 && itemIsPresent(fileManager, newDestination) &&
            !fileManager.removeItemAtPath(newDestination, &accessorError)) {
          return;
        }
        if (fileManager.moveItemAtPath(newSource, newDestination, &accessorError)) {
          result = true;
          coordinator->itemAtURLDidMoveToURL(newSource, newDestination);
        }
      });
  if (!result) reportError(error, coordinationError, accessorError);
  return result;
}

bool copyItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                      std::string_view destinationPath, ZTError* error) {
  return copyItemWithCoordinationFromPath(fileManager, sourcePath, destinationPath, nullptr, 0, error);
}

bool copyItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                      std::string_view destinationPath,
                                      const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, std::uint64_t options,
                                      ZTError* error) {
  bool result = false;
  ZTError coordinationError;
  ZTError accessorError;
  coordinatorOrNew(fileCoordinator)
      ->coordinateReadingItemAtURL(
          ZTFileURL::fileURLWithPath(sourcePath).path(), ZTFileCoordinatorReadingWithoutChanges,
          ZTFileURL::fileURLWithPath(destinationPath).path(), ZTFileCoordinatorWritingForReplacing,
          &coordinationError, [&](const std::string& newSource, const std::string& newDestination) {
            if ((options & 1) != 0 && itemIsPresent(fileManager, newDestination) &&
                !fileManager.removeItemAtPath(newDestination, &accessorError)) {
              return;
            }
            result = fileManager.copyItemAtPath(newSource, newDestination, &accessorError);
          });
  if (!result) reportError(error, coordinationError, accessorError);
  return result;
}

bool contentsEqualAtPathAndPathWithCoordination(ZTFileManager& fileManager, std::string_view path1,
                                                std::string_view path2) {
  return contentsEqualAtPathAndPathWithCoordination(fileManager, path1, path2, nullptr, nullptr);
}

bool contentsEqualAtPathAndPathWithCoordination(ZTFileManager& fileManager, std::string_view path1,
                                                std::string_view path2,
                                                const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                                ZTError* error) {
  bool result = false;
  ZTError coordinationError;
  const std::string second(path2);
  coordinatorOrNew(fileCoordinator)
      ->coordinateReadingItemAtURL(ZTFileURL::fileURLWithPath(path1).path(), ZTFileCoordinatorReadingWithoutChanges,
                                   &coordinationError, [&](const std::string& newPath) {
                                     result = fileManager.contentsEqualAtPath(newPath, second);
                                   });
  if (!result) reportError(error, coordinationError, ZTError());
  return result;
}

}  // namespace zt
