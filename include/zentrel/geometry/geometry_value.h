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

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/geometry/edge_insets.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

// The error code of a text or value that is not the expected geometry form.
inline constexpr std::int64_t ZTGeometryFormattingError = 2048;

ZT_API std::string ZTStringFromPoint(ZTPoint point);
ZT_API std::string ZTStringFromSize(ZTSize size);
ZT_API std::string ZTStringFromRect(ZTRect rect);
ZT_API std::string ZTStringFromEdgeInsets(ZTEdgeInsets insets);
ZT_API std::string ZTStringFromAffineTransform(ZTAffineTransform t);

[[nodiscard]] ZT_API std::optional<ZTPoint> ZTPointFromString(std::string_view text, ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTSize> ZTSizeFromString(std::string_view text, ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTRect> ZTRectFromString(std::string_view text, ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTEdgeInsets> ZTEdgeInsetsFromString(std::string_view text,
                                                                       ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTAffineTransform> ZTAffineTransformFromString(std::string_view text,
                                                                                 ZTError* error = nullptr);

ZT_API ZTValue ZTValueWithPoint(ZTPoint point);
ZT_API ZTValue ZTValueWithSize(ZTSize size);
ZT_API ZTValue ZTValueWithRect(ZTRect rect);
ZT_API ZTValue ZTValueWithEdgeInsets(ZTEdgeInsets insets);
ZT_API ZTValue ZTValueWithAffineTransform(ZTAffineTransform t);

[[nodiscard]] ZT_API std::optional<ZTPoint> ZTPointFromValue(const ZTValue& value, ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTSize> ZTSizeFromValue(const ZTValue& value, ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTRect> ZTRectFromValue(const ZTValue& value, ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTEdgeInsets> ZTEdgeInsetsFromValue(const ZTValue& value, ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTAffineTransform> ZTAffineTransformFromValue(const ZTValue& value,
                                                                                ZTError* error = nullptr);

// The dictionary forms described above, for programs that expect them.
ZT_API ZTValue ZTDictionaryRepresentationOfPoint(ZTPoint point);
ZT_API ZTValue ZTDictionaryRepresentationOfSize(ZTSize size);
ZT_API ZTValue ZTDictionaryRepresentationOfRect(ZTRect rect);
