#pragma once
// ZT_API marks what the shared libraries export: every class, function and variable of the public
// interface carries it. The libraries are built with hidden visibility (-fvisibility=hidden,
// -fvisibility-inlines-hidden), so anything without the mark stays private to the library that
// defines it, and an application or plugin cannot come to depend on it.
//
// On ELF the same attribute serves the library and its users, so there is no import form.
// Templates and inline functions defined in headers need no mark: they are compiled into whoever
// uses them.

#if defined(__GNUC__) || defined(__clang__)
#define ZT_API __attribute__((visibility("default")))
#else
#define ZT_API
#endif
