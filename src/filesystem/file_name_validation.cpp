#include "zentrel/filesystem/file_name_validation.h"

#include <unicode/uchar.h>

#include <vector>

#include "filesystem/internal/unicode.h"
#include "zentrel/platform/localization.h"
#include "zentrel/platform/utf16.h"

namespace {

constexpr std::size_t kMaximumNameLength = 255;  // UTF-16 code units
constexpr std::size_t kMaximumNameBytes = 255;   // NAME_MAX: what Linux file systems store
constexpr std::string_view kVisibleNul = "\u2400";  // SYMBOL FOR NULL, how a NUL is shown

// The name as a message shows it: NUL bytes (which would end the text for C callers) become the
// visible symbol for NUL.
std::string displayed(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\0') {
      out.append(kVisibleNul);
    } else {
      out.push_back(c);
    }
  }
  return out;
}

bool isBlank(std::string_view name) {
  for (std::size_t i = 0; i < name.size();) {
    if (!zt::fs_internal::isWhitespaceOrNewline(zt::fs_internal::nextCodePoint(name, i))) return false;
  }
  return true;
}

// Fills "%@" (or "%1$@", "%2$@" in a translation that reorders them) with the arguments in order.
std::string fillObjectFormat(std::string_view format, const std::vector<std::string>& arguments) {
  std::string out;
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || i + 1 >= format.size()) {
      out.push_back(format[i]);
      continue;
    }
    if (format[i + 1] == '@') {
      if (next < arguments.size()) out += arguments[next];
      ++next;
      ++i;
    } else if (i + 3 < format.size() && format[i + 1] >= '1' && format[i + 1] <= '9' && format[i + 2] == '$' &&
               format[i + 3] == '@') {
      const std::size_t index = static_cast<std::size_t>(format[i + 1] - '1');
      if (index < arguments.size()) out += arguments[index];
      i += 3;
    } else if (format[i + 1] == '%') {
      out.push_back('%');
      ++i;
    } else {
      out.push_back('%');
    }
  }
  return out;
}

}  // namespace

std::optional<std::string> ZTValidateLocalFileName(std::string_view name) {
  return ZTValidateLocalFileNameWithForbiddenCharacters(name, std::string("/"));
}

std::optional<std::string> ZTValidateLocalFileNameWithForbiddenCharacters(
    std::string_view name, const std::optional<std::string>& forbiddenCharacters) {
  if (name.empty() || isBlank(name)) return ZTLocalizedString("Empty name cannot be used");
  if (name.size() > kMaximumNameBytes || zt::utf16Length(name) > kMaximumNameLength) {
    return ZTLocalizedString("File name exceeds maximum limit of symbols");
  }
  if (name.front() == '.') return ZTLocalizedString("File name cannot be started with dot");
  // NUL is always forbidden: the kernel would see the name end there.
  std::vector<UChar32> forbidden{0};
  if (forbiddenCharacters) {
    for (std::size_t i = 0; i < forbiddenCharacters->size();) {
      forbidden.push_back(u_foldCase(static_cast<UChar32>(zt::fs_internal::nextCodePoint(*forbiddenCharacters, i)),
                                     U_FOLD_CASE_DEFAULT));
    }
  }
  for (std::size_t i = 0; i < name.size();) {
    const std::size_t start = i;
    const UChar32 c = u_foldCase(static_cast<UChar32>(zt::fs_internal::nextCodePoint(name, i)), U_FOLD_CASE_DEFAULT);
    for (UChar32 f : forbidden) {
      if (f == c) {
        const std::string format = ZTLocalizedString("The name \u201C%@\u201D cannot be used because of %@ character");
        return fillObjectFormat(format, {displayed(name), displayed(name.substr(start, i - start))});
      }
    }
  }
  return std::nullopt;
}
