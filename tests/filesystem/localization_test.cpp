// Texts shown to users go through the application's gettext catalogue, with the English text as the
// message id. Each case runs in a child process, since the locale and the text domain are
// process-wide.

#include "zentrel/platform/localization.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

#include "filesystem/support/message_catalog.h"
#include "filesystem/support/scratch_folder.h"
#include "zentrel/filesystem/file_name_validation.h"
#include "zentrel/filesystem/file_types.h"

namespace {

class TranslatedTextsDeathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    zt::test::writeMessageCatalog(
        dir.path(), "de", "zt-filesystem-test",
        {{"Empty name cannot be used", "Leerer Name geht nicht"},
         {"The name \u201C%@\u201D cannot be used because of %@ character", "Wegen %2$@ geht \u201E%1$@\u201C nicht"},
         {"JPEG image", "JPEG-Bild"},
         {"Document", "Dokument"}});
  }

  // Switches this (child) process to German with the test catalogue.
  void useGerman() const {
    ::setenv("LANGUAGE", "de", 1);
    std::setlocale(LC_ALL, "C.UTF-8");
    ZTSetLocalizationDomain("zt-filesystem-test", dir.path());
  }

  zt::test::ScratchFolder dir;
};

TEST_F(TranslatedTextsDeathTest, ValidationMessagesAndKindsAreTranslated) {
  EXPECT_EXIT(
      {
        useGerman();
        const bool ok =
            ZTValidateLocalFileName(" ") == std::optional<std::string>("Leerer Name geht nicht") &&
            ZTValidateLocalFileName("a/b") == std::optional<std::string>("Wegen / geht \u201Ea/b\u201C nicht") &&
            // Untranslated texts stay English.
            ZTValidateLocalFileName(".x") == std::optional<std::string>("File name cannot be started with dot") &&
            ZTPathExtensionToReadable("jpg") == "JPEG-Bild" && ZTPathExtensionToReadable("docx") == "DOCX Dokument" &&
            ZTPathExtensionToReadable("") == "Unknown file";
        zt::test::finishChildProcess(ok);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
