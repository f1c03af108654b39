#include "filesystem/internal/unicode.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <vector>

namespace zt::fs_internal {

namespace {
icu::UnicodeString toUnicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}
std::string toUTF8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}
}  // namespace

bool caseInsensitiveEqual(std::string_view a, std::string_view b) {
  return toUnicode(a).caseCompare(toUnicode(b), U_FOLD_CASE_DEFAULT) == 0;
}

std::string lowercase(std::string_view text) {
  bool ascii = true;
  for (unsigned char c : text) ascii = ascii && c < 0x80;
  if (ascii) {
    std::string out(text);
    for (char& c : out) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
  }
  icu::UnicodeString u = toUnicode(text);
  u.toLower(icu::Locale::getRoot());
  return toUTF8(u);
}

std::string uppercase(std::string_view text) {
  icu::UnicodeString u = toUnicode(text);
  u.toUpper(icu::Locale::getRoot());
  return toUTF8(u);
}

char32_t nextCodePoint(std::string_view text, std::size_t& i) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  auto offset = static_cast<int32_t>(i);
  UChar32 c = 0;
  U8_NEXT(bytes, offset, length, c);
  i = static_cast<std::size_t>(offset);
  return c < 0 ? char32_t{0xFFFD} : static_cast<char32_t>(c);
}

std::optional<ByteRange> find(std::string_view haystack, std::string_view needle, bool caseInsensitive, bool backwards,
                              bool anchored) {
  if (needle.empty()) return std::nullopt;
  if (!caseInsensitive) {
    if (needle.size() > haystack.size()) return std::nullopt;
    if (anchored) {
      const std::size_t at = backwards ? haystack.size() - needle.size() : 0;
      if (haystack.compare(at, needle.size(), needle) == 0) return ByteRange{at, needle.size()};
      return std::nullopt;
    }
    const std::size_t at = backwards ? haystack.rfind(needle) : haystack.find(needle);
    if (at == std::string_view::npos) return std::nullopt;
    return ByteRange{at, needle.size()};
  }
  // Case-insensitive: compare folded code points, keeping each one's byte offset in the haystack.
  std::vector<char32_t> h;
  std::vector<std::size_t> offsets;
  for (std::size_t i = 0; i < haystack.size();) {
    offsets.push_back(i);
    h.push_back(
        static_cast<char32_t>(u_foldCase(static_cast<UChar32>(nextCodePoint(haystack, i)), U_FOLD_CASE_DEFAULT)));
  }
  offsets.push_back(haystack.size());
  std::vector<char32_t> n;
  for (std::size_t i = 0; i < needle.size();) {
    n.push_back(static_cast<char32_t>(u_foldCase(static_cast<UChar32>(nextCodePoint(needle, i)), U_FOLD_CASE_DEFAULT)));
  }
  if (n.size() > h.size()) return std::nullopt;
  auto matchesAt = [&](std::size_t start) {
    for (std::size_t k = 0; k < n.size(); ++k) {
      if (h[start + k] != n[k]) return false;
    }
    return true;
  };
  const std::size_t last = h.size() - n.size();
  auto result = [&](std::size_t start) {
    return ByteRange{offsets[start], offsets[start + n.size()] - offsets[start]};
  };
  if (anchored) {
    const std::size_t start = backwards ? last : 0;
    if (matchesAt(start)) return result(start);
    return std::nullopt;
  }
  if (backwards) {
    for (std::size_t start = last + 1; start-- > 0;) {
      if (matchesAt(start)) return result(start);
    }
  } else {
    for (std::size_t start = 0; start <= last; ++start) {
      if (matchesAt(start)) return result(start);
    }
  }
  return std::nullopt;
}

bool isWhitespaceOrNewline(char32_t c) {
  if ((c >= 0x09 && c <= 0x0D) || c == 0x85) return true;
  const auto type = u_charType(static_cast<UChar32>(c));
  return type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR;
}

}  // namespace zt::fs_internal
