#pragma once
// ZTLocale: a locale identifier ("de_CH", "en_US", "sr_Latn_RS") and what the library reads from
// it; the process's current locale and the notification posted when it changes; and the locale
// conveniences: language codes, ISO country codes and emoji flags.
//
// ZTLocale is a plain value type. Identifiers are taken in ICU's canonical form ("de-ch" and
// "de_CH.UTF-8" both become "de_CH"); an identifier ICU cannot read gives an empty locale (ICU's
// root: no language, no country).
//
// The current locale is ICU's default locale, which ICU takes from the process's environment
// (LC_ALL, LC_MESSAGES, LANG) when it is first asked. Formatters without a locale of their own use
// it at each call. An application that changes the user's locale calls ZTSetCurrentLocale, which
// posts ZTCurrentLocaleDidChangeNotification on the default notification centre; the library's
// shared formatters refresh on it.

#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <optional>

#include "zentrel/platform/export.h"

// Posted on ZTNotificationCenter::defaultCenter() after the current locale changed (no sender, no
// user info). An application that changes ICU's default locale by other means posts it itself.
inline constexpr const char* ZTCurrentLocaleDidChangeNotification = "NSCurrentLocaleDidChangeNotification";

// A locale identifier and what the library reads from it.
class ZT_API ZTLocale {
 public:
  // ICU's root locale.
  ZTLocale() = default;
  explicit ZTLocale(std::string_view identifier);

  [[nodiscard]] static ZTLocale current();

  const std::string& localeIdentifier() const { return identifier_; }
  // The ISO 3166 region ("CH"), empty when the locale names none.
  std::string countryCode() const;
  // The script ("Latn"), empty when the locale names none.
  std::string scriptCode() const;

  friend bool operator==(const ZTLocale&, const ZTLocale&) = default;

 private:
  std::string identifier_;
};

// Makes the locale the process's current locale (ICU's default) and posts
// ZTCurrentLocaleDidChangeNotification on the posting thread. Call it where the application would
// call setlocale: formatting running on other threads at that moment may use either locale.
ZT_API void ZTSetCurrentLocale(const ZTLocale& locale);

namespace zt {

// The locale's ISO 639 language ("de" for de_CH), empty for the root locale.
ZT_API std::string languageCode(const ZTLocale& locale);
// Whether the code is one of ICU's ISO 3166 two-letter country codes, exactly: upper case only,
// so "US" is and "us" is not. The empty text is not.
ZT_API bool isValidISOCountryCode(std::string_view code);
// The flag emoji of a valid ISO country code: its two letters moved to the regional indicator
// symbols (A becomes U+1F1E6), as UTF-8. std::nullopt for anything isValidISOCountryCode refuses.
ZT_API std::optional<std::string> emojiFlagForISOCountryCode(std::string_view code);
// Whether the locale's language code is the given one (exact comparison: "de" is, "DE" is not).
ZT_API bool isLanguageCodeEqualToLanguageCode(const ZTLocale& locale, std::string_view languageCode);
// Whether the collection holds the locale's language code; false for an empty collection.
ZT_API bool languageCodeContainsInSetOfLanguageCodes(const ZTLocale& locale,
                                                     const std::unordered_set<std::string>& languageCodes);
ZT_API bool languageCodeContainsInSetOfLanguageCodes(const ZTLocale& locale, std::span<const std::string> languageCodes);

}  // namespace zt
