// Files a user hands to an application: a name checked before saving, a unique name beside an
// existing file, and a file's type told by its content when its extension is wrong.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/file_types

#include <zentrel/filesystem/content_sniffing.h>
#include <zentrel/filesystem/file_name_validation.h>
#include <zentrel/filesystem/temporary_files.h>
#include <zentrel/filesystem/unique_names.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

int main() {
  for (const std::string name : {"Report 2026.txt", "notes/draft.txt", ""}) {
    const auto problem = ZTValidateLocalFileName(name);
    std::cout << "\"" << name << "\": " << (problem ? *problem : "a good name") << "\n";
  }

  // A private scratch folder with report.txt in it.
  const auto report = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(std::string("report.txt"), true);
  if (!report) return 1;
  const std::string folder = std::filesystem::path(*report).parent_path();
  std::ofstream(*report) << "first\n";
  std::cout << "report.txt exists, so a new one is saved as "
            << std::filesystem::path(ZTGenerateMacStyleUniquePath(*report, false)).filename().string() << "\n";

  const std::string scan = folder + "/scan.txt";  // a PDF saved under the wrong extension
  std::ofstream(scan, std::ios::binary) << "%PDF-1.4\n1 0 obj\n<< /Type /Catalog >>\nendobj\n";
  std::cout << "scan.txt holds a PDF; saved with the right extension it is "
            << ZTFileNameWithContentCorrectedExtensionForFileAtPath(scan) << "\n";

  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return 0;
}
