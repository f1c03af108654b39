#pragma once
// ZTAttributedStringFormatter: light mark-up for texts with emphasis. Pairs of a marker ("~", "**")
// around parts of the text say where attributes go: with the marker "~", "a~b~c" becomes "abc"
// with the attributes on "b".
//
// Markers are found left to right by exact match of their characters. An unpaired marker cancels
// everything: the input comes back unchanged, pairs before it included. The attributes (a ZTValue
// dictionary) are merged into those the text already has; an empty marker changes nothing.
// Stateless; any thread.

#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"
#include "zentrel/text/attributed_string.h"

class ZT_API ZTAttributedStringFormatter {
 public:
  [[nodiscard]] static ZTAttributedString applyFormattingToAttributedString(const ZTAttributedString& attributedString,
                                                                             std::string_view formattingMarker,
                                                                             const ZTValue& formattingAttributes);
};
