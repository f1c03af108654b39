#pragma once
// ZTDateFormatter: dates shown and read in a locale's styles (short "1/2/26", medium "Jan 2, 2026",
// long, full), for the date, the time of day, or both. ICU does the work.
//
// Locale: empty (the default) means the current locale at each call; time zone: empty means the
// process's default zone. Unknown identifiers fall back as in ZTCalendar.
// Showing: dates only (ZTValue dates); other values give std::nullopt. Dates beyond ICU's range
// give the empty text.
// Reading: the whole text in the formatter's styles, white space around it aside; anything else,
// the empty text and invalid UTF-8 included, is refused with the description "Invalid date".
//
// Threads and copies as for every ZTFormatter: one thread at a time; copy() is independent.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"
#include "zentrel/text/formatter.h"

enum class ZTDateFormatterStyle : int { None = 0, Short = 1, Medium = 2, Long = 3, Full = 4 };

// Dates and times shown and read in a locale's styles.
class ZT_API ZTDateFormatter : public ZTFormatter {
 public:
  // Date and time styles None: the medium date is used when both are None.
  ZTDateFormatter();
  ZTDateFormatter(ZTDateFormatterStyle dateStyle, ZTDateFormatterStyle timeStyle);
  ZTDateFormatter(const ZTDateFormatter& other);
  ZTDateFormatter& operator=(const ZTDateFormatter& other);
  ~ZTDateFormatter() override;
  [[nodiscard]] static std::shared_ptr<ZTDateFormatter> create(ZTDateFormatterStyle dateStyle,
                                                              ZTDateFormatterStyle timeStyle);

  ZTDateFormatterStyle dateStyle() const;
  void setDateStyle(ZTDateFormatterStyle style);
  ZTDateFormatterStyle timeStyle() const;
  void setTimeStyle(ZTDateFormatterStyle style);
  const std::string& localeIdentifier() const;
  void setLocaleIdentifier(std::string identifier);
  const std::string& timeZoneIdentifier() const;
  void setTimeZoneIdentifier(std::string identifier);

  [[nodiscard]] std::string stringFromDate(ZTDate date) const;
  [[nodiscard]] std::optional<ZTDate> dateFromString(std::string_view string) const;

  [[nodiscard]] std::optional<std::string> stringForObjectValue(const ZTValue& value) const override;
  [[nodiscard]] bool getObjectValue(ZTValue* value, std::string_view string,
                                    std::string* errorDescription = nullptr) const override;
  [[nodiscard]] std::shared_ptr<ZTFormatter> copy() const override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
