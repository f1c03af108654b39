#include "zentrel/filesystem/file_manager_additions.h"

#include <utility>

#include "zentrel/filesystem/file_types.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/platform/log.h"

namespace zt {

std::optional<ZTValue> attributesOfItemAtPath(ZTFileManager& fileManager, std::string_view path, std::uint64_t options,
                                              ZTError* error) {
  auto attributes = fileManager.attributesOfItemAtPath(path, error);
  if (!attributes) return std::nullopt;
  if (!(options & ZTAttributesPackageModificationDateOption)) return attributes;
  if ((*attributes)[ZTFileType].stringValue() != ZTFileTypeDirectory) return attributes;
  if (!ZTIsPackageFileExtension(pathExtension(path))) return attributes;

  const ZTDate* own = (*attributes)[ZTFileModificationDate].getIf<ZTDate>();
  if (!own) return attributes;
  ZTDate latest = *own;
  if (auto enumerator = fileManager.enumeratorAtPath(path)) {
    while (auto relative = enumerator->nextObject()) {  // ends with the package's last entry
      const ZTValue& entry = enumerator->fileAttributes();
      if (!entry.isDictionary()) {
        ZTLog("ERROR: Failed to get file attributes at path " + std::string(path) + *relative + ".");
        continue;
      }
      if (entry[ZTFileType].stringValue() != ZTFileTypeRegular) continue;
      if (const ZTDate* date = entry[ZTFileModificationDate].getIf<ZTDate>(); date && *date > latest) latest = *date;
    }
  }
  if (latest != *own) (*attributes)[ZTFileModificationDate] = latest;
  return attributes;
}

bool loadAttributesOfItemAtPath(ZTFileManager& fileManager, std::string_view path, std::optional<ZTValue>* attributes,
                                std::optional<ZTValue>* linkDestinationAttributes, ZTError* error) {
  (void)fileManager;  // the questions go to the default manager, which has no delegate to consult
  ZTFileManager& manager = *ZTFileManager::defaultManager();
  auto own = attributesOfItemAtPath(manager, path, ZTAttributesPackageModificationDateOption, error);
  if (!own) return false;
  std::optional<ZTValue> destination;
  if ((*own)[ZTFileType].stringValue() == ZTFileTypeSymbolicLink) {
    const auto target = manager.destinationOfSymbolicLinkAtPath(path, error);
    if (!target) return false;
    destination = attributesOfItemAtPath(manager, *target, ZTAttributesPackageModificationDateOption, error);
    if (!destination) return false;
  }
  if (attributes) *attributes = std::move(own);
  if (linkDestinationAttributes) *linkDestinationAttributes = std::move(destination);
  return true;
}

bool ensureDirectoryExistsAtPath(ZTFileManager& fileManager, std::string_view path, ZTError* error) {
  bool isDirectory = false;
  if (ZTFileManager::defaultManager()->fileExistsAtPath(path, &isDirectory)) {
    if (isDirectory) return true;
    ZTLog("failed to create directory at " + std::string(path) + ", as regular file exists at the path.");
    return false;
  }
  ZTError failure;
  const bool created = fileManager.createDirectoryAtPath(path, true, ZTValue(), &failure);
  if (!created) ZTLog("failed to create directory. error = " + failure.description());
  if (error) *error = created ? ZTError() : failure;
  return created;
}

bool removeItemsAtPaths(ZTFileManager& fileManager, const std::vector<std::string>& paths,
                        bool shouldFailAfterFirstError, ZTError* error) {
  bool result = true;
  for (const auto& path : paths) {
    if (fileManager.removeItemAtPath(path, error)) continue;
    result = false;
    if (shouldFailAfterFirstError) break;
  }
  return result;
}

}  // namespace zt
