#include "zentrel/platform/value.h"

#include <gtest/gtest.h>

#include "zentrel/platform/error.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/localization.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/uuid.h"

namespace {
TEST(Value, HoldsEveryKindAndConvertsNumbersOnly) {
  ZTValue v;
  EXPECT_TRUE(v.isNull());
  EXPECT_TRUE(ZTValue(true).isBool());
  EXPECT_EQ(ZTValue(42).type(), ZTValue::Type::Int);
  EXPECT_EQ(ZTValue(42u).type(), ZTValue::Type::UInt);
  EXPECT_EQ(ZTValue("text").type(), ZTValue::Type::String);  // not bool, despite the pointer
  EXPECT_EQ(ZTValue(2.5).intValue(), 2);
  EXPECT_EQ(ZTValue(-1).uintValue(), UINT64_MAX);
  EXPECT_EQ(ZTValue(1e30).intValue(), INT64_MAX);
  EXPECT_EQ(ZTValue("12").intValue(7), 7);  // strings are never parsed
  EXPECT_EQ(ZTValue(3).stringValue("none"), "none");
}

TEST(Value, NestedAccessNeverThrowsForMissingParts) {
  ZTValue root;
  root["user"]["name"] = "Ada";
  root["list"].push_back(1);
  root["list"].push_back("two");
  EXPECT_EQ(root["user"]["name"].stringValue(), "Ada");
  EXPECT_TRUE(root["missing"]["deeper"].isNull());
  EXPECT_TRUE(root["list"][5].isNull());
  EXPECT_EQ(root["list"].size(), 2u);
  EXPECT_THROW(root["list"].at(2), ZTRangeException);
  ZTValue text("x");
  EXPECT_THROW(text["k"] = 1, ZTInternalInconsistencyException);
  ZTValue copy = root;
  copy["user"]["name"] = "Grace";
  EXPECT_EQ(root["user"]["name"].stringValue(), "Ada");  // deep copy
  EXPECT_FALSE(copy == root);
}

TEST(Value, DescriptionReadsLikeAPropertyList) {
  ZTValue v;
  v["a b"] = ZTValueArray{1, "x", ZTBytes{0xde, 0xad, 0xbe, 0xef, 0x01}};
  v["date"] = ZTDate(0);
  EXPECT_EQ(v.description(),
            "{\n    \"a b\" = (\n        1,\n        x,\n        <deadbeef 01>\n    );\n"
            "    date = 2001-01-01T00:00:00.000Z;\n}");
}

TEST(Platform, ExceptionReasonsAndSmallHelpers) {
  EXPECT_EQ(ZTAbstractMethodReason("main", "ZTOperation"), "You must override main in ZTOperation class.");
  EXPECT_EQ(ZTRefusedInitializerReason("create(queue)", "create()", "ZTPool"),
            "You should call create(queue) instead of create() for ZTPool class.");
  const auto a = ZTUUIDString(), b = ZTUUIDString();
  EXPECT_NE(a, b);
  ASSERT_EQ(a.size(), 36u);
  EXPECT_EQ(a[14], '4');
  EXPECT_NE(std::string("89AB").find(a[19]), std::string::npos);
  EXPECT_EQ(a, [&] { std::string u = a; for (auto& c : u) c = static_cast<char>(toupper(c)); return u; }());
  EXPECT_EQ(ZTLocalizedString("Untranslated text"), "Untranslated text");
  EXPECT_EQ(ZTLocalizedString(""), "");

  std::vector<std::string> lines;
  ZTSetLogSink([&](std::string_view line) { lines.emplace_back(line); });
  ZTLogf("ERROR: %s %d", "code", 5);
  ZTLog("plain % line");
  ZTSetLogSink({});
  EXPECT_EQ(lines, (std::vector<std::string>{"ERROR: code 5", "plain % line"}));
}
}  // namespace
