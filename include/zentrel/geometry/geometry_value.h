#pragma once
// Geometry in dictionaries, property lists and text: boxing of points, sizes, rects, edge insets
// and affine transforms into ZTValue and back, and text forms that round-trip exactly.
//
// Text forms (spaces after commas are written; any whitespace is accepted when reading):
//   point  "{x, y}"                size  "{width, height}"
//   rect   "{{x, y}, {width, height}}"
//   insets "{top, left, bottom, right}"
//   transform "[a, b, c, d, tx, ty]"
// Numbers are written in the shortest form that reads back to the same double ("0.1", "1e+300",
// "inf", "-inf", "nan"), so ZTRectFromString(ZTStringFromRect(r)) == r bit for bit, the null rect
// included.
//
// Boxing: ZTValueWith... stores the text form as a string value, which survives property lists
// and JSON unchanged. The ...FromValue functions accept that string, or a dictionary with numeric
// entries "X", "Y", "Width", "Height" (points: "X", "Y"; sizes: "Width", "Height"; insets: "Top",
// "Left", "Bottom", "Right"; transforms: "a", "b", "c", "d", "tx", "ty"), as other programs
// commonly write them.
//
// Bad input never throws: the parsers return std::nullopt and, when `error` is not null, fill it
// with a ZTCocoaErrorDomain error (code 2048, a formatting error) whose description quotes the
// text and the expected form. Pure functions, callable from any thread.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/geometry/edge_insets.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/value.h"

// The error code of a text or value that is not the expected geometry form.
inline constexpr std::int64_t ZTGeometryFormattingError = 2048;

std::string ZTStringFromPoint(ZTPoint point);
std::string ZTStringFromSize(ZTSize size);
std::string ZTStringFromRect(ZTRect rect);
std::string ZTStringFromEdgeInsets(ZTEdgeInsets insets);
std::string ZTStringFromAffineTransform(ZTAffineTransform t);

std::optional<ZTPoint> ZTPointFromString(std::string_view text, ZTError* error = nullptr);
std::optional<ZTSize> ZTSizeFromString(std::string_view text, ZTError* error = nullptr);
std::optional<ZTRect> ZTRectFromString(std::string_view text, ZTError* error = nullptr);
std::optional<ZTEdgeInsets> ZTEdgeInsetsFromString(std::string_view text, ZTError* error = nullptr);
std::optional<ZTAffineTransform> ZTAffineTransformFromString(std::string_view text, ZTError* error = nullptr);

ZTValue ZTValueWithPoint(ZTPoint point);
ZTValue ZTValueWithSize(ZTSize size);
ZTValue ZTValueWithRect(ZTRect rect);
ZTValue ZTValueWithEdgeInsets(ZTEdgeInsets insets);
ZTValue ZTValueWithAffineTransform(ZTAffineTransform t);

std::optional<ZTPoint> ZTPointFromValue(const ZTValue& value, ZTError* error = nullptr);
std::optional<ZTSize> ZTSizeFromValue(const ZTValue& value, ZTError* error = nullptr);
std::optional<ZTRect> ZTRectFromValue(const ZTValue& value, ZTError* error = nullptr);
std::optional<ZTEdgeInsets> ZTEdgeInsetsFromValue(const ZTValue& value, ZTError* error = nullptr);
std::optional<ZTAffineTransform> ZTAffineTransformFromValue(const ZTValue& value, ZTError* error = nullptr);

// The dictionary forms described above, for programs that expect them.
ZTValue ZTDictionaryRepresentationOfPoint(ZTPoint point);
ZTValue ZTDictionaryRepresentationOfSize(ZTSize size);
ZTValue ZTDictionaryRepresentationOfRect(ZTRect rect);
