#pragma once
// E-mail address extraction and checking.
//
// Stateless; may be called from any thread. The regular expressions are ICU's, compiled once.

#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

namespace zt {

// The address of a "Display Name <address>" text: what lies between the angle brackets of the
// first match of "<.+>", or the whole text when there is none.
ZT_API std::string filterStringFromFirstLastName(std::string_view text);

// Whether the filtered text (see above) is an address of the form local@domain.tld: it matches
// ^[A-Z0-9a-z._%+-]+@[A-Za-z0-9.-]+\.[A-Za-z]{2,10}$.
ZT_API bool isStringMail(std::string_view text);

}  // namespace zt
