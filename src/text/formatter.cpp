#include "zentrel/text/formatter.h"

ZTFormatter::~ZTFormatter() = default;

std::optional<std::string> ZTFormatter::editingStringForObjectValue(const ZTValue& value) const {
  return stringForObjectValue(value);
}

std::optional<ZTAttributedString> ZTFormatter::attributedStringForObjectValue(const ZTValue&, const ZTValue&) const {
  return std::nullopt;
}

bool ZTFormatter::isPartialStringValid(std::string_view, std::string*, std::string*) const { return true; }
