#pragma once
// ZTAttributedString: a text with attributes on parts of it. A plain value type: copy it freely.
//
// The text is UTF-8; locations and lengths are counted in UTF-16 code units, the unit of the
// library's string ranges (a character outside the Basic Multilingual Plane counts two). The
// attributes of a stretch of text are a ZTValue dictionary (for example {"bold": true, "color": "#ff0000"});
// the library gives the keys no meaning of its own, the code that draws the text does. Every unit
// of the text belongs to exactly one run; neighbouring runs with equal attributes are merged, so two
// attributed strings with the same text and the same attributes per unit compare equal.
//
// Bad input: invalid UTF-8 in the text is replaced by U+FFFD when the value is made, so counting
// stays consistent. A range that does not lie inside the text, or that would split a surrogate
// pair, throws ZTRangeException (a programming error, as for the platform's strings). Attributes
// that are not a dictionary (null included) count as no attributes.
//
// Not synchronised: one thread at a time may change a value; const use from many threads is safe.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

class ZT_API ZTAttributedString {
 public:
  // A stretch of the text with one set of attributes.
  struct Run {
    std::uint64_t location = 0;  // UTF-16 units
    std::uint64_t length = 0;    // UTF-16 units
    ZTValue attributes;          // a dictionary, possibly empty
    friend bool operator==(const Run&, const Run&) = default;
  };

  ZTAttributedString() = default;
  // The whole text with the given attributes (an empty dictionary when none).
  explicit ZTAttributedString(std::string_view text, const ZTValue& attributes = ZTValue::dictionary());

  const std::string& string() const { return text_; }
  // In UTF-16 units.
  std::uint64_t length() const { return length_; }
  // The runs in text order, covering the text without gaps; none for the empty text.
  const std::vector<Run>& runs() const { return runs_; }

  // The attributes at a UTF-16 index, and the run it lies in. Throws ZTRangeException for an index
  // at or past the end.
  const ZTValue& attributesAtIndex(std::uint64_t index, Run* effectiveRun = nullptr) const;

  // Merges the dictionary's keys into the attributes of every unit of the range (a key given
  // replaces the value already there). An empty range changes nothing.
  void addAttributes(const ZTValue& attributes, std::uint64_t location, std::uint64_t length);
  // Replaces the attributes of the range.
  void setAttributes(const ZTValue& attributes, std::uint64_t location, std::uint64_t length);
  // Removes a range of the text with its attributes.
  void deleteCharactersInRange(std::uint64_t location, std::uint64_t length);
  // Appends text with its own attributes.
  void append(const ZTAttributedString& other);

  friend bool operator==(const ZTAttributedString& a, const ZTAttributedString& b) {
    return a.text_ == b.text_ && a.runs_ == b.runs_;
  }

 private:
  void checkRange(std::uint64_t location, std::uint64_t length) const;
  // Splits the run containing `index` so that a run begins there; answers that run's position.
  std::size_t splitAt(std::uint64_t index);
  void mergeRuns();

  std::string text_;
  std::uint64_t length_ = 0;
  std::vector<Run> runs_;
};
