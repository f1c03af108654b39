#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>

#include "zentrel/diagnostics/error_additions.h"

namespace {

// The text with every address ("0x" and hex digits) replaced by "0xADDR".
std::string withoutAddresses(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    if (text.compare(i, 2, "0x") == 0) {
      out += "0xADDR";
      i += 2;
      while (i < text.size() && std::isxdigit(static_cast<unsigned char>(text[i]))) ++i;
    } else {
      out += text[i++];
    }
  }
  return out;
}

TEST(ErrorAdditions, ConstructorsPutOnlyWhatIsGivenIntoTheUserInfo) {
  const ZTError bare = zt::errorWithDomain("MyDomain", 3, std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(bare.domain(), "MyDomain");
  EXPECT_EQ(bare.code(), 3);
  EXPECT_EQ(bare.userInfo(), ZTValue::dictionary());

  const ZTError inner = zt::errorWithPOSIXErrorCode(ENOENT);
  EXPECT_EQ(inner.domain(), ZTPOSIXErrorDomain);
  EXPECT_EQ(inner.code(), ENOENT);
  EXPECT_EQ(inner.localizedDescription(), std::strerror(ENOENT));

  const ZTError outer = zt::errorWithDomain("App", 1, "Could not open", "The file is gone", inner);
  EXPECT_EQ(outer.userInfo()[ZTLocalizedDescriptionKey].stringValue(), "Could not open");
  EXPECT_EQ(outer.userInfo()[ZTLocalizedFailureReasonErrorKey].stringValue(), "The file is gone");
  ASSERT_TRUE(zt::underlyingError(outer));
  EXPECT_EQ(*zt::underlyingError(outer), inner);
  EXPECT_FALSE(zt::underlyingError(inner));
}

TEST(ErrorAdditions, LocalizedDescriptionPrefersOwnThenUnderlyingThenDefault) {
  const ZTError inner = zt::errorWithPOSIXErrorCode(EACCES);
  EXPECT_EQ(zt::localizedDescriptionOfUnderlyingErrorOrSelf(zt::errorWithDomain("A", 1, "mine", {}, inner)), "mine");
  EXPECT_EQ(zt::localizedDescriptionOfUnderlyingErrorOrSelf(zt::errorWithDomain("A", 1, {}, {}, inner)),
            std::strerror(EACCES));
  EXPECT_EQ(zt::localizedDescriptionOfUnderlyingErrorOrSelf(ZTError("A", 1)),
            "The operation couldn\u2019t be completed. (A error 1.)");
}

TEST(ErrorAdditions, NestedCodeSearchStopsAtTheFirstErrorOfTheDomain) {
  const ZTError deepest("Net", 7);
  const ZTError middle = zt::errorWithDomain("Net", 9, {}, {}, deepest);
  const ZTError top = zt::errorWithDomain("App", 1, {}, {}, middle);
  EXPECT_TRUE(zt::hasNestedCode(top, 9, "Net"));
  EXPECT_FALSE(zt::hasNestedCode(top, 7, "Net"));  // the middle error of the domain answers first
  EXPECT_TRUE(zt::hasNestedCode(top, 1, "App"));
  EXPECT_FALSE(zt::hasNestedCode(top, 1, "Disk"));
  // A value of another shape under the underlying-error key is not an error.
  ZTValue info = ZTValue::dictionary();
  info[ZTUnderlyingErrorKey] = "not an error";
  EXPECT_FALSE(zt::hasNestedCode(ZTError("App", 1, info), 1, "Net"));
  EXPECT_FALSE(zt::underlyingError(ZTError("App", 1, info)));
}

TEST(ErrorAdditions, ExtendedDescriptionListsThePiecesAndIndentsTheChainWithTabs) {
  ZTError inner("Net", 7);
  ZTError outer = zt::errorWithDomain("App", 1, "Could not sync", "", inner);
  ZTValue info = outer.userInfo();
  info["path"] = "/tmp/x";
  outer = ZTError(outer.domain(), outer.code(), info);

  const std::string text = zt::extendedDescription(outer);
  EXPECT_EQ(withoutAddresses(text),
            "<ZTError 0xADDR:\n"
            "\tdomain = \"App\"\n"
            "\tcode = 1\n"
            "\tdescription = \"Could not sync\"\n"
            "\tuser info = {\n    path = /tmp/x;\n}\n"
            "\tunderlying error = \n"
            "\t<ZTError 0xADDR:\n"
            "\t\tdomain = \"Net\"\n"
            "\t\tcode = 7\n"
            "\t>\n"
            ">");

  const std::string reason = zt::extendedDescriptionWithCurrentIndentationLevel(
      zt::errorWithDomain("A", 2, {}, "because", {}), 2);
  EXPECT_NE(reason.find("\n\t\t\tfailure reason = \"because\""), std::string::npos) << reason;
  EXPECT_EQ(reason.substr(reason.size() - 4), "\n\t\t>");
}

TEST(ErrorAdditions, LongChainsAreFollowedOnlyToTheDepthLimit) {
  ZTError error("Deep", 0);
  for (int i = 1; i < 200; ++i) error = zt::errorWithDomain("Deep" + std::to_string(i), i, {}, {}, error);
  EXPECT_FALSE(zt::hasNestedCode(error, 0, "Deep"));  // beyond the limit
  EXPECT_TRUE(zt::hasNestedCode(error, 150, "Deep150"));
  EXPECT_FALSE(zt::extendedDescription(error).empty());
}

}  // namespace
