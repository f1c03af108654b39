#include "zentrel/text/character_set.h"

#include <unicode/uchar.h>
#include <unicode/uniset.h>

#include <mutex>

#include "text/internal/unicode.h"

namespace {

std::shared_ptr<icu::UnicodeSet> frozen(icu::UnicodeSet* set) {
  set->freeze();
  return std::shared_ptr<icu::UnicodeSet>(set);
}

}  // namespace

ZTCharacterSet::ZTCharacterSet() : set_(std::make_shared<icu::UnicodeSet>()) {}

ZTCharacterSet::ZTCharacterSet(std::shared_ptr<icu::UnicodeSet> set) : set_(std::move(set)) {}

icu::UnicodeSet& ZTCharacterSet::mutableSet() {
  if (set_.use_count() > 1 || set_->isFrozen()) {
    set_ = std::shared_ptr<icu::UnicodeSet>(set_->cloneAsThawed());
  }
  return *set_;
}

ZTCharacterSet ZTCharacterSet::withCharactersInString(std::string_view characters) {
  ZTCharacterSet set;
  set.addCharactersInString(characters);
  return set;
}

ZTCharacterSet ZTCharacterSet::withRange(char32_t first, std::size_t length) {
  ZTCharacterSet set;
  if (length == 0 || first > 0x10FFFF) return set;
  std::size_t last = static_cast<std::size_t>(first) + length - 1;
  if (last > 0x10FFFF || last < first) last = 0x10FFFF;
  set.addRange(first, static_cast<char32_t>(last));
  return set;
}

std::optional<ZTCharacterSet> ZTCharacterSet::withPattern(std::string_view pattern, ZTError* error) {
  UErrorCode status = U_ZERO_ERROR;
  auto set = std::make_shared<icu::UnicodeSet>(zt::internal::toUnicode(pattern), status);
  if (U_FAILURE(status)) {
    ZTValue info = ZTValue::dictionary();
    info[ZTLocalizedDescriptionKey] =
        "The character set pattern \"" + std::string(pattern) + "\" is not valid (" + u_errorName(status) + ").";
    ZTSetError(error, ZTError(ZTCocoaErrorDomain, 2048, std::move(info)));
    return std::nullopt;
  }
  return ZTCharacterSet(std::move(set));
}

const ZTCharacterSet& ZTCharacterSet::whitespace() {
  static const ZTCharacterSet set = [] {
    UErrorCode status = U_ZERO_ERROR;
    auto* s = new icu::UnicodeSet(u"[\\p{Zs}\\u0009]", status);
    return ZTCharacterSet(frozen(s));
  }();
  return set;
}

const ZTCharacterSet& ZTCharacterSet::newline() {
  static const ZTCharacterSet set = [] {
    auto* s = new icu::UnicodeSet(0x0A, 0x0D);
    s->add(0x85).add(0x2028, 0x2029);
    return ZTCharacterSet(frozen(s));
  }();
  return set;
}

const ZTCharacterSet& ZTCharacterSet::whitespaceAndNewline() {
  static const ZTCharacterSet set = [] {
    UErrorCode status = U_ZERO_ERROR;
    auto* s = new icu::UnicodeSet(u"[\\p{Z}\\u0009-\\u000D\\u0085]", status);
    return ZTCharacterSet(frozen(s));
  }();
  return set;
}

bool ZTCharacterSet::contains(char32_t character) const {
  return character <= 0x10FFFF && set_->contains(static_cast<UChar32>(character));
}

bool ZTCharacterSet::empty() const { return set_->isEmpty(); }

std::size_t ZTCharacterSet::count() const { return static_cast<std::size_t>(set_->size()); }

ZTCharacterSet ZTCharacterSet::inverted() const {
  auto* s = set_->cloneAsThawed();
  s->complement();
  return ZTCharacterSet(frozen(s));
}

void ZTCharacterSet::addRange(char32_t first, char32_t last) {
  if (first > last || first > 0x10FFFF) return;
  if (last > 0x10FFFF) last = 0x10FFFF;
  mutableSet().add(static_cast<UChar32>(first), static_cast<UChar32>(last));
}

void ZTCharacterSet::addCharactersInString(std::string_view characters) {
  mutableSet().addAll(zt::internal::toUnicode(characters));
}

void ZTCharacterSet::formUnion(const ZTCharacterSet& other) { mutableSet().addAll(*other.set_); }

bool operator==(const ZTCharacterSet& a, const ZTCharacterSet& b) { return *a.set_ == *b.set_; }

namespace zt {

const ZTCharacterSet& emojiCharacterSet() {
  static const ZTCharacterSet set = [] {
    auto emoji = ZTCharacterSet::withPattern(
        "[[\\p{Extended_Pictographic}\\p{Emoji_Presentation}\\p{Emoji_Modifier}\\p{Regional_Indicator}"
        "\\u200D\\u20E3\\uFE0F\\U000E0020-\\U000E007F] - [\\u0000-\\u007F]]");
    // The pattern is fixed and valid for every ICU that knows these properties (ICU 62 and later).
    return emoji ? *emoji : ZTCharacterSet();
  }();
  return set;
}

}  // namespace zt
