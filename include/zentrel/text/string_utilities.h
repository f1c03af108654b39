#pragma once
// Everyday string functions over UTF-8 std::string: slashes, file-name characters, trimming,
// searching, joining with separators, shortening, digit tests, percent encoding, durations and
// in-place replacement.
//
// Lengths and positions are counted in UTF-16 code units wherever a function counts them
// (shortStringWithMaxLength), so a character outside the Basic Multilingual Plane counts 2 and a
// combining mark counts on its own; a cut never separates the two halves of a surrogate pair.
// Functions that look only at ASCII characters (slashes, ":", the illegal file-name characters)
// leave every other byte as it is; functions that need Unicode properties read invalid UTF-8
// sequences as U+FFFD. None of them throws, except that a text of 2 GiB or more, which ICU cannot
// hold, makes the functions that need ICU (the insensitive search and replacement and
// shortStringWithMaxLength) throw ZTRangeException. All are stateless and may be called from any
// thread; the character sets they use are built once under a once-only guard.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/text/character_set.h"

// "YES" or "NO".
ZT_API std::string ZTStringWithBool(bool value);

namespace zt {

inline std::string stringWithBool(bool value) { return ZTStringWithBool(value); }

// Drops one trailing "/" when the text is at least 2 bytes long ("/" stays "/").
ZT_API std::string stringByDeletingLastSlash(std::string_view text);
// Drops one leading "/" when the text is at least 2 bytes long.
ZT_API std::string stringByDeletingFirstSlash(std::string_view text);

// Removes every / \ ? % * | " < > and , from the text.
ZT_API std::string stringByDeletingIllegalFileNameChararacters(std::string_view text);
// Replaces every ":" by "_".
ZT_API std::string stringByNormalizingSuspiciousFileNameChararacters(std::string_view text);
// When "/private/" occurs, the text from the "/" that ends it ("/private/var/x" gives "/var/x").
ZT_API std::string stringByDeletingPrivate(std::string_view text);

// Substring tests; an empty needle is never found. The insensitive one compares by Unicode case
// folding ("STRASSE" is found in "straße").
ZT_API bool hasString(std::string_view text, std::string_view needle);
ZT_API bool hasStringInsensitive(std::string_view text, std::string_view needle);
inline bool hasContent(std::string_view text) { return !text.empty(); }

// Trims ZTCharacterSet::whitespace() (not newlines) from both ends.
ZT_API std::string trim(std::string_view text);
// Trims ZTCharacterSet::whitespaceAndNewline() from both ends.
ZT_API std::string stringByTrimmingWhitespaceAndNewline(std::string_view text);
// Every character of ZTCharacterSet::newline() becomes one " " ("\r\n" gives two spaces).
ZT_API std::string stringByReplacingNewlineCharactersWithSpace(std::string_view text);
// Every character of the set is replaced by `replacement` (consecutive ones each get their own).
ZT_API std::string stringByReplacingCharactersInSet(std::string_view text, const ZTCharacterSet& set,
                                                    std::string_view replacement);

// When the text has more than `maxLength` UTF-16 units (0 means 25): its first maxLength/2 - 3
// units, "...", and its last maxLength/2 units. Otherwise the text itself. For a maxLength below 6
// the head is empty.
ZT_API std::string shortStringWithMaxLength(std::string_view text, std::int64_t maxLength);

// Joins with exactly one separator between the two texts: when the text ends with the separator
// and the addition begins with it, one copy is dropped; when exactly one side has it, the two are
// concatenated; when neither has it, the separator is put between them. An empty addition gives
// the text unchanged.
ZT_API std::string stringByAppendingSomething(std::string_view text, std::string_view addition,
                                              std::string_view separator);
inline std::string stringByAppendingURLComponent(std::string_view text, std::string_view component) {
  return stringByAppendingSomething(text, component, "/");
}
inline std::string stringByAppendingURLExtension(std::string_view text, std::string_view extension) {
  return stringByAppendingSomething(text, extension, ".");
}

// Whether the last character of the text is in the set; false for an empty text. A character
// outside the Basic Multilingual Plane is tested whole, not by its trailing surrogate.
ZT_API bool endsWithCharacterFromSet(std::string_view text, const ZTCharacterSet& set);

// True for the empty text or when every character is one of "0123456789".
ZT_API bool isContainOnlyDigitChars(std::string_view text);
// True for the empty text or when every character is one of "0123456789.,-".
ZT_API bool isContainOnlyNumberChars(std::string_view text);

// The text made into a valid URL string: characters a URL may hold (letters, digits,
// -._~:/?#[]@!$&'()*+,;= and "%" starting a %XX escape) stay; every other UTF-8 byte becomes
// %XX (upper-case hex). "a b/é?x=1" gives "a%20b/%C3%A9?x=1".
ZT_API std::string urlPercentEncodedString(std::string_view text);
// Percent-encodes every UTF-8 byte except ASCII letters, digits and "-_.~".
ZT_API std::string percentEncodedWithoutUnreservedString(std::string_view text);

// A duration as "h:mm:ss" when it has hours, "m:ss" when it has minutes, else "0:ss". Fractions of
// a second are dropped; a negative duration gets a leading "-"; NaN gives "0:00"; durations
// beyond the range of a 64-bit count of seconds are clamped to it.
ZT_API std::string durationStringWithTimeInterval(double seconds);

// Equal texts; two empty texts are equal.
inline bool isContentOfString(std::string_view a, std::string_view b) { return a == b; }

// Replaces every occurrence of `target` in `text`, left to right, and answers how many were
// replaced. An empty target replaces nothing.
ZT_API std::size_t replaceString(std::string& text, std::string_view target, std::string_view replacement);
// The same, matching by Unicode case folding. Invalid UTF-8 in `text` becomes U+FFFD when any
// replacement is made.
ZT_API std::size_t replaceStringInsensitive(std::string& text, std::string_view target, std::string_view replacement);

}  // namespace zt
