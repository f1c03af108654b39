// `zt files`: path arithmetic, unique names, file-name validation, standard folders and file types,
// on real files made in a scratch folder (removed afterwards), or on the files the user names.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "zentrel/filesystem/content_sniffing.h"
#include "zentrel/filesystem/file_name_validation.h"
#include "zentrel/filesystem/file_types.h"
#include "zentrel/filesystem/paths.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/filesystem/temporary_files.h"
#include "zentrel/filesystem/unique_names.h"

namespace ztool {
namespace {
void describeFile(const std::string& path) {
  const auto dot = path.find_last_of('.');
  const std::string extension = dot == std::string::npos ? "" : path.substr(dot + 1);
  const auto sniffed = ZTFileExtensionUsingContentForFileAtPath(path);
  std::cout << "   " << path << "\n      type " << ZTMimeTypeForFileAtPath(path) << ", kind \""
            << ZTPathExtensionToReadable(extension) << "\"";
  if (sniffed) std::cout << ", content looks like ." << *sniffed;
  if (ZTIsPlainTextFileAtPath(path)) std::cout << ", plain text";
  std::cout << "\n";
}
}  // namespace

int runFilesTour(const std::vector<std::string>& paths) {
  std::cout << "Files\n\n";
  std::cout << "1. Paths compare by their normalized form:\n"
            << "   \"/home//ada/./Documents/../Music\" normalizes to \""
            << ZTNormalizePath("/home//ada/./Documents/../Music") << "\"\n"
            << "   is \"/home/ada\" a base of \"/home/ada/Music/a.mp3\"? "
            << (ZTIsPathBasePathOfPath("/home/ada", "/home/ada/Music/a.mp3") ? "yes" : "no")
            << "; of \"/home/adam\"? " << (ZTIsPathBasePathOfPath("/home/ada", "/home/adam") ? "yes" : "no") << "\n";
  const std::string relative = ZTAbsolutePathToRelative("/home/ada/Documents/Reports/q3.pdf", {"/home/ada/Documents"});
  std::cout << "   stored relative to its base folder: \"" << relative << "\", and back: \""
            << ZTRelativePathToAbsolute(relative, "/home/ada/Documents") << "\"\n";

  std::cout << "2. Standard folders: home " << ZTHomeDirectory() << ", documents " << ZTDocumentsDirectory()
            << ",\n   caches " << ZTCachesDirectory() << ", trash " << ZTTrashDirectory()
            << ",\n   temporary (private to this user) " << ZTTemporaryDirectory() << "\n";

  std::cout << "3. File names a user might type:\n";
  std::string longName;
  for (int i = 0; i < 100; ++i) longName += "\u5831";  // 100 CJK characters: 300 bytes
  for (const std::string& name : {std::string("Report 2026.txt"), std::string("notes/draft.txt"), std::string(".hidden"),
                                 std::string(), longName + ".txt"}) {
    const auto problem = ZTValidateLocalFileName(name);
    const std::string shown = name.size() > 40 ? name.substr(0, 12) + "... (" + std::to_string(name.size()) + " bytes)" : name;
    std::cout << "   \"" << shown << "\": " << (problem ? *problem : "fine") << "\n";
  }

  int status = 0;
  if (paths.empty()) {
    const auto scratch = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(std::string("report.txt"), true);
    if (!scratch) {
      std::cout << "4. Could not make a scratch folder in " << ZTTemporaryDirectory() << "\n";
      return 1;
    }
    const std::string folder = std::filesystem::path(*scratch).parent_path().string();
    std::filesystem::create_directories(folder);
    const std::string report = folder + "/report.txt";
    // Written whole or not at all: staged in a private temporary file, then renamed into place.
    ZTError error;
    std::optional<ZTTemporaryFile> staged = ZTTempFile("", ".part", &error);
    const std::string_view text = "Quarterly report\n";
    if (!staged || ::write(staged->descriptor.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        !staged->descriptor.close() || ::rename(staged->path.c_str(), report.c_str()) != 0) {
      std::cout << "4. Could not stage report.txt: " << (staged ? std::strerror(errno) : error.localizedDescription())
                << "\n";
      if (staged) ::unlink(staged->path.c_str());
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
      return 1;
    }
    std::cout << "4. report.txt staged in " << staged->path << " and renamed into place.\n"
              << "   Unique names beside it in " << folder << ":\n";
    std::string next = ZTGenerateMacStyleUniquePath(report, false);
    std::cout << "   report.txt exists, so a new one becomes " << std::filesystem::path(next).filename().string();
    std::ofstream(next) << "copy\n";
    next = ZTGenerateMacStyleUniquePath(report, false);
    std::cout << ", then " << std::filesystem::path(next).filename().string() << "\n";

    const std::string scan = folder + "/scan.txt";  // a PDF saved under the wrong extension
    std::ofstream(scan, std::ios::binary) << "%PDF-1.4\n1 0 obj\n<< /Type /Catalog >>\nendobj\n";
    const std::string photo = folder + "/holiday.jpeg";
    const char jpegStart[] = "\xFF\xD8\xFF\xE0\x00\x10JFIF\x00\x01";
    std::ofstream(photo, std::ios::binary).write(jpegStart, sizeof jpegStart - 1);
    std::ofstream(folder + "/main.c") << "int main(void) { return 0; }\n";
    std::ofstream(folder + "/budget.xlsm", std::ios::binary) << std::string("PK\x03\x04\x14\x00", 6);
    std::cout << "5. File types, by name and by content:\n";
    describeFile(folder + "/main.c");
    describeFile(report);
    describeFile(folder + "/budget.xlsm");
    describeFile(photo);
    describeFile(scan);
    std::cout << "   the misnamed PDF would be saved as \"" << ZTFileNameWithContentCorrectedExtensionForFileAtPath(scan)
              << "\"; a .jpeg is " << (ZTIsFileExtensionOfType("jpeg", ZTFileTypeImage) ? "" : "not ") << "an image\n";
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  } else {
    std::cout << "4. The files you named:\n";
    for (const auto& path : paths) {
      struct stat info{};
      if (::stat(path.c_str(), &info) != 0) {
        std::cout << "   " << path << ": cannot be read\n";
        status = 1;
        continue;
      }
      describeFile(path);
    }
  }
  return status;
}

int runFilesTourWithDefaults() { return runFilesTour({}); }

void addFilesCommand(CLI::App& app) {
  auto* command = app.add_subcommand("files", "Paths, unique names, name validation, standard folders, file types");
  command->footer("Example: zt files ~/Documents/report.pdf /tmp");
  static std::vector<std::string> paths;
  command->add_option("paths", paths, "Files to describe (a scratch folder is used if none are given)");
  command->callback([] {
    if (runFilesTour(paths) != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
