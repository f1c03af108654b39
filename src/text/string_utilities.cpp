#include "zentrel/text/string_utilities.h"

#include <unicode/casemap.h>
#include <unicode/edits.h>
#include <unicode/uniset.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "text/internal/unicode.h"

std::string ZTStringWithBool(bool value) { return value ? "YES" : "NO"; }

namespace zt {
namespace {

// One decoded character of a UTF-8 text: its code point (U+FFFD for an invalid sequence) and the
// bytes it occupies.
struct Char {
  char32_t codePoint;
  std::size_t begin;
  std::size_t end;
};

Char decodeAt(std::string_view text, std::size_t index) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  std::int64_t i = static_cast<std::int64_t>(index);
  const std::int64_t length = static_cast<std::int64_t>(text.size());
  UChar32 c;
  U8_NEXT(bytes, i, length, c);
  return {c < 0 ? U'\uFFFD' : static_cast<char32_t>(c), index, static_cast<std::size_t>(i)};
}

Char decodeBefore(std::string_view text, std::size_t end) {
  // Back over at most three continuation bytes to a lead byte, and accept it only when the
  // sequence decoded from there ends exactly at `end`; otherwise the last byte is one invalid one.
  std::size_t start = end - 1;
  for (int k = 0; k < 3 && start > 0 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80; ++k) --start;
  Char c = decodeAt(text, start);
  if (c.end == end) return c;
  return {U'\uFFFD', end - 1, end};
}

std::string trimSet(std::string_view text, const ZTCharacterSet& set) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    Char c = decodeAt(text, begin);
    if (!set.contains(c.codePoint)) break;
    begin = c.end;
  }
  std::size_t end = text.size();
  while (end > begin) {
    Char c = decodeBefore(text, end);
    if (!set.contains(c.codePoint)) break;
    end = c.begin;
  }
  return std::string(text.substr(begin, end - begin));
}

bool onlyCharactersOf(std::string_view text, std::string_view allowed) {
  for (char c : text) {
    if (allowed.find(c) == std::string_view::npos) return false;
  }
  return true;
}

// A text case-folded as a whole (full Unicode case folding, once), searched as a whole, with the
// edits that map positions in the folded text back to the original. A match counts only when it
// begins and ends where an original character's folding does: "ss" is found in "Maße" (ß folds to
// "ss") but "s" alone is not, so a replacement always replaces whole characters.
class CaseFoldedText {
 public:
  explicit CaseFoldedText(std::string_view text) : source_(internal::toUnicode(text)) {
    // Full folding at most triples a text; most texts keep their length, so start there.
    auto capacity = static_cast<int32_t>(
        std::min<std::int64_t>(std::int64_t{source_.length()} + source_.length() / 8 + 16, INT32_MAX));
    for (int attempt = 0; attempt < 2; ++attempt) {
      UErrorCode status = U_ZERO_ERROR;
      edits_.reset();
      folded_.resize(static_cast<std::size_t>(capacity));
      const int32_t length =
          icu::CaseMap::fold(U_FOLD_CASE_DEFAULT, source_.getBuffer(), source_.length(), folded_.data(), capacity,
                             &edits_, status);
      if (status == U_BUFFER_OVERFLOW_ERROR && attempt == 0) {
        capacity = length;
        continue;
      }
      if (U_FAILURE(status)) {
        if (status == U_MEMORY_ALLOCATION_ERROR) throw std::bad_alloc();
        throw ZTRangeException("A text of " + std::to_string(text.size()) +
                               " bytes is too long to compare without case: its case folding does not fit 2 GiB");
      }
      folded_.resize(static_cast<std::size_t>(length));
      break;
    }
    edit_ = edits_.getFineIterator();
  }

  const icu::UnicodeString& source() const { return source_; }

  // Calls found(sourceStart, sourceEnd) for each match of the folded `needle`, leftmost first and
  // not overlapping, until it returns false.
  template <class Found>
  void forEachMatch(std::u16string_view needle, Found&& found) {
    const std::u16string_view folded(folded_);
    for (std::size_t at = folded.find(needle); at != std::u16string_view::npos;) {
      const auto begin = static_cast<int32_t>(at);
      const auto end = static_cast<int32_t>(at + needle.size());
      if (!isBoundary(begin) || !isBoundary(end)) {
        at = folded.find(needle, at + 1);
        continue;
      }
      if (!found(sourceIndex(begin), sourceIndex(end))) return;
      at = folded.find(needle, at + needle.size());
    }
  }

 private:
  // Whether a folded position is where an original character's folding begins (or the end). The
  // fine edits hold one change per changed character; unchanged spans are boundaries everywhere
  // except inside a surrogate pair.
  bool isBoundary(int32_t index) {
    if (index >= static_cast<int32_t>(folded_.size())) return true;
    UErrorCode status = U_ZERO_ERROR;
    if (!edit_.findDestinationIndex(index, status) || U_FAILURE(status)) return false;
    if (edit_.destinationIndex() == index) return true;
    return !edit_.hasChange() && !U16_IS_TRAIL(folded_[static_cast<std::size_t>(index)]);
  }

  int32_t sourceIndex(int32_t foldedIndex) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t index = edit_.sourceIndexFromDestinationIndex(foldedIndex, status);
    return U_FAILURE(status) ? source_.length() : index;
  }

  icu::UnicodeString source_;
  std::u16string folded_;
  icu::Edits edits_;
  icu::Edits::Iterator edit_;
};

std::u16string foldedNeedle(std::string_view needle) {
  icu::UnicodeString folded = internal::toUnicode(needle);
  folded.foldCase();
  return std::u16string(folded.getBuffer(), static_cast<std::size_t>(folded.length()));
}

bool isURLCharacter(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case ':':
    case '/':
    case '?':
    case '#':
    case '[':
    case ']':
    case '@':
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':
      return true;
    default:
      return false;
  }
}

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

void appendEscape(std::string& out, unsigned char c) {
  static constexpr char digits[] = "0123456789ABCDEF";
  out.push_back('%');
  out.push_back(digits[c >> 4]);
  out.push_back(digits[c & 0xF]);
}

}  // namespace

std::string stringByDeletingLastSlash(std::string_view text) {
  if (text.size() >= 2 && text.back() == '/') text.remove_suffix(1);
  return std::string(text);
}

std::string stringByDeletingFirstSlash(std::string_view text) {
  if (text.size() >= 2 && text.front() == '/') text.remove_prefix(1);
  return std::string(text);
}

std::string stringByDeletingIllegalFileNameChararacters(std::string_view text) {
  static constexpr std::string_view illegal = "/\\?%*|\"<>,";
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (illegal.find(c) == std::string_view::npos) out.push_back(c);
  }
  return out;
}

std::string stringByNormalizingSuspiciousFileNameChararacters(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c == ':') c = '_';
  }
  return out;
}

std::string stringByDeletingPrivate(std::string_view text) {
  static constexpr std::string_view marker = "/private/";
  std::size_t at = text.find(marker);
  if (at == std::string_view::npos) return std::string(text);
  return std::string(text.substr(at + marker.size() - 1));
}

bool hasString(std::string_view text, std::string_view needle) {
  return !needle.empty() && text.find(needle) != std::string_view::npos;
}

bool hasStringInsensitive(std::string_view text, std::string_view needle) {
  if (needle.empty()) return false;
  const std::u16string target = foldedNeedle(needle);
  if (target.empty()) return false;
  bool found = false;
  CaseFoldedText(text).forEachMatch(target, [&](int32_t, int32_t) {
    found = true;
    return false;
  });
  return found;
}

std::string trim(std::string_view text) { return trimSet(text, ZTCharacterSet::whitespace()); }

std::string stringByTrimmingWhitespaceAndNewline(std::string_view text) {
  return trimSet(text, ZTCharacterSet::whitespaceAndNewline());
}

std::string stringByReplacingNewlineCharactersWithSpace(std::string_view text) {
  return stringByReplacingCharactersInSet(text, ZTCharacterSet::newline(), " ");
}

std::string stringByReplacingCharactersInSet(std::string_view text, const ZTCharacterSet& set,
                                             std::string_view replacement) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    Char c = decodeAt(text, i);
    if (set.contains(c.codePoint)) {
      out.append(replacement);
    } else {
      out.append(text.substr(c.begin, c.end - c.begin));
    }
    i = c.end;
  }
  return out;
}

std::string shortStringWithMaxLength(std::string_view text, std::int64_t maxLength) {
  if (maxLength == 0) maxLength = 25;
  if (maxLength < 0) maxLength = 0;
  if (static_cast<std::uint64_t>(maxLength) >= text.size()) {
    return std::string(text);  // UTF-16 length never exceeds the UTF-8 length
  }
  icu::UnicodeString units = internal::toUnicode(text);
  if (units.length() <= maxLength) return std::string(text);
  const int32_t length = units.length();
  const int32_t half = static_cast<int32_t>(maxLength / 2);
  int32_t headLength = std::max<int32_t>(0, half - 3);
  int32_t tailStart = length - half;
  headLength = internal::adjustCutToCodePoint(units, headLength, true);
  tailStart = internal::adjustCutToCodePoint(units, tailStart, false);
  icu::UnicodeString result(units, 0, headLength);
  result.append(u"...");
  result.append(units, tailStart, length - tailStart);
  return internal::toUTF8(result);
}

std::string stringByAppendingSomething(std::string_view text, std::string_view addition, std::string_view separator) {
  std::string out(text);
  if (addition.empty()) return out;
  const bool endsWith = !separator.empty() && text.ends_with(separator);
  const bool beginsWith = !separator.empty() && addition.starts_with(separator);
  if (endsWith && beginsWith) {
    out.append(addition.substr(separator.size()));
  } else if (endsWith || beginsWith) {
    out.append(addition);
  } else {
    out.append(separator);
    out.append(addition);
  }
  return out;
}

bool endsWithCharacterFromSet(std::string_view text, const ZTCharacterSet& set) {
  if (text.empty()) return false;
  return set.contains(decodeBefore(text, text.size()).codePoint);
}

bool isContainOnlyDigitChars(std::string_view text) { return onlyCharactersOf(text, "0123456789"); }

bool isContainOnlyNumberChars(std::string_view text) { return onlyCharactersOf(text, "0123456789.,-"); }

std::string urlPercentEncodedString(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (isURLCharacter(c)) {
      out.push_back(static_cast<char>(c));
    } else if (c == '%' && i + 2 < text.size() && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2])) {
      out.push_back('%');
    } else {
      appendEscape(out, c);
    }
  }
  return out;
}

std::string percentEncodedWithoutUnreservedString(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    const bool unreserved = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                            c == '_' || c == '.' || c == '~';
    if (unreserved) {
      out.push_back(ch);
    } else {
      appendEscape(out, c);
    }
  }
  return out;
}

std::string durationStringWithTimeInterval(double seconds) {
  if (std::isnan(seconds)) return "0:00";
  const bool negative = seconds < 0;
  double magnitude = std::trunc(std::fabs(seconds));
  constexpr double limit = static_cast<double>(std::numeric_limits<std::int64_t>::max());
  const auto total =
      magnitude >= limit ? std::numeric_limits<std::int64_t>::max() : static_cast<std::int64_t>(magnitude);
  const std::int64_t hours = total / 3600;
  const std::int64_t minutes = (total / 60) % 60;
  const std::int64_t secs = total % 60;
  char buffer[64];
  if (hours != 0) {
    std::snprintf(buffer, sizeof buffer, "%s%lld:%02lld:%02lld", negative && total ? "-" : "",
                  static_cast<long long>(hours), static_cast<long long>(minutes), static_cast<long long>(secs));
  } else if (minutes != 0) {
    std::snprintf(buffer, sizeof buffer, "%s%lld:%02lld", negative && total ? "-" : "", static_cast<long long>(minutes),
                  static_cast<long long>(secs));
  } else {
    std::snprintf(buffer, sizeof buffer, "%s0:%02lld", negative && total ? "-" : "", static_cast<long long>(secs));
  }
  return buffer;
}

std::size_t replaceString(std::string& text, std::string_view target, std::string_view replacement) {
  if (target.empty()) return 0;
  std::size_t count = 0;
  std::string out;
  std::size_t from = 0;
  for (std::size_t at = text.find(target); at != std::string::npos; at = text.find(target, from)) {
    if (count == 0) out.reserve(text.size());
    out.append(text, from, at - from);
    out.append(replacement);
    from = at + target.size();
    ++count;
  }
  if (count == 0) return 0;
  out.append(text, from, std::string::npos);
  text = std::move(out);
  return count;
}

std::size_t replaceStringInsensitive(std::string& text, std::string_view target, std::string_view replacement) {
  if (target.empty()) return 0;
  const std::u16string folding = foldedNeedle(target);
  if (folding.empty()) return 0;
  CaseFoldedText folded(text);
  const icu::UnicodeString& source = folded.source();
  const icu::UnicodeString with = internal::toUnicode(replacement);
  icu::UnicodeString out;
  std::size_t count = 0;
  int32_t copiedUpTo = 0;
  folded.forEachMatch(folding, [&](int32_t begin, int32_t end) {
    out.append(source, copiedUpTo, begin - copiedUpTo);
    out.append(with);
    copiedUpTo = end;
    ++count;
    return true;
  });
  if (count == 0) return 0;
  out.append(source, copiedUpTo, source.length() - copiedUpTo);
  text = internal::toUTF8(out);
  return count;
}

}  // namespace zt
