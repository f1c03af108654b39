#pragma once
// The ICU set behind a ZTCharacterSet, for code of this library that hands it to ICU. The public
// header keeps ICU out of sight; this is the one place that opens it.

#include <unicode/uniset.h>

#include <utility>

#include "zentrel/text/character_set.h"

// What every copy of a set shares until one of them changes. A set that is frozen (the shared sets
// and the results of inverted()) is never changed in place: a change copies it first.
struct ZTCharacterSet::Storage {
  // The arguments of one of icu::UnicodeSet's constructors.
  template <class... Arguments>
  explicit Storage(Arguments&&... arguments) : set(std::forward<Arguments>(arguments)...) {}

  icu::UnicodeSet set;
};

struct ZTCharacterSetAccess {
  static const icu::UnicodeSet& unicodeSet(const ZTCharacterSet& characters) { return characters.storage_->set; }
};
