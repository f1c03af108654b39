// MIME and type-identifier lookups with arbitrary extensions, MIME types and paths (the paths
// are looked at by name only: none of them exists).
#include "fuzz_input.h"
#include "zentrel/filesystem/file_types.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string extension = zt_fuzz::text(input, 64);
  const std::string mimeType = zt_fuzz::text(input, 128);
  const std::int64_t type = input.ConsumeIntegral<std::int64_t>();
  const std::string path = "/nonexistent-fuzz-folder/" + extension;

  (void)ZTMimeTypeForFileExtension(extension);
  (void)ZTUTIForFileExtension(extension, input.ConsumeBool());
  (void)ZTUTIFromMimeType(mimeType);
  (void)ZTExtensionForMimeType(mimeType);
  (void)ZTIsFileExtensionOfType(extension, type);
  (void)ZTPathExtensionToReadable(extension);
  (void)ZTIsPackageFileExtension(extension);
  (void)ZTIsPackageFilePath(path);
  return 0;
}
