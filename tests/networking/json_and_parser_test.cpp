#include <gtest/gtest.h>

#include <cmath>

#include "common/log_and_environment.h"
#include "zentrel/networking/json_serialization.h"
#include "zentrel/networking/response_parser.h"

namespace {

TEST(JSONSerialization, RoundTripsDocumentsAndLogsEachKindOfFailure) {
  ZTValue document = ZTValue::dictionary();
  document["list"] = ZTValueArray{ZTValue(1), ZTValue(2.5), ZTValue(true), ZTValue(nullptr), ZTValue("é")};
  document["big"] = ZTValue(std::uint64_t{18446744073709551615ull});
  auto text = ZTJSONSerialization::stringWithJSONObject(document);
  ASSERT_TRUE(text);
  EXPECT_EQ(*text, "{\"big\":18446744073709551615,\"list\":[1,2.5,true,null,\"é\"]}");
  EXPECT_EQ(ZTJSONSerialization::JSONObjectWithString(*text), document);

  zt::test::LogCapture log;
  EXPECT_FALSE(ZTJSONSerialization::stringWithJSONObject(ZTValue("fragment")));
  EXPECT_FALSE(ZTJSONSerialization::stringWithJSONObject(ZTValueArray{ZTValue(std::nan(""))}));
  EXPECT_FALSE(ZTJSONSerialization::stringWithJSONObject(ZTValueArray{ZTValue(std::string("\xFF"))}));
  EXPECT_FALSE(ZTJSONSerialization::JSONObjectWithString("\xFF"));
  EXPECT_FALSE(ZTJSONSerialization::JSONObjectWithString("{\"a\": }"));
  EXPECT_FALSE(ZTJSONSerialization::JSONObjectWithString("42"));
  EXPECT_FALSE(ZTJSONSerialization::JSONObjectWithString(std::string(100000, '[')));
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[0], "passed object cannot be serialized to JSON");
  EXPECT_EQ(lines[1], "passed object cannot be serialized to JSON");
  EXPECT_TRUE(lines[2].starts_with("failed to form JSON from object (")) << lines[2];
  EXPECT_EQ(lines[3], "failed to form data from JSON string \xFF");
  EXPECT_TRUE(lines[4].starts_with("failed to form JSON object from JSON string {\"a\": }. error = ")) << lines[4];
  EXPECT_TRUE(lines[5].starts_with("failed to form JSON object from JSON string 42. error = ")) << lines[5];
}

ZTValueDictionary sample() {
  ZTValueDictionary d;
  d["count"] = 3;
  d["flag"] = true;
  d["name"] = "zentrel";
  d["none"] = nullptr;
  d["items"] = ZTValueArray{ZTValue(1)};
  d["when"] = ZTDate(1000.0);
  return d;
}

TEST(ResponseParser, RequiredAndOptionalKeysAreCheckedAndLogged) {
  zt::test::LogCapture log;
  int handlerCalls = 0;
  auto handler = [&] { ++handlerCalls; };
  const auto d = sample();
  EXPECT_EQ(zt::valueForKey(d, "name", ZTValueClass::String, false, handler), ZTValue("zentrel"));
  EXPECT_EQ(zt::valueForKey(d, "flag", ZTValueClass::Number, false, handler), ZTValue(true));
  EXPECT_EQ(zt::valueForKey(d, "absent", ZTValueClass::String, true, handler), std::nullopt);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(handlerCalls, 0);

  EXPECT_EQ(zt::valueForKey(d, "count", ZTValueClass::String, true, handler), std::nullopt);
  EXPECT_EQ(zt::valueForKey(d, "absent", ZTValueClass::String, false, handler), std::nullopt);
  EXPECT_EQ(zt::valueForKey(d, "none", ZTValueClass::Array, true), std::nullopt);
  EXPECT_EQ(zt::valueForKey(d, "name", ZTValueClass::Number, false, [] { throw std::runtime_error("x"); }),
            std::nullopt);
  EXPECT_EQ(handlerCalls, 2);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], "ERROR: invalid value type: <Int> for key: 'count'");
  EXPECT_EQ(lines[1], "ERROR: invalid value type: <nil> for key: 'absent'");
  EXPECT_EQ(lines[2], "ERROR: invalid value type: <Null> for key: 'none'");
  EXPECT_EQ(lines[3], "ERROR: invalid value type: <String> for key: 'name'");
}

TEST(ResponseParser, EnumerationStopsAtTheFirstBadEntry) {
  zt::test::LogCapture log;
  std::vector<std::string> seen;
  int errors = 0;
  zt::enumerateKeysWithClass(
      sample(), ZTValueClass::String, ZTValueClass::Number,
      [&](const std::string& key, const ZTValue&, bool&) { seen.push_back(key); }, [&] { ++errors; });
  EXPECT_EQ(seen, (std::vector<std::string>{"count", "flag"}));  // "items" is the first non-number
  EXPECT_EQ(errors, 1);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"ERROR: invalid value type: <Array> for key: 'items'"});

  seen.clear();
  zt::enumerateKeysWithClass(sample(), ZTValueClass::Number, ZTValueClass::Number,
                             [&](const std::string& key, const ZTValue&, bool&) { seen.push_back(key); });
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(log.lines().back(), "ERROR: invalid key type: <String> for key: 'count'");

  seen.clear();
  ZTValueDictionary numbers{{"a", ZTValue(1)}, {"b", ZTValue(2)}, {"c", ZTValue(3)}};
  zt::enumerateKeysWithClass(numbers, ZTValueClass::String, ZTValueClass::Number,
                             [&](const std::string& key, const ZTValue&, bool& stop) {
                               seen.push_back(key);
                               stop = key == "b";
                             });
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b"}));
}

TEST(ResponseParser, SilentTypedAccessorsAndNullRemoval) {
  zt::test::LogCapture log;
  const auto d = sample();
  EXPECT_EQ(zt::ztStringForKey(d, "name"), "zentrel");
  EXPECT_EQ(zt::ztStringForKey(d, "count"), std::nullopt);
  EXPECT_EQ(zt::ztArrayForKey(d, "items")->size(), 1u);
  EXPECT_EQ(zt::ztDateForKey(d, "when"), ZTDate(1000.0));
  EXPECT_EQ(zt::ztObjectForKey(d, "count", ZTValueClass::Number), ZTValue(3));
  EXPECT_TRUE(zt::ztBoolForKey(d, "flag"));
  EXPECT_TRUE(zt::ztBoolForKey(d, "count"));
  EXPECT_TRUE(zt::ztBoolForKey(d, "name", true));
  EXPECT_FALSE(zt::ztBoolForKey(d, "absent"));
  EXPECT_TRUE(log.lines().empty());

  ZTValueDictionary nested = d;
  nested["inner"] = ZTValueDictionary{{"null", ZTValue()}};
  auto cleaned = zt::dictinaryByRemovingNullValues(nested);
  EXPECT_FALSE(cleaned.contains("none"));
  EXPECT_EQ(cleaned.size(), nested.size() - 1);
  EXPECT_TRUE(cleaned["inner"].contains("null"));  // one level only
}

}  // namespace
