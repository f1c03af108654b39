#pragma once
// Case-folding, case-mapping and search helpers on UTF-8 text (ICU). Invalid UTF-8 decodes as
// U+FFFD. UTF-16 lengths are zt::utf16Length (zentrel/platform/utf16.h).

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zt::fs_internal {

// Equality under Unicode full case folding.
bool caseInsensitiveEqual(std::string_view a, std::string_view b);
// Lower-cased text (root locale), for file extensions.
std::string lowercase(std::string_view text);
// Upper-cased text (root locale).
std::string uppercase(std::string_view text);

struct ByteRange {
  std::size_t location;
  std::size_t length;
};
// Finds needle in haystack; both positions are byte offsets into haystack. The search is by code
// points under simple case folding when caseInsensitive is set, else by bytes; backwards finds the
// last occurrence; anchored accepts only a match at the start (at the end when backwards).
std::optional<ByteRange> find(std::string_view haystack, std::string_view needle, bool caseInsensitive, bool backwards,
                              bool anchored);

// True for the white-space-and-newline set: Unicode separators (Zs, Zl, Zp), U+0009...U+000D and
// U+0085.
bool isWhitespaceOrNewline(char32_t c);

// Decodes one code point at byte offset i (advancing i); invalid sequences give U+FFFD.
char32_t nextCodePoint(std::string_view text, std::size_t& i);

}  // namespace zt::fs_internal
