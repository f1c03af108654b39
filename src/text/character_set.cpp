#include "zentrel/text/character_set.h"

#include <unicode/uchar.h>
#include <unicode/uniset.h>

#include <string>

#include "text/internal/character_set_access.h"
#include "text/internal/unicode.h"

namespace {

// Frozen sets are never changed again, which makes every read of them safe from any thread and
// faster. (A template so that it can take the private storage type without naming it.)
template <class Storage>
std::shared_ptr<Storage> frozen(std::shared_ptr<Storage> storage) {
  storage->set.freeze();
  return storage;
}

}  // namespace

ZTCharacterSet::ZTCharacterSet() : storage_(std::make_shared<Storage>()) {}

ZTCharacterSet::ZTCharacterSet(std::shared_ptr<Storage> storage) : storage_(std::move(storage)) {}

ZTCharacterSet::Storage& ZTCharacterSet::mutableStorage() {
  if (storage_.use_count() > 1 || storage_->set.isFrozen()) {
    // A copy of a frozen set would be frozen too: the copy is built by adding the elements.
    auto own = std::make_shared<Storage>();
    own->set.addAll(storage_->set);
    storage_ = std::move(own);
  }
  return *storage_;
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
  auto storage = std::make_shared<Storage>(zt::internal::toUnicode(pattern), status);
  if (U_FAILURE(status)) {
    ZTValue info = ZTValue::dictionary();
    info[ZTLocalizedDescriptionKey] =
        "The character set pattern \"" + std::string(pattern) + "\" is not valid (" + u_errorName(status) + ").";
    ZTSetError(error, ZTError(ZTCocoaErrorDomain, 2048, std::move(info)));
    return std::nullopt;
  }
  return ZTCharacterSet(std::move(storage));
}

const ZTCharacterSet& ZTCharacterSet::whitespace() {
  static const ZTCharacterSet set = [] {
    UErrorCode status = U_ZERO_ERROR;
    return ZTCharacterSet(frozen(std::make_shared<Storage>(u"[\\p{Zs}\\u0009]", status)));
  }();
  return set;
}

const ZTCharacterSet& ZTCharacterSet::newline() {
  static const ZTCharacterSet set = [] {
    auto storage = std::make_shared<Storage>(0x0A, 0x0D);
    storage->set.add(0x85).add(0x2028, 0x2029);
    return ZTCharacterSet(frozen(std::move(storage)));
  }();
  return set;
}

const ZTCharacterSet& ZTCharacterSet::whitespaceAndNewline() {
  static const ZTCharacterSet set = [] {
    UErrorCode status = U_ZERO_ERROR;
    return ZTCharacterSet(frozen(std::make_shared<Storage>(u"[\\p{Z}\\u0009-\\u000D\\u0085]", status)));
  }();
  return set;
}

bool ZTCharacterSet::contains(char32_t character) const {
  return character <= 0x10FFFF && storage_->set.contains(static_cast<UChar32>(character));
}

bool ZTCharacterSet::empty() const { return storage_->set.isEmpty(); }

std::size_t ZTCharacterSet::count() const { return static_cast<std::size_t>(storage_->set.size()); }

ZTCharacterSet ZTCharacterSet::inverted() const {
  auto storage = std::make_shared<Storage>();
  storage->set.addAll(storage_->set);
  storage->set.complement();
  return ZTCharacterSet(frozen(std::move(storage)));
}

void ZTCharacterSet::addRange(char32_t first, char32_t last) {
  if (first > last || first > 0x10FFFF) return;
  if (last > 0x10FFFF) last = 0x10FFFF;
  mutableStorage().set.add(static_cast<UChar32>(first), static_cast<UChar32>(last));
}

void ZTCharacterSet::addCharactersInString(std::string_view characters) {
  mutableStorage().set.addAll(zt::internal::toUnicode(characters));
}

void ZTCharacterSet::formUnion(const ZTCharacterSet& other) {
  mutableStorage().set.addAll(ZTCharacterSetAccess::unicodeSet(other));
}

bool operator==(const ZTCharacterSet& a, const ZTCharacterSet& b) {
  return ZTCharacterSetAccess::unicodeSet(a) == ZTCharacterSetAccess::unicodeSet(b);
}

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
