#pragma once
// Exceptions for programming errors (misuse that a correct program never does). Recoverable
// failures are never reported by exception; see error.h.

#include <stdexcept>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

// A call that breaks the library's rules: an abstract method that was not overridden, an
// initialiser that must not be used, a state that cannot happen.
class ZT_API ZTInternalInconsistencyException : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// An index or range outside the bounds of a sequence.
class ZT_API ZTRangeException : public std::out_of_range {
 public:
  using std::out_of_range::out_of_range;
};

// "You must override <method> in <class> class."
ZT_API std::string ZTAbstractMethodReason(std::string_view methodName, std::string_view className);
// "You should call <designated> instead of <called> for <class> class."
ZT_API std::string ZTRefusedInitializerReason(std::string_view designatedName, std::string_view calledName,
                                              std::string_view className);
