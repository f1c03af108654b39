#pragma once
// ZTCharacterSet: a set of Unicode code points, used by the string functions that split, trim or
// test characters, and the shared emoji set.
//
// A value type: copies are cheap (the set is shared and copied on the first change) and a set
// that is not being changed may be read from any number of threads at once. The shared sets
// returned by reference are built once, on first use, under a once-only guard, and are never
// changed afterwards.

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

class ZT_API ZTCharacterSet {
 public:
  ZTCharacterSet();  // empty

  // Every character of a UTF-8 text (invalid sequences add U+FFFD).
  [[nodiscard]] static ZTCharacterSet withCharactersInString(std::string_view characters);
  // The code points first ... first + length - 1; code points past U+10FFFF are ignored.
  [[nodiscard]] static ZTCharacterSet withRange(char32_t first, std::size_t length);
  // A set written in ICU's set syntax, e.g. "[a-z\\u00E9]" or "[\\p{Emoji_Presentation}]".
  // nullopt, with a ZTCocoaErrorDomain error naming the pattern, when the pattern is not valid.
  [[nodiscard]] static std::optional<ZTCharacterSet> withPattern(std::string_view pattern, ZTError* error = nullptr);

  // Spaces and tabs: Unicode general category Zs plus U+0009.
  static const ZTCharacterSet& whitespace();
  // Unicode line and paragraph separators: U+000A-U+000D, U+0085, U+2028, U+2029.
  static const ZTCharacterSet& newline();
  // whitespace() and newline() together, plus the other separators of category Z.
  static const ZTCharacterSet& whitespaceAndNewline();

  bool contains(char32_t character) const;
  bool empty() const;
  // Number of code points in the set.
  std::size_t count() const;

  // Every code point of U+0000-U+10FFFF not in this set.
  [[nodiscard]] ZTCharacterSet inverted() const;
  void addRange(char32_t first, char32_t last);  // inclusive; ignored when first > last
  void addCharactersInString(std::string_view characters);
  void formUnion(const ZTCharacterSet& other);

  friend ZT_API bool operator==(const ZTCharacterSet& a, const ZTCharacterSet& b);

 private:
  // The ICU set behind a character set, shared between copies until one of them changes. Code of
  // this library that hands the set to ICU reaches it through ZTCharacterSetAccess
  // (src/text/internal/character_set_access.h).
  struct Storage;
  friend struct ZTCharacterSetAccess;

  explicit ZTCharacterSet(std::shared_ptr<Storage> storage);
  // The set, made this value's own and changeable first when it is shared or frozen.
  Storage& mutableStorage();

  std::shared_ptr<Storage> storage_;
};

namespace zt {

// The emoji characters of the Unicode version of the ICU the library runs with: pictographs
// (Extended_Pictographic and Emoji_Presentation), skin-tone modifiers, regional indicators,
// and the joiners and selectors that build emoji sequences (U+200D, U+20E3, U+FE0F, tag
// characters). The digits, "#" and "*", which carry the Emoji property only for keycap
// sequences, are not in the set. Built once per process.
ZT_API const ZTCharacterSet& emojiCharacterSet();

}  // namespace zt
