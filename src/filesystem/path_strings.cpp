#include "zentrel/filesystem/path_strings.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/unicode.h"
#include "zentrel/filesystem/paths.h"
#include "zentrel/filesystem/standard_directories.h"

namespace zt {

namespace {

// The path without trailing "/" (a path made only of "/" becomes "/").
std::string_view withoutTrailingSlashes(std::string_view path) {
  std::size_t end = path.size();
  while (end > 1 && path[end - 1] == '/') --end;
  return path.substr(0, end);
}

std::string collapseSlashes(std::string_view path) {
  std::string out;
  out.reserve(path.size());
  for (char c : path) {
    if (c == '/' && !out.empty() && out.back() == '/') continue;
    out.push_back(c);
  }
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

// Resolves symbolic links in the longest leading part of an absolute path that exists. Walks
// down from the root with one lstat per component and stops at the first missing one, so a path
// that does not exist costs a few system calls, not one resolution per ancestor.
std::string resolvingSymbolicLinks(const std::string& path) {
  if (path.empty() || path[0] != '/' || !fs_internal::usablePath(path)) return path;
  const bool trailingSlash = path.size() > 1 && path.back() == '/';
  std::string resolved = "/";
  std::size_t start = 1;
  while (start < path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    if (end == start) {
      start = end + 1;
      continue;
    }
    std::string candidate = resolved;
    if (candidate.back() != '/') candidate.push_back('/');
    candidate.append(path, start, end - start);
    struct stat st {};
    if (::lstat(candidate.c_str(), &st) != 0) break;
    if (S_ISLNK(st.st_mode)) {
      char target[PATH_MAX];
      if (::realpath(candidate.c_str(), target) == nullptr) break;  // dangling or looping link
      candidate = target;
    }
    resolved = std::move(candidate);
    start = end + 1;
  }
  std::string out = start < path.size() ? stringByAppendingPathComponent(resolved, path.substr(start)) : resolved;
  if (trailingSlash && out.back() != '/') out.push_back('/');
  return out;
}

}  // namespace

std::string lastPathComponent(std::string_view path) {
  if (path.empty()) return {};
  const std::string_view trimmed = withoutTrailingSlashes(path);
  if (trimmed == "/") return "/";
  const std::size_t slash = trimmed.rfind('/');
  return std::string(slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1));
}

std::string stringByDeletingLastPathComponent(std::string_view path) {
  if (path.empty()) return {};
  const std::string_view trimmed = withoutTrailingSlashes(path);
  if (trimmed == "/") return "/";
  const std::size_t slash = trimmed.rfind('/');
  if (slash == std::string_view::npos) return {};
  if (slash == 0) return "/";
  return std::string(withoutTrailingSlashes(trimmed.substr(0, slash)));
}

std::string pathExtension(std::string_view path) {
  const std::string last = lastPathComponent(path);
  const std::size_t dot = last.rfind('.');
  if (dot == std::string::npos || dot == 0 || last == "/") return {};
  return last.substr(dot + 1);
}

std::string stringByDeletingPathExtension(std::string_view path) {
  const std::string_view trimmed = withoutTrailingSlashes(path);
  const std::string extension = pathExtension(trimmed);
  if (extension.empty()) return std::string(trimmed);
  return std::string(trimmed.substr(0, trimmed.size() - extension.size() - 1));
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return collapseSlashes(component);
  if (component.empty()) return collapseSlashes(path);
  std::string joined(path);
  joined.push_back('/');
  joined.append(component);
  return collapseSlashes(joined);
}

std::string stringByAppendingPathExtension(std::string_view path, std::string_view extension) {
  std::string out(withoutTrailingSlashes(path));
  out.push_back('.');
  out.append(extension);
  return out;
}

std::vector<std::string> pathComponents(std::string_view path) {
  std::vector<std::string> components;
  if (path.empty()) return components;
  if (path[0] == '/') components.emplace_back("/");
  std::size_t start = 0;
  bool any = false;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    if (end > start) {
      components.emplace_back(path.substr(start, end - start));
      any = true;
    }
    start = end + 1;
  }
  if (any && path.back() == '/') components.emplace_back("/");
  return components;
}

std::string pathWithComponents(const std::vector<std::string>& components) {
  std::string out;
  for (const std::string& component : components) {
    out = out.empty() ? component : stringByAppendingPathComponent(out, component);
  }
  return out;
}

std::string stringByStandardizingPath(std::string_view path) {
  if (path.empty()) return {};
  std::string expanded;
  if (path == "~" || path.substr(0, 2) == "~/") {
    expanded = ZTHomeDirectory();
    expanded.append(path.substr(1));
    path = expanded;
  }
  const bool absolute = path[0] == '/';
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view part = path.substr(start, end - start);
    start = end + 1;
    if (part.empty() || part == ".") continue;
    if (part == ".." && absolute) {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  std::string out;
  if (absolute) out.push_back('/');
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out.push_back('/');
    out.append(parts[i]);
  }
  if (out.empty()) return ".";
  constexpr std::string_view kPrivate = "/private/";
  if (out.compare(0, kPrivate.size(), kPrivate) == 0 && fs_internal::itemExists(out.substr(kPrivate.size() - 1))) {
    out.erase(0, kPrivate.size() - 1);
  }
  return out;
}

std::string stringByPrependingSlashToPath(std::string_view path) {
  if (path.empty() || path.front() == '/') return std::string(path);
  return "/" + std::string(path);
}

std::string stringByAppendingSlashToPath(std::string_view path) {
  if (!path.empty() && path.back() == '/') return std::string(path);
  return std::string(path) + "/";
}

std::string stringByNormalizingPathWithOptions(std::string_view path, unsigned options) {
  std::string out = ZTNormalizeBeginingOfPath(path);
  if (options & ZTPathNormalizationResolveSymbolicLinks) out = resolvingSymbolicLinks(out);
  if (options & ZTPathNormalizationAddTrailingSlash) out = ZTNormalizeEndOfPath(out);
  return out;
}

std::string stringByNormalizingPathAndAddingTrailingSlash(std::string_view path, bool addTrailingSlash) {
  return stringByNormalizingPathWithOptions(path, addTrailingSlash ? ZTPathNormalizationAddTrailingSlash : 0u);
}

std::string stringByDeletingBeginningOfPath(std::string_view path, std::string_view base) {
  const std::string p = stringByNormalizingPathWithOptions(path, ZTPathNormalizationAddTrailingSlash);
  const std::string b = stringByNormalizingPathWithOptions(base, ZTPathNormalizationAddTrailingSlash);
  std::string out = p;
  const std::size_t at = p.find(b);
  if (at != std::string::npos) {
    out = p.substr(at + b.size() - 1);
    if (out.empty()) out = "/";
  }
  if ((path.empty() || path.back() != '/') && out.size() >= 2 && out.back() == '/') out.pop_back();
  return out;
}

std::string stringByDeletingBeginningOfNormalizedPath(std::string_view path, std::string_view base) {
  const std::string p = stringByAppendingSlashToPath(path);
  const std::string b = stringByAppendingSlashToPath(base);
  const std::size_t at = p.find(b);
  if (at == std::string::npos) return std::string(path);
  if (p.size() == b.size()) return "/";
  const std::size_t from = at + b.size() - 1;
  if (from >= path.size()) return "/";
  return std::string(path.substr(from));
}

bool isBasePathOfPath(std::string_view base, std::string_view path) {
  if (base.empty() || path.empty()) return false;
  const std::string b = stringByNormalizingPathWithOptions(base, ZTPathNormalizationForComparison);
  const std::string p = stringByNormalizingPathWithOptions(path, ZTPathNormalizationForComparison);
  return p.size() != b.size() && p.compare(0, b.size(), b) == 0;
}

bool isEqualOrBasePathOfPath(std::string_view base, std::string_view path) {
  if (base.empty() || path.empty()) return false;
  const std::string b = stringByNormalizingPathWithOptions(base, ZTPathNormalizationForComparison);
  const std::string p = stringByNormalizingPathWithOptions(path, ZTPathNormalizationForComparison);
  return p.compare(0, b.size(), b) == 0;
}

bool isEqualToPath(std::string_view path, std::string_view other) {
  if (path.empty() || other.empty()) return path.empty() && other.empty();
  return stringByNormalizingPathWithOptions(path, ZTPathNormalizationForComparison) ==
         stringByNormalizingPathWithOptions(other, ZTPathNormalizationForComparison);
}

bool isEqualToCaseInsensitivePath(std::string_view path, std::string_view other) {
  if (path.empty() || other.empty()) return path.empty() && other.empty();
  return fs_internal::caseInsensitiveEqual(stringByNormalizingPathWithOptions(path, ZTPathNormalizationForComparison),
                                           stringByNormalizingPathWithOptions(other, ZTPathNormalizationForComparison));
}

bool isDirectParentPathOfPath(std::string_view parent, std::string_view path) {
  if (path.empty() || path == "/") return false;
  return isEqualToPath(parent, stringByDeletingLastPathComponent(path));
}

std::optional<std::string> relativePathWithBasePath(std::string_view path, std::string_view base) {
  if (path.substr(0, base.size()) != base) return std::string(path);
  const std::vector<std::string> components = pathComponents(path);
  const std::size_t n = pathComponents(base).size();
  if (components.size() <= n) return std::nullopt;
  std::string out = components[n];
  for (std::size_t i = n + 1; i < components.size(); ++i) out = stringByAppendingPathComponent(out, components[i]);
  return out;
}

std::string stringByDeletingLastURLComponent(std::string_view path) {
  const std::string last = lastPathComponent(path);
  if (last.size() > path.size()) return std::string(path);
  return std::string(path.substr(0, path.size() - last.size()));
}

std::string stringBySettingPathExtension(std::string_view path, std::string_view extension,
                                         bool replaceExistingExtension) {
  if (replaceExistingExtension) {
    std::string stem = stringByDeletingPathExtension(path);
    return extension.empty() ? stem : stringByAppendingPathExtension(stem, extension);
  }
  if (extension.empty() || fs_internal::caseInsensitiveEqual(pathExtension(path), extension)) return std::string(path);
  return stringByAppendingPathExtension(path, extension);
}

}  // namespace zt
