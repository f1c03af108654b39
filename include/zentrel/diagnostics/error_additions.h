#pragma once
// Conveniences on ZTError: underlying errors, descriptions along the chain, constructors, an
// extended multi-line description and a search for a code along the chain.
//
// An underlying error lives in the user info under ZTUnderlyingErrorKey as the dictionary that
// zt::valueFromError makes ({"ZTErrorDomain", "ZTErrorCode", "ZTErrorUserInfo"}); a value of any
// other shape there is not an error and is ignored by these functions. Chains are followed at most
// ZTErrorChainDepthLimit deep, so a hostile or corrupt chain cannot recurse without end.
//
// Pure functions of their input; any thread; nothing here throws.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

inline constexpr std::size_t ZTErrorChainDepthLimit = 64;

namespace zt {

// The dictionary form of an error, as stored under ZTUnderlyingErrorKey, and back (nullopt for a
// value that is not such a dictionary).
ZT_API ZTValue valueFromError(const ZTError& error);
ZT_API std::optional<ZTError> errorFromValue(const ZTValue& value);

ZT_API std::optional<ZTError> underlyingError(const ZTError& error);

// The user info's localized description when there is one; else the underlying error's
// localizedDescription(); else the error's own localizedDescription().
ZT_API std::string localizedDescriptionOfUnderlyingErrorOrSelf(const ZTError& error);

// ZTPOSIXErrorDomain with the code; the description is the C library's text for it.
[[nodiscard]] ZT_API ZTError errorWithPOSIXErrorCode(std::int32_t code);

// The user info holds each given piece under ZTLocalizedDescriptionKey,
// ZTLocalizedFailureReasonErrorKey and ZTUnderlyingErrorKey; it is empty when none is given.
[[nodiscard]] ZT_API ZTError errorWithDomain(std::string domain, std::int64_t code,
                                             const std::optional<std::string>& localizedDescription,
                                             const std::optional<std::string>& localizedFailureReason,
                                             const std::optional<ZTError>& underlyingError = std::nullopt);

// A multi-line description:
//   <ZTError 0x...:
//   	domain = "..."
//   	code = 5
//   	description = "..."          (when the user info has a non-empty description)
//   	failure reason = "..."       (when non-empty)
//   	user info = {...}            (the other user-info entries, when there are any)
//   	underlying error =
//   	<ZTError 0x...: ...           (the underlying error, one tab further in)
//   >
// Each line of level n starts with n more tabs. The address is that of the error object described.
ZT_API std::string extendedDescription(const ZTError& error);
ZT_API std::string extendedDescriptionWithCurrentIndentationLevel(const ZTError& error, std::size_t level);

// Walks the chain: at the first error of the domain the answer is whether its code matches, and the
// search stops there even when a deeper error would match; with no error of the domain, false.
ZT_API bool hasNestedCode(const ZTError& error, std::int64_t code, std::string_view domain);

}  // namespace zt
