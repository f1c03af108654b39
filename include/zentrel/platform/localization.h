#pragma once
// Localisation of user-visible texts through gettext. The English text is the message id, so an
// application without translations shows the English text unchanged.
//
// The application names the gettext text domain that holds its translations (the library has no
// catalogue of its own: the texts it shows belong to the application, like its own). Until one is
// named, the process's current default domain (textdomain()) is used. The application also calls
// setlocale(LC_ALL, "") as usual for gettext to pick the user's language.

#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

// Sets the text domain and, when directory is not empty, where its catalogues live
// (bindtextdomain). Thread-safe.
ZT_API void ZTSetLocalizationDomain(std::string_view domain, std::string_view directory = {});
// The text domain in use, empty when none has been named.
ZT_API std::string ZTLocalizationDomain();
// The translation of an English text, or the text itself when there is none.
ZT_API std::string ZTLocalizedString(std::string_view english);
