#include "zentrel/filesystem/file_url.h"

#include <unistd.h>

#include <cctype>
#include <string>

#include "zentrel/filesystem/path_strings.h"

namespace {

bool isUnreservedPathByte(unsigned char c) {
  return std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/' || c == '!' || c == '$' ||
         c == '&' || c == '\'' || c == '(' || c == ')' || c == '*' || c == '+' || c == ',' || c == ';' || c == '=' ||
         c == ':' || c == '@';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

std::string currentDirectory() {
  std::string buffer(4096, '\0');
  if (::getcwd(buffer.data(), buffer.size()) == nullptr) return "/";
  buffer.resize(std::char_traits<char>::length(buffer.c_str()));
  return buffer;
}

}  // namespace

ZTFileURL ZTFileURL::fileURLWithPath(std::string_view path, bool isDirectory) {
  ZTFileURL url;
  if (path.empty()) return url;
  url.scheme_ = "file";
  std::string absolute =
      path.front() == '/' ? std::string(path) : zt::stringByAppendingPathComponent(currentDirectory(), path);
  if (absolute.size() > 1 && absolute.back() == '/') {
    isDirectory = true;
    while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
  }
  url.path_ = std::move(absolute);
  url.isDirectory_ = isDirectory || url.path_ == "/";
  return url;
}

ZTFileURL ZTFileURL::URLWithString(std::string_view text) {
  ZTFileURL url;
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0) return url;
  std::string scheme;
  for (std::size_t i = 0; i < colon; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (!(std::isalnum(c) || c == '+' || c == '-' || c == '.') || (i == 0 && !std::isalpha(c))) return url;
    scheme.push_back(static_cast<char>(std::tolower(c)));
  }
  if (scheme != "file") {
    url.scheme_ = std::move(scheme);
    url.text_ = std::string(text);
    return url;
  }
  std::string_view rest = text.substr(colon + 1);
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    const std::size_t slash = rest.find('/');
    const std::string_view host = rest.substr(0, slash);
    if (!host.empty() && host != "localhost") return url;  // a file on another host is not ours to name
    rest = slash == std::string_view::npos ? std::string_view("/") : rest.substr(slash);
  }
  const std::size_t query = rest.find_first_of("?#");
  if (query != std::string_view::npos) rest = rest.substr(0, query);
  const std::string path = percentDecode(rest);
  if (path.empty() || path.front() != '/') return url;
  return fileURLWithPath(path, path.back() == '/');
}

std::string ZTFileURL::absoluteString() const {
  if (!isFileURL()) return text_;
  std::string out = "file://";
  static constexpr char kHex[] = "0123456789ABCDEF";
  for (unsigned char c : path_) {
    if (isUnreservedPathByte(c)) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 0xF]);
    }
  }
  if (isDirectory_ && path_ != "/") out.push_back('/');
  return out;
}
