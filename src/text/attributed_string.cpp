#include "zentrel/text/attributed_string.h"

#include <algorithm>

#include "internal/unicode.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/text/attributed_string_formatter.h"
#include "zentrel/platform/utf16.h"

namespace {

ZTValue dictionaryOrEmpty(const ZTValue& attributes) {
  return attributes.isDictionary() ? attributes : ZTValue::dictionary();
}

// Byte offset of a UTF-16 index in valid UTF-8; throws when the index falls inside a surrogate pair.
std::size_t byteOffset(const std::string& text, std::uint64_t index) {
  std::size_t byte = 0;
  std::uint64_t units = 0;
  while (units < index && byte < text.size()) {
    const auto lead = static_cast<unsigned char>(text[byte]);
    const std::size_t width = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    units += width == 4 ? 2 : 1;
    byte += width;
  }
  if (units != index) {
    throw ZTRangeException("Index " + std::to_string(index) + " falls inside a surrogate pair");
  }
  return byte;
}

}  // namespace

ZTAttributedString::ZTAttributedString(std::string_view text, const ZTValue& attributes) {
  const icu::UnicodeString unicode = zt::internal::toUnicode(text);
  text_ = zt::internal::toUTF8(unicode);
  length_ = static_cast<std::uint64_t>(unicode.length());
  if (length_ > 0) runs_.push_back(Run{0, length_, dictionaryOrEmpty(attributes)});
}

void ZTAttributedString::checkRange(std::uint64_t location, std::uint64_t length) const {
  if (location > length_ || length > length_ - location) {
    throw ZTRangeException("Range {" + std::to_string(location) + ", " + std::to_string(length) +
                           "} out of bounds; string length " + std::to_string(length_));
  }
  (void)byteOffset(text_, location);
  (void)byteOffset(text_, location + length);
}

const ZTValue& ZTAttributedString::attributesAtIndex(std::uint64_t index, Run* effectiveRun) const {
  if (index >= length_) {
    throw ZTRangeException("Index " + std::to_string(index) + " out of bounds; string length " +
                           std::to_string(length_));
  }
  auto it = std::upper_bound(runs_.begin(), runs_.end(), index,
                             [](std::uint64_t i, const Run& run) { return i < run.location; });
  const Run& run = *(it - 1);
  if (effectiveRun) *effectiveRun = run;
  return run.attributes;
}

std::size_t ZTAttributedString::splitAt(std::uint64_t index) {
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    Run& run = runs_[i];
    if (run.location == index) return i;
    if (index > run.location && index < run.location + run.length) {
      Run tail{index, run.location + run.length - index, run.attributes};
      run.length = index - run.location;
      runs_.insert(runs_.begin() + static_cast<std::ptrdiff_t>(i) + 1, std::move(tail));
      return i + 1;
    }
  }
  return runs_.size();
}

void ZTAttributedString::mergeRuns() {
  std::vector<Run> merged;
  merged.reserve(runs_.size());
  std::uint64_t location = 0;
  for (auto& run : runs_) {
    if (run.length == 0) continue;
    if (!merged.empty() && merged.back().attributes == run.attributes) {
      merged.back().length += run.length;
    } else {
      run.location = location;
      merged.push_back(std::move(run));
    }
    location = merged.back().location + merged.back().length;
  }
  runs_ = std::move(merged);
}

void ZTAttributedString::addAttributes(const ZTValue& attributes, std::uint64_t location, std::uint64_t length) {
  checkRange(location, length);
  if (length == 0 || !attributes.isDictionary()) return;
  const std::size_t first = splitAt(location);
  const std::size_t end = splitAt(location + length);
  const auto* added = attributes.getIf<ZTValueDictionary>();
  for (std::size_t i = first; i < end; ++i) {
    for (const auto& [key, value] : *added) runs_[i].attributes[key] = value;
  }
  mergeRuns();
}

void ZTAttributedString::setAttributes(const ZTValue& attributes, std::uint64_t location, std::uint64_t length) {
  checkRange(location, length);
  if (length == 0) return;
  const std::size_t first = splitAt(location);
  const std::size_t end = splitAt(location + length);
  for (std::size_t i = first; i < end; ++i) runs_[i].attributes = dictionaryOrEmpty(attributes);
  mergeRuns();
}

void ZTAttributedString::deleteCharactersInRange(std::uint64_t location, std::uint64_t length) {
  checkRange(location, length);
  if (length == 0) return;
  const std::size_t from = byteOffset(text_, location);
  const std::size_t to = byteOffset(text_, location + length);
  const std::size_t first = splitAt(location);
  const std::size_t end = splitAt(location + length);
  text_.erase(from, to - from);
  runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(first), runs_.begin() + static_cast<std::ptrdiff_t>(end));
  length_ -= length;
  mergeRuns();
}

void ZTAttributedString::append(const ZTAttributedString& other) {
  text_ += other.text_;
  for (const Run& run : other.runs_) runs_.push_back(Run{length_ + run.location, run.length, run.attributes});
  length_ += other.length_;
  mergeRuns();
}

ZTAttributedString ZTAttributedStringFormatter::applyFormattingToAttributedString(
    const ZTAttributedString& attributedString, std::string_view formattingMarker, const ZTValue& formattingAttributes) {
  const std::string marker = zt::internal::toUTF8(zt::internal::toUnicode(formattingMarker));
  if (marker.empty()) return attributedString;
  const auto markerLength = static_cast<std::uint64_t>(zt::internal::toUnicode(marker).length());
  ZTAttributedString result = attributedString;
  // Each turn removes two markers, so the loop ends after at most length / (2 x marker) turns.
  for (;;) {
    const std::string& text = result.string();
    const std::size_t startByte = text.find(marker);
    if (startByte == std::string::npos) return result;
    const std::uint64_t start = zt::utf16Length(std::string_view(text).substr(0, startByte));
    result.deleteCharactersInRange(start, markerLength);
    const std::size_t endByte = result.string().find(marker, startByte);
    if (endByte == std::string::npos) return attributedString;
    const std::uint64_t end = start + zt::utf16Length(std::string_view(result.string()).substr(startByte, endByte - startByte));
    result.deleteCharactersInRange(end, markerLength);
    result.addAttributes(formattingAttributes, start, end - start);
  }
}
