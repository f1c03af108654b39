#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "zentrel/diagnostics/pretty_print.h"

namespace {

ZTValue dict(std::initializer_list<std::pair<const std::string, ZTValue>> entries) {
  ZTValueDictionary d;
  for (const auto& [k, v] : entries) d.emplace(k, v);
  return ZTValue(std::move(d));
}

ZTValue arr(std::initializer_list<ZTValue> items) { return ZTValue(ZTValueArray(items)); }

TEST(PrettyPrint, ScalarsAndEmptyCollections) {
  EXPECT_EQ(zt::prettyPrint(ZTValue("plain text")), "plain text");
  EXPECT_EQ(zt::prettyPrint(ZTValue(42)), "42");
  EXPECT_EQ(zt::prettyPrint(ZTValue()), "<null>");
  EXPECT_EQ(zt::prettyPrint(ZTValue::array()), "(\n)");
  EXPECT_EQ(zt::prettyPrint(ZTValue::dictionary()), "{ (null), (null)\n}");
}

TEST(PrettyPrint, ArraysOfScalarsAreIndentedAndSeparated) {
  EXPECT_EQ(zt::prettyPrint(arr({1, "two", 3.5})), "(\n   1,\n   two,\n   3.5\n)");
  bool isCollection = false;
  EXPECT_EQ(zt::prettyPrintAtLevel(arr({1}), 2, &isCollection), "  (\n     1\n  )");
  EXPECT_TRUE(isCollection);
  zt::prettyPrintAtLevel(ZTValue(1), 2, &isCollection);
  EXPECT_FALSE(isCollection);
}

TEST(PrettyPrint, ALastDictionaryClosesTogetherWithTheArray) {
  const ZTValue value = arr({1, dict({{"name", "x"}, {"size", 3}})});
  EXPECT_EQ(zt::prettyPrint(value),
            "(\n"
            "   1,\n"
            "   { (null), (null)\n"
            "      name = x\n"
            "      size = 3\n"
            "})");
}

TEST(PrettyPrint, ACollectionBeforeTheLastElementKeepsItsOwnClosing) {
  const ZTValue value = arr({dict({{"a", 1}}), "tail"});
  EXPECT_EQ(zt::prettyPrint(value),
            "(\n"
            "   { (null), (null)\n"
            "      a = 1\n"
            "   },\n"
            "   tail\n"
            ")");
}

TEST(PrettyPrint, DictionariesShowClassAndSelfFirstAndNestCollections) {
  const ZTValue value = dict({{"class", "Folder"}, {"self", "0x10"}, {"items", arr({"a", "b"})}, {"count", 2}});
  EXPECT_EQ(zt::prettyPrint(value),
            "{ Folder, 0x10\n"
            "   count = 2\n"
            "   items =\n"
            "   (\n"
            "      a,\n"
            "      b\n"
            "   )\n"
            "}");
}

class Folder : public ZTDictionaryRepresentable {
 public:
  ZTValue _dictionaryFromSelf() const override { return dict({{"name", "Inbox"}}); }
};

class BrokenFolder : public ZTDictionaryRepresentable {
 public:
  ZTValue _dictionaryFromSelf() const override { throw std::runtime_error("no state yet"); }
};

class StrangeFolder : public ZTDictionaryRepresentable {
 public:
  ZTValue _dictionaryFromSelf() const override { throw 7; }
};

TEST(PrettyPrint, ObjectsPrintAsTheirDictionaryWithClassAndAddress) {
  Folder folder;
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(&folder));
  EXPECT_EQ(zt::prettyPrint(folder), "{ (anonymous namespace)::Folder, " + std::string(address) + "\n   name = Inbox\n}");
}

TEST(PrettyPrint, AFailingObjectGivesTheWarningFormAndForeignExceptionsPassThrough) {
  EXPECT_EQ(zt::prettyPrint(BrokenFolder()), "\n\n\u26A0\uFE0F no state yet\n");
  EXPECT_THROW(zt::prettyPrint(StrangeFolder()), int);
}

TEST(PrettyPrint, AbsurdlyDeepNestingIsBounded) {
  ZTValue value = 1;
  for (int i = 0; i < 600; ++i) value = arr({value});
  const std::string text = zt::prettyPrint(value);
  EXPECT_GT(text.size(), 600u);
}

}  // namespace
