#pragma once
// ZTFormatter: the base of the library's formatters, which turn values into text a user reads or
// edits and text a user typed back into values.
//
// A formatter works on ZTValue: which kinds of value it accepts is said by each formatter (the
// number formatters take numbers, the length formatter numbers of metres). The operations:
// - stringForObjectValue: the text shown for a value; std::nullopt for a value the formatter does
//   not format (a string given to a number formatter, a null value).
// - editingStringForObjectValue: the text put in a field for editing; by default the shown text.
// - attributedStringForObjectValue: the shown text with attributes; by default std::nullopt
//   (the formatter has no attributed form).
// - getObjectValue: the value for a text. Answers false when the text is not valid; *value is then
//   left as it was, and *errorDescription (when given) may receive a text for the user. Never
//   throws for bad text, whatever its bytes.
// - isPartialStringValid: whether a text being typed may stand; by default every text may. A
//   formatter may propose a replacement in *newEditingString.
// - copy: an independent formatter with the same settings.
//
// Threads: a formatter is used by one thread at a time (const calls included: formatters keep
// caches). Copies are independent and may go to other threads.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"
#include "zentrel/text/attributed_string.h"

class ZT_API ZTFormatter {
 public:
  virtual ~ZTFormatter();

  [[nodiscard]] virtual std::optional<std::string> stringForObjectValue(const ZTValue& value) const = 0;
  [[nodiscard]] virtual std::optional<std::string> editingStringForObjectValue(const ZTValue& value) const;
  [[nodiscard]] virtual std::optional<ZTAttributedString> attributedStringForObjectValue(
      const ZTValue& value, const ZTValue& defaultAttributes) const;
  [[nodiscard]] virtual bool getObjectValue(ZTValue* value, std::string_view string,
                                            std::string* errorDescription = nullptr) const = 0;
  [[nodiscard]] virtual bool isPartialStringValid(std::string_view partialString, std::string* newEditingString = nullptr,
                                                  std::string* errorDescription = nullptr) const;
  [[nodiscard]] virtual std::shared_ptr<ZTFormatter> copy() const = 0;

 protected:
  ZTFormatter() = default;
  ZTFormatter(const ZTFormatter&) = default;
  ZTFormatter& operator=(const ZTFormatter&) = default;
};
