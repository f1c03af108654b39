#include "zentrel/system/pdf_handler.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "system/support/machine_root.h"
#include "zentrel/system/machine.h"

namespace {

using namespace zt::system_internal;
using zt::test::MachineRoot;

constexpr const char* kReader = "org.zentrel.Reader.desktop";
constexpr const char* kEvince = "org.gnome.Evince.desktop";
constexpr const char* kPDF = "application/pdf";

// A user's XDG folders in a private root: config/ (home), etc-xdg/, data/ (home), usr-share/.
// Desktop entries are installed in the system data folder with an Exec that exists, as xdg-mime
// checks.
struct Desktop {
  MachineRoot root;
  std::string desktops;  // XDG_CURRENT_DESKTOP

  Desktop() {
    install(kReader, "Zentrel Reader");
    install(kEvince, "Document Viewer");
    install("org.kde.okular.desktop", "Okular");
  }
  void install(const std::string& id, const std::string& name) const {
    root.write("/usr-share/applications/" + id,
               "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=true %U\nMimeType=application/pdf;\n");
  }
  std::string config() const { return root.path() + "/config"; }
  std::vector<std::pair<std::string, std::string>> pairs() const {
    std::vector<std::pair<std::string, std::string>> p{{"HOME", root.path() + "/home"},
                                                       {"XDG_CONFIG_HOME", config()},
                                                       {"XDG_CONFIG_DIRS", root.path() + "/etc-xdg"},
                                                       {"XDG_DATA_HOME", root.path() + "/data"},
                                                       {"XDG_DATA_DIRS", root.path() + "/usr-share"}};
    if (!desktops.empty()) p.emplace_back("XDG_CURRENT_DESKTOP", desktops);
    return p;
  }
  Environment env() const { return zt::test::fixedEnvironment(pairs()); }
  std::optional<std::string> current() const { return defaultApplicationFor(kPDF, env()); }
  // xdg-mime's answer in the same folders ("" for none); nullopt when xdg-mime is not installed.
  std::optional<std::string> xdgMime() const {
    if (!zt::test::programInstalled("xdg-mime")) return std::nullopt;
    std::string command = "env -u KDE_FULL_SESSION -u GNOME_DESKTOP_SESSION_ID -u DESKTOP_SESSION -u XDG_MENU_PREFIX";
    if (desktops.empty()) command += " -u XDG_CURRENT_DESKTOP";
    for (const auto& [key, value] : pairs()) command += " " + key + "='" + value + "'";
    auto out = zt::test::commandOutput(command + " xdg-mime query default application/pdf 2>/dev/null");
    return out ? std::string(trimmed(*out)) : std::string();
  }
};

TEST(DefaultApplication, FoundInTheOrderXdgMimeSearches) {
  Desktop desktop;
  EXPECT_EQ(desktop.current(), std::nullopt);

  // The distribution's default, then the administrator's, then the user's: each later one wins.
  desktop.root.write("/usr-share/applications/mimeapps.list", "[Default Applications]\napplication/pdf=org.kde.okular.desktop;\n");
  EXPECT_EQ(desktop.current(), "org.kde.okular.desktop");
  desktop.root.write("/etc-xdg/mimeapps.list", "[Default Applications]\napplication/pdf=org.gnome.Evince.desktop\n");
  EXPECT_EQ(desktop.current(), kEvince);
  desktop.root.write("/config/mimeapps.list",
                     "[Added Associations]\napplication/pdf=org.kde.okular.desktop;\n\n"
                     "[Default Applications]\ntext/plain=gedit.desktop\napplication/pdf=org.zentrel.Reader.desktop;\n");
  EXPECT_EQ(desktop.current(), kReader);
  if (auto answer = desktop.xdgMime()) {
    EXPECT_EQ(*answer, kReader);
  }

  // Spaces around '=' are allowed in these files (xdg-mime alone overlooks such a line).
  EXPECT_EQ(defaultApplications("[Default Applications]\napplication/pdf = a.desktop ; b.desktop\n", kPDF),
            (std::vector<std::string>{"a.desktop", "b.desktop"}));

  // A desktop's own list beats the generic one in the same folder.
  desktop.root.write("/config/x-zentrel-mimeapps.list", "[Default Applications]\napplication/pdf=org.gnome.Evince.desktop;\n");
  EXPECT_EQ(desktop.current(), kReader);
  desktop.desktops = "X-Zentrel";
  EXPECT_EQ(desktop.current(), kEvince);
  if (auto answer = desktop.xdgMime()) {
    EXPECT_EQ(*answer, kEvince);
  }
  desktop.desktops.clear();

  // Applications that are not installed are passed over.
  desktop.root.write("/config/mimeapps.list", "[Default Applications]\napplication/pdf=gone.desktop;org.kde.okular.desktop;\n");
  EXPECT_EQ(desktop.current(), "org.kde.okular.desktop");
  desktop.root.write("/config/mimeapps.list", "[Default Applications]\napplication/pdf=gone.desktop\n");
  EXPECT_EQ(desktop.current(), kEvince);
  if (auto answer = desktop.xdgMime()) {
    EXPECT_EQ(*answer, kEvince);
  }

  // With no list naming one, the index update-desktop-database keeps.
  Desktop fresh;
  fresh.root.write("/usr-share/applications/mimeinfo.cache",
                   "[MIME Cache]\napplication/pdf=org.kde.okular.desktop;org.gnome.Evince.desktop;\n");
  EXPECT_EQ(fresh.current(), "org.kde.okular.desktop");
  if (auto answer = fresh.xdgMime()) {
    EXPECT_EQ(*answer, "org.kde.okular.desktop");
  }
}

TEST(DefaultApplication, GarbledListsCountAsAbsent) {
  Desktop desktop;
  desktop.root.write("/etc-xdg/mimeapps.list", "[Default Applications]\napplication/pdf=org.gnome.Evince.desktop\n");
  for (const char* garbage : {"", "\n\n\n", "[Default Applications", "application/pdf=org.zentrel.Reader.desktop\n",
                              "[Default Applications]\napplication/pdf\n", "[Default Applications]\napplication/pdf=;;;\n",
                              "[Default Applications]\napplication/pdfx=org.zentrel.Reader.desktop\n",
                              "\xff\xfe[Default Applications]\x00\n"}) {
    desktop.root.write("/config/mimeapps.list", garbage);
    EXPECT_EQ(desktop.current(), kEvince) << garbage;
  }
  desktop.root.makeFolder("/config/x-zentrel-mimeapps.list");  // a folder where a file was expected
  desktop.desktops = "X-Zentrel";
  EXPECT_EQ(desktop.current(), kEvince);
}

TEST(DefaultApplication, SettingKeepsEveryOtherLine) {
  const std::string before =
      "# my associations\n"
      "[Added Associations]\n"
      "application/pdf=org.kde.okular.desktop;\n"
      "\n"
      "[Default Applications]\n"
      "text/html=firefox-esr.desktop\n"
      "application/pdf=org.gnome.Evince.desktop\n"
      "image/png=eog.desktop\n"
      "\n"
      "[Removed Associations]\n"
      "text/plain=vim.desktop;\n";
  std::string expected = before;
  expected.replace(expected.find("application/pdf=org.gnome"), std::string("application/pdf=org.gnome.Evince.desktop").size(),
                   "application/pdf=org.zentrel.Reader.desktop");
  EXPECT_EQ(withDefaultApplication(before, kPDF, kReader), expected);

  // Added at the end of the group's entries, before the blank line that ends it.
  EXPECT_EQ(withDefaultApplication("[Default Applications]\ntext/html=a.desktop\n\n[Other]\nx=y\n", kPDF, kReader),
            "[Default Applications]\ntext/html=a.desktop\napplication/pdf=org.zentrel.Reader.desktop\n\n[Other]\nx=y\n");
  // The group is added when missing; a file without a final line break keeps its last line whole.
  EXPECT_EQ(withDefaultApplication("[Added Associations]\ntext/html=a.desktop", kPDF, kReader),
            "[Added Associations]\ntext/html=a.desktop\n\n[Default Applications]\napplication/pdf=org.zentrel.Reader.desktop\n");
  EXPECT_EQ(withDefaultApplication("", kPDF, kReader), "[Default Applications]\napplication/pdf=org.zentrel.Reader.desktop\n");

  // Removing takes out only this application, compared without regard to case.
  EXPECT_EQ(withoutDefaultApplication(expected, kPDF, "ORG.ZENTREL.READER.DESKTOP"),
            "# my associations\n[Added Associations]\napplication/pdf=org.kde.okular.desktop;\n\n"
            "[Default Applications]\ntext/html=firefox-esr.desktop\nimage/png=eog.desktop\n\n"
            "[Removed Associations]\ntext/plain=vim.desktop;\n");
  EXPECT_EQ(withoutDefaultApplication("[Default Applications]\napplication/pdf=org.zentrel.Reader.desktop;b.desktop;\n", kPDF, kReader),
            "[Default Applications]\napplication/pdf=b.desktop;\n");
  EXPECT_EQ(withoutDefaultApplication(before, kPDF, kReader), before);
}

TEST(PDFHandler, SetCheckAndResetOnTheUsersFiles) {
  Desktop desktop;
  desktop.root.write("/usr-share/applications/mimeapps.list", "[Default Applications]\napplication/pdf=org.gnome.Evince.desktop\n");
  desktop.root.write("/config/x-zentrel-mimeapps.list",
                     "[Default Applications]\napplication/pdf=org.kde.okular.desktop\ntext/plain=kate.desktop\n");
  desktop.root.write("/config/mimeapps.list", "[Default Applications]\ntext/html=firefox-esr.desktop\n");
  ::chmod((desktop.config() + "/mimeapps.list").c_str(), 0600);
  desktop.desktops = "X-Zentrel";

  std::vector<zt::test::ScopedEnvironment*> scoped;
  for (const auto& [key, value] : desktop.pairs()) scoped.push_back(new zt::test::ScopedEnvironment(key.c_str(), value.c_str()));
  ZTSetAppDesktopEntryID(kReader);

  EXPECT_FALSE(isAppDefaultPDFHandler());
  ASSERT_TRUE(setAppAsDefaultPDFHandler());
  EXPECT_TRUE(isAppDefaultPDFHandler());
  EXPECT_EQ(desktop.root.read("/config/mimeapps.list"),
            "[Default Applications]\ntext/html=firefox-esr.desktop\napplication/pdf=org.zentrel.Reader.desktop\n");
  // The desktop's own list named a PDF default and would have won: it names this application now.
  EXPECT_EQ(desktop.root.read("/config/x-zentrel-mimeapps.list"),
            "[Default Applications]\napplication/pdf=org.zentrel.Reader.desktop\ntext/plain=kate.desktop\n");
  struct stat info;
  ASSERT_EQ(::stat((desktop.config() + "/mimeapps.list").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  if (auto answer = desktop.xdgMime()) {
    EXPECT_EQ(*answer, kReader);
  }
  ZTSetAppDesktopEntryID("ORG.ZENTREL.READER.DESKTOP");
  EXPECT_TRUE(isAppDefaultPDFHandler());

  ASSERT_TRUE(resetDefaultPDFHandler());
  EXPECT_FALSE(isAppDefaultPDFHandler());
  EXPECT_EQ(desktop.current(), kEvince);  // the system's default applies again
  EXPECT_EQ(desktop.root.read("/config/mimeapps.list"), "[Default Applications]\ntext/html=firefox-esr.desktop\n");
  EXPECT_EQ(desktop.root.read("/config/x-zentrel-mimeapps.list"), "[Default Applications]\ntext/plain=kate.desktop\n");
  EXPECT_TRUE(resetDefaultPDFHandler());  // nothing left to remove

  // Another application the user chose is theirs: reset leaves it.
  desktop.root.write("/config/mimeapps.list", "[Default Applications]\napplication/pdf=org.kde.okular.desktop\n");
  EXPECT_TRUE(resetDefaultPDFHandler());
  EXPECT_EQ(desktop.current(), "org.kde.okular.desktop");
  // No leftovers of the atomic writes beside the files.
  for (const auto& entry : std::filesystem::directory_iterator(desktop.config())) {
    EXPECT_EQ(entry.path().filename().string().find(".tmp"), std::string::npos) << entry.path();
  }

  ZTSetAppDesktopEntryID("");
  for (auto* s : scoped) delete s;
}

TEST(PDFHandler, RefusesWhatWouldNotWork) {
  Desktop desktop;
  zt::test::LogCapture log;
  EXPECT_FALSE(setDefaultApplication(kPDF, "not-installed.desktop", desktop.env()));
  EXPECT_FALSE(std::filesystem::exists(desktop.config() + "/mimeapps.list"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0],
            "ERROR: cannot make not-installed.desktop the default for application/pdf: no desktop entry of that name is installed");

  // Without a desktop entry ID the application has no name to register.
  ZTSetAppDesktopEntryID("");
  EXPECT_FALSE(setAppAsDefaultPDFHandler());
  EXPECT_FALSE(isAppDefaultPDFHandler());
  EXPECT_FALSE(resetDefaultPDFHandler());

  // A folder where the list should be: refused, nothing changed.
  desktop.root.makeFolder("/config/mimeapps.list");
  EXPECT_FALSE(setDefaultApplication(kPDF, kReader, desktop.env()));
  EXPECT_TRUE(std::filesystem::is_directory(desktop.config() + "/mimeapps.list"));

  // The config home below a file cannot be made.
  Desktop blocked;
  blocked.root.write("/config", "a file");
  EXPECT_FALSE(setDefaultApplication(kPDF, kReader, blocked.env()));
  EXPECT_EQ(blocked.root.read("/config"), "a file");
}

TEST(PDFHandler, ALinkedListIsUpdatedWhereItLives) {
  Desktop desktop;
  desktop.root.write("/dotfiles/mimeapps.list", "[Default Applications]\ntext/html=firefox-esr.desktop\n");
  desktop.root.makeFolder("/config");
  ASSERT_EQ(::symlink((desktop.root.path() + "/dotfiles/mimeapps.list").c_str(), (desktop.config() + "/mimeapps.list").c_str()), 0);
  ASSERT_TRUE(setDefaultApplication(kPDF, kReader, desktop.env()));
  EXPECT_TRUE(std::filesystem::is_symlink(desktop.config() + "/mimeapps.list"));
  EXPECT_EQ(desktop.root.read("/dotfiles/mimeapps.list"),
            "[Default Applications]\ntext/html=firefox-esr.desktop\napplication/pdf=org.zentrel.Reader.desktop\n");
  EXPECT_EQ(desktop.current(), kReader);
}

TEST(PDFHandler, RunningDesktopAgreesWithXdgMime) {
  if (!zt::test::programInstalled("xdg-mime")) GTEST_SKIP() << "xdg-mime is not installed";
  auto answer = zt::test::commandOutput("xdg-mime query default application/pdf 2>/dev/null");
  ASSERT_TRUE(answer);
  auto ours = defaultApplicationFor(kPDF, processEnvironment());
  EXPECT_EQ(ours.value_or(""), std::string(trimmed(*answer)));
}

}  // namespace
