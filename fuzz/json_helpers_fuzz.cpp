// JSON text from arbitrary bytes, then the typed access of response_parser.h on what it gives. A
// document that parses is a valid JSON object, writes, and reads back equal.
#include <cstdlib>
#include <string_view>

#include "fuzz_input.h"
#include "zentrel/networking/json_serialization.h"
#include "zentrel/networking/response_parser.h"
#include "zentrel/platform/log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ZTSetLogSink([](std::string_view) {});
  return 0;
}

namespace {

constexpr ZTValueClass kClasses[] = {ZTValueClass::Null,  ZTValueClass::Number, ZTValueClass::String,
                                     ZTValueClass::Bytes, ZTValueClass::Date,   ZTValueClass::Array,
                                     ZTValueClass::Dictionary};

void readTyped(const ZTValueDictionary& dictionary, const std::string& key, FuzzedDataProvider& input) {
  const ZTValueClass valueClass = input.PickValueInArray(kClasses);
  const ZTValueClass keyClass = input.PickValueInArray(kClasses);
  const bool optional = input.ConsumeBool();
  (void)zt::valueForKey(dictionary, key, valueClass, optional, [] {});
  (void)zt::ztObjectForKey(dictionary, key, valueClass);
  (void)zt::ztStringForKey(dictionary, key);
  (void)zt::ztArrayForKey(dictionary, key);
  (void)zt::ztDateForKey(dictionary, key);
  (void)zt::ztBoolForKey(dictionary, key, optional);
  std::size_t passed = 0;
  zt::enumerateKeysWithClass(
      dictionary, keyClass, valueClass,
      [&](const std::string&, const ZTValue& value, bool& stop) {
        (void)ZTValueTypeName(&value);
        stop = ++passed == 64;
      },
      [] {});
  const ZTValueDictionary withoutNulls = zt::dictinaryByRemovingNullValues(dictionary);
  for (const auto& [name, value] : withoutNulls) {
    if (value.isNull()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string key = zt_fuzz::text(input, 64);
  const std::string text = zt_fuzz::text(input, 4096);

  const auto value = ZTJSONSerialization::JSONObjectWithString(text);
  if (!value) return 0;
  if (!value->isArray() && !value->isDictionary()) std::abort();
  if (!ZTJSONSerialization::isValidJSONObject(*value)) std::abort();
  const auto written = ZTJSONSerialization::stringWithJSONObject(*value);
  if (!written) std::abort();
  const auto reread = ZTJSONSerialization::JSONObjectWithString(*written);
  if (!reread || !(*reread == *value)) std::abort();

  if (const auto* dictionary = value->getIf<ZTValueDictionary>()) readTyped(*dictionary, key, input);
  if (const auto* array = value->getIf<ZTValueArray>()) {
    for (const auto& element : *array) {
      if (const auto* dictionary = element.getIf<ZTValueDictionary>()) readTyped(*dictionary, key, input);
    }
  }
  return 0;
}
