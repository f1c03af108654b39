#include "zentrel/system/os_version.h"

#include <gtest/gtest.h>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "system/support/machine_root.h"

namespace {

using namespace zt::system_internal;

// os-release files as the distributions ship them.
constexpr const char* kDebian12 =
    "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
    "NAME=\"Debian GNU/Linux\"\n"
    "VERSION_ID=\"12\"\n"
    "VERSION=\"12 (bookworm)\"\n"
    "VERSION_CODENAME=bookworm\n"
    "ID=debian\n"
    "HOME_URL=\"https://www.debian.org/\"\n";

constexpr const char* kUbuntu2204 =
    "PRETTY_NAME=\"Ubuntu 22.04.3 LTS\"\n"
    "NAME=\"Ubuntu\"\n"
    "VERSION_ID=\"22.04\"\n"
    "VERSION=\"22.04.3 LTS (Jammy Jellyfish)\"\n"
    "VERSION_CODENAME=jammy\n"
    "ID=ubuntu\n"
    "ID_LIKE=debian\n";

constexpr const char* kFedora39 =
    "NAME=\"Fedora Linux\"\n"
    "VERSION=\"39 (Workstation Edition)\"\n"
    "ID=fedora\n"
    "VERSION_ID=39\n"
    "PLATFORM_ID=\"platform:f39\"\n"
    "PRETTY_NAME=\"Fedora Linux 39 (Workstation Edition)\"\n"
    "ANSI_COLOR=\"0;38;2;60;110;180\"\n";

constexpr const char* kAlpine =
    "NAME=\"Alpine Linux\"\n"
    "ID=alpine\n"
    "VERSION_ID=3.19.1\n"
    "PRETTY_NAME=\"Alpine Linux v3.19\"\n"
    "HOME_URL=\"https://alpinelinux.org/\"\n";

constexpr const char* kArch =  // rolling: no VERSION_ID
    "NAME=\"Arch Linux\"\n"
    "PRETTY_NAME=\"Arch Linux\"\n"
    "ID=arch\n"
    "BUILD_ID=rolling\n";

TEST(ReleaseVersion, MinorScaledByItsOwnDigits) {
  EXPECT_FLOAT_EQ(parseReleaseVersion("10.15").value, 10.15f);
  EXPECT_FLOAT_EQ(parseReleaseVersion("10.9").value, 10.9f);
  EXPECT_FLOAT_EQ(parseReleaseVersion("11.0").value, 11.0f);
  EXPECT_FLOAT_EQ(parseReleaseVersion("12").value, 12.0f);
  EXPECT_FLOAT_EQ(parseReleaseVersion("22.04").value, 22.04f);
  EXPECT_FLOAT_EQ(parseReleaseVersion("3.19.1").value, 3.19f);
  EXPECT_EQ(parseReleaseVersion("3.19.1").triple, (ZTVersionTriple{3, 19, 1}));
  EXPECT_EQ(parseReleaseVersion("22.04").triple, (ZTVersionTriple{22, 4, 0}));
  EXPECT_EQ(parseReleaseVersion("2023.09-beta").triple, (ZTVersionTriple{2023, 9, 0}));
  for (const char* bad : {"", "rolling", ".5", "x12", "99999999999999999999"}) {
    EXPECT_EQ(parseReleaseVersion(bad).triple, ZTVersionTriple{}) << bad;
    EXPECT_EQ(parseReleaseVersion(bad).value, 0.0f) << bad;
  }
}

TEST(ReleaseVersion, ReadFromShippedReleaseFiles) {
  struct Case {
    const char* file;
    ZTVersionTriple triple;
    float value;
    const char* description;
  } cases[] = {
      {kDebian12, {12, 0, 0}, 12.0f, "Debian GNU/Linux 12 (bookworm)"},
      {kUbuntu2204, {22, 4, 0}, 22.04f, "Ubuntu 22.04.3 LTS"},
      {kFedora39, {39, 0, 0}, 39.0f, "Fedora Linux 39 (Workstation Edition)"},
      {kAlpine, {3, 19, 1}, 3.19f, "Alpine Linux v3.19"},
      {kArch, {0, 0, 0}, 0.0f, "Arch Linux"},
  };
  for (const auto& c : cases) {
    zt::test::MachineRoot root;
    root.write("/etc/os-release", c.file);
    auto version = releaseVersionAt(root.path());
    EXPECT_EQ(version.triple, c.triple) << c.description;
    EXPECT_FLOAT_EQ(version.value, c.value) << c.description;
    EXPECT_EQ(releaseDescription(*osReleaseTextAt(root.path())), c.description);
  }
  // /usr/lib/os-release answers when /etc has none.
  zt::test::MachineRoot vendorOnly;
  vendorOnly.write("/usr/lib/os-release", kAlpine);
  EXPECT_EQ(releaseVersionAt(vendorOnly.path()).triple, (ZTVersionTriple{3, 19, 1}));
  // Without PRETTY_NAME the name and version make the text; with nothing, "Linux".
  EXPECT_EQ(releaseDescription("NAME=Gentoo\nVERSION='2.14'\n"), "Gentoo 2.14");
  EXPECT_EQ(releaseDescription(""), "Linux");
}

TEST(ReleaseVersion, DamagedOrMissingFilesGiveTheZeroVersion) {
  zt::test::MachineRoot empty;
  EXPECT_EQ(releaseVersionAt(empty.path()).triple, ZTVersionTriple{});
  const std::string full = kUbuntu2204;
  for (std::size_t cut = 0; cut <= full.size(); ++cut) {
    auto versionID = assignmentValue(std::string_view(full).substr(0, cut), "VERSION_ID");
    auto version = versionID ? parseReleaseVersion(*versionID) : ReleaseVersion{};
    // Cut inside the value: a shorter number, or nothing; an unterminated quote is no value at all.
    EXPECT_TRUE(version.triple == (ZTVersionTriple{22, 4, 0}) || version.triple == ZTVersionTriple{}) << cut;
  }
  zt::test::MachineRoot truncated;
  truncated.write("/etc/os-release", full.substr(0, full.find("VERSION_ID=\"22.") + 15));
  EXPECT_EQ(releaseVersionAt(truncated.path()).triple, ZTVersionTriple{});
  zt::test::MachineRoot garbage;
  static constexpr char kGarbage[] = "\x01\xff VERSION_ID\n==\n\0\0VERSION_ID=\"\n";
  garbage.write("/etc/os-release", std::string(kGarbage, sizeof kGarbage - 1));
  EXPECT_EQ(releaseVersionAt(garbage.path()).triple, ZTVersionTriple{});
  EXPECT_EQ(assignmentValue("A=\"quoted \\\"word\\\" \\$x\"\n", "A"), "quoted \"word\" $x");
  EXPECT_EQ(assignmentValue("A=1\nA=2\n", "A"), "2");
}

TEST(ReleaseVersion, RunningSystemAgreesWithItself) {
  const ZTVersionTriple running = ZTOperatingSystemVersion();
  auto text = readTextFile("/etc/os-release");
  if (!text) text = readTextFile("/usr/lib/os-release");
  if (!text || !assignmentValue(*text, "VERSION_ID")) GTEST_SKIP() << "this system names no release version";
  EXPECT_GT(running.majorVersion, 0);
  EXPECT_GT(ZTGetSystemVersion(), 0.0f);
  EXPECT_NE(ZTOperatingSystemVersionString(), "");
  EXPECT_TRUE(isOperatingSystemAtLeastVersion(running.majorVersion, running.minorVersion));
  EXPECT_TRUE(isOperatingSystemAtLeastVersionWithPatch(running.majorVersion, running.minorVersion,
                                                       running.patchVersion));
  EXPECT_FALSE(isOperatingSystemAtLeastVersionWithPatch(running.majorVersion, running.minorVersion,
                                                        running.patchVersion + 1));
  EXPECT_FALSE(isOperatingSystemAtLeastVersion(running.majorVersion + 1, 0));
  EXPECT_TRUE(isOperatingSystemAtLeastVersion(running.majorVersion - 1, 99));
  EXPECT_TRUE(isOperatingSystemVersionExactly(running.majorVersion, running.minorVersion, running.patchVersion));
  EXPECT_FALSE(isOperatingSystemVersionExactly(running.majorVersion, running.minorVersion + 1, running.patchVersion));
}

TEST(KernelVersion, MatchesUname) {
  EXPECT_EQ(parseKernelRelease("6.1.0-13-amd64"), (ZTVersionTriple{6, 1, 0}));
  EXPECT_EQ(parseKernelRelease("5.15.133.1-microsoft-standard-WSL2"), (ZTVersionTriple{5, 15, 133}));
  EXPECT_EQ(parseKernelRelease("6.7-rc1"), (ZTVersionTriple{6, 7, 0}));
  auto uname = zt::test::commandOutput("uname -r");
  ASSERT_TRUE(uname);
  EXPECT_EQ(ZTKernelVersionString(), std::string(trimmed(*uname)));
  EXPECT_GE(ZTKernelVersion().majorVersion, 3);
}

}  // namespace
