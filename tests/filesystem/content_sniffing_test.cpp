#include "zentrel/filesystem/content_sniffing.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "filesystem/support/scratch_folder.h"

namespace {

using zt::test::ScratchFolder;
using zt::test::writeFile;

class ContentSniffing : public ::testing::Test {
 protected:
  std::string file(const std::string& name, std::string_view bytes) {
    const std::string path = dir / name;
    writeFile(path, bytes);
    return path;
  }
  ScratchFolder dir;
};

TEST_F(ContentSniffing, PlainText) {
  EXPECT_TRUE(ZTIsPlainTextFileAtPath(file("short.txt", "ten bytes!")));
  EXPECT_TRUE(ZTIsPlainTextFileAtPath(file("empty.txt", "")));
  EXPECT_TRUE(ZTIsPlainTextFileAtPath(file("utf8.txt", "h\xC3\xA9llo w\xC3\xB6rld, a line of UTF-8 text\n")));
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(file("doc.pdf", "%PDF-1.4\n1 0 obj\n")));
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(file("a.plist", "bplist00 and ASCII after")));
  // Outside ASCII the signature is not read; without a zero byte the file counts as text.
  EXPECT_TRUE(ZTIsPlainTextFileAtPath(file("b.plist", "bplist00\xd1\x01\x02")));
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(file("page", "xx<DOCTYPE html>")));
  // UTF-16 text holds zero bytes.
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(file("utf16.txt", std::string("\xFF\xFEh\0i\0", 6))));
}

TEST_F(ContentSniffing, ZeroBytesCountOnlyInTheFirst4096) {
  std::string text(5000, 'a');
  text[4095] = '\0';
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(file("late-zero", text)));
  text[4095] = 'a';
  text[4096] = '\0';
  EXPECT_TRUE(ZTIsPlainTextFileAtPath(file("too-late-zero", text)));
  std::string early(30, 'a');
  early[10] = '\0';
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(file("early-zero", early)));
}

TEST_F(ContentSniffing, NonASCIIHeaderDisablesTheSignatureChecks) {
  const std::string path = file("odd", "%PDF-1.7 \xC3\xA9\xC3\xA9 and more text");
  EXPECT_TRUE(ZTIsPlainTextFileAtPath(path));
  EXPECT_EQ(ZTFileExtensionUsingContentForFileAtPath(path), std::nullopt);
}

TEST_F(ContentSniffing, UnreadableOrMissingFilesAreNotText) {
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(dir / "missing"));
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(""));
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(dir.path()));  // a folder cannot be read
  // A FIFO without a writer would block a reader: it is not read at all.
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(ZTIsPlainTextFileAtPath(dir / "fifo"));
  EXPECT_EQ(ZTFileExtensionUsingContentForFileAtPath(dir / "fifo"), std::nullopt);
  const std::string locked = file("locked.txt", "text");
  ASSERT_EQ(::chmod(locked.c_str(), 0), 0);
  if (::geteuid() != 0) {
    EXPECT_FALSE(ZTIsPlainTextFileAtPath(locked));
  }
  EXPECT_EQ(ZTFileExtensionUsingContentForFileAtPath(dir / "missing"), std::nullopt);
}

TEST_F(ContentSniffing, PDFSignatureCorrectsTheExtension) {
  const std::string pdf = "%PDF-1.4\n%%EOF\n";
  EXPECT_EQ(ZTFileExtensionUsingContentForFileAtPath(file("report.txt", pdf)), "pdf");
  EXPECT_EQ(ZTFileNameWithContentCorrectedExtensionForFileAtPath(dir / "report.txt"), "report.pdf");
  file("scan", pdf);
  EXPECT_EQ(ZTFileNameWithContentCorrectedExtensionForFileAtPath(dir / "scan"), "scan.pdf");
  file("Already.PDF", "not even a pdf");
  EXPECT_EQ(ZTFileNameWithContentCorrectedExtensionForFileAtPath(dir / "Already.PDF"), "Already.PDF");
  file("notes.txt", "plain words");
  EXPECT_EQ(ZTFileExtensionUsingContentForFileAtPath(dir / "notes.txt"), std::nullopt);
  EXPECT_EQ(ZTFileNameWithContentCorrectedExtensionForFileAtPath(dir / "notes.txt"), "notes.txt");
  EXPECT_EQ(ZTFileNameWithContentCorrectedExtensionForFileAtPath(dir / "gone.doc"), "gone.doc");
  EXPECT_EQ(ZTFileExtensionUsingContentForFileAtPath(file("short", "%PD")), std::nullopt);
}

}  // namespace
