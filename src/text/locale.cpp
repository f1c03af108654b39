#include "zentrel/text/locale.h"

#include <unicode/locid.h>

#include <algorithm>
#include <cstring>

#include "zentrel/platform/mutex.h"
#include "zentrel/platform/notification_center.h"

namespace {

std::string canonicalIdentifier(std::string_view identifier) {
  const std::string text(identifier);
  const icu::Locale locale = icu::Locale::createCanonical(text.c_str());
  if (locale.isBogus()) return {};
  return locale.getName();
}

}  // namespace

ZTLocale::ZTLocale(std::string_view identifier) : identifier_(canonicalIdentifier(identifier)) {}

ZTLocale ZTLocale::current() {
  ZTLocale locale;
  locale.identifier_ = icu::Locale::getDefault().getName();
  return locale;
}

std::string ZTLocale::countryCode() const { return icu::Locale(identifier_.c_str()).getCountry(); }
std::string ZTLocale::scriptCode() const { return icu::Locale(identifier_.c_str()).getScript(); }

void ZTSetCurrentLocale(const ZTLocale& locale) {
  {
    // ICU's default is set under its own lock; this one keeps two changes from interleaving with
    // their notifications out of order.
    static ZTMutex changing;
    ZTLockGuard<ZTMutex> guard(changing);
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale(locale.localeIdentifier().c_str()), status);
  }
  ZTNotificationCenter::defaultCenter()->postNotificationName(ZTCurrentLocaleDidChangeNotification);
}

namespace zt {

std::string languageCode(const ZTLocale& locale) { return icu::Locale(locale.localeIdentifier().c_str()).getLanguage(); }

bool isValidISOCountryCode(std::string_view code) {
  if (code.size() != 2) return false;
  for (const char* const* country = icu::Locale::getISOCountries(); *country; ++country) {
    if (code == *country) return true;
  }
  return false;
}

std::optional<std::string> emojiFlagForISOCountryCode(std::string_view code) {
  if (!isValidISOCountryCode(code)) return std::nullopt;
  std::string flag;
  for (const char letter : code) {
    // Regional indicators are U+1F1E6...U+1F1FF, four bytes in UTF-8: F0 9F 87 A6+n.
    const char32_t indicator = static_cast<char32_t>(letter) + 127397;
    flag += static_cast<char>(0xF0);
    flag += static_cast<char>(0x80 | ((indicator >> 12) & 0x3F));
    flag += static_cast<char>(0x80 | ((indicator >> 6) & 0x3F));
    flag += static_cast<char>(0x80 | (indicator & 0x3F));
  }
  return flag;
}

bool isLanguageCodeEqualToLanguageCode(const ZTLocale& locale, std::string_view code) {
  return languageCode(locale) == code;
}

bool languageCodeContainsInSetOfLanguageCodes(const ZTLocale& locale, const std::unordered_set<std::string>& codes) {
  if (codes.empty()) return false;
  return codes.contains(languageCode(locale));
}

bool languageCodeContainsInSetOfLanguageCodes(const ZTLocale& locale, std::span<const std::string> codes) {
  if (codes.empty()) return false;
  const std::string language = languageCode(locale);
  return std::find(codes.begin(), codes.end(), language) != codes.end();
}

}  // namespace zt
