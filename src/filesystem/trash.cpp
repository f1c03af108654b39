#include "zentrel/filesystem/trash.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

#include "filesystem/internal/fs.h"
#include "filesystem/internal/trash_can.h"
#include "filesystem/internal/xdg_dirs.h"
#include "zentrel/filesystem/file_descriptor.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/standard_directories.h"

namespace zt::fs_internal {

namespace {

constexpr std::string_view kInfoSuffix = ".trashinfo";
constexpr std::size_t kMaximumName = 255 - kInfoSuffix.size();  // so that "<name>.trashinfo" fits
constexpr int kNumberedNames = 100;                               // "a.txt", "a.2.txt" ... "a.100.txt"
constexpr int kRandomNames = 100;                                 // then "a.<random>.txt"

ZTError failure(int code, const std::string& path, const std::string& description = {}) {
  ZTError error = ZTError::posix(code, path);
  if (description.empty()) return error;
  ZTValue info = error.userInfo();
  info[ZTLocalizedDescriptionKey] = description;
  return ZTError(ZTPOSIXErrorDomain, code, std::move(info));
}

// A real folder (not a link) owned by `uid`; with `privateToOwner`, no access for anyone else.
bool isOwnedFolder(const std::string& path, uid_t uid, bool privateToOwner) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == uid &&
         (!privateToOwner || (st.st_mode & 077) == 0);
}

// Makes files/ and info/ in a trash root (mode 0700) and checks they are real folders.
bool makeTrashFolders(const std::string& root, bool shared) {
  for (const char* name : {"files", "info"}) {
    const std::string folder = root + "/" + name;
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
    struct stat st {};
    if ((shared ? ::lstat(folder.c_str(), &st) : ::stat(folder.c_str(), &st)) != 0 || !S_ISDIR(st.st_mode)) {
      errno = ENOTDIR;
      return false;
    }
  }
  return true;
}

// Cuts text to at most `limit` bytes without splitting a UTF-8 sequence.
std::string_view cutUTF8(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

// The name tried at `attempt`: the item's own name, then numbered ones, then random ones; each cut
// so that its entry's name fits the file system.
std::string candidateName(const std::string& name, int attempt) {
  std::string extension = pathExtension(name);
  std::string stem = extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
  if (!extension.empty()) extension.insert(0, ".");
  if (extension.size() > kMaximumName / 2) {  // an "extension" that is most of the name
    stem = name;
    extension.clear();
  }
  std::string tail;
  if (attempt > 0 && attempt < kNumberedNames) {
    tail = "." + std::to_string(attempt + 1);
  } else if (attempt >= kNumberedNames) {
    static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    unsigned char random[8] = {};
    if (::getrandom(random, sizeof random, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof random)) {
      const auto mix = static_cast<std::uint64_t>(std::clock()) * 0x9E3779B97F4A7C15ull + static_cast<std::uint64_t>(attempt);
      for (std::size_t i = 0; i < sizeof random; ++i) random[i] = static_cast<unsigned char>(mix >> (8 * i));
    }
    tail = ".";
    for (unsigned char byte : random) tail.push_back(kLetters[byte % 36]);
  }
  tail += extension;
  return std::string(cutUTF8(stem, kMaximumName - tail.size())) + tail;
}

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Moves `item` (absolute, links in its folder resolved) into `can`.
std::optional<std::string> moveInto(const std::string& item, const TrashCan& can, ZTError* error) {
  const int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (can.shared ? O_NOFOLLOW : 0);
  ZTFileDescriptor info(::open((can.root + "/info").c_str(), folderFlags));
  ZTFileDescriptor files(::open((can.root + "/files").c_str(), folderFlags));
  if (!info || !files) {
    ZTSetError(error, failure(errno, can.root));
    return std::nullopt;
  }
  std::string recorded = item;
  if (!can.topdir.empty()) recorded = item.substr(can.topdir == "/" ? 1 : can.topdir.size() + 1);
  const std::string entry = trashInfo(percentEncodedPath(recorded), std::time(nullptr));
  const std::string name = lastPathComponent(item);

  for (int attempt = 0; attempt < kNumberedNames + kRandomNames; ++attempt) {
    const std::string candidate = candidateName(name, attempt);
    const std::string entryName = candidate + std::string(kInfoSuffix);
    ZTFileDescriptor entryFile(
        ::openat(info.get(), entryName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!entryFile) {
      if (errno == EEXIST) continue;
      ZTSetError(error, failure(errno, can.root + "/info/" + entryName));
      return std::nullopt;
    }
    const auto discardEntry = [&] { ::unlinkat(info.get(), entryName.c_str(), 0); };
    struct stat st {};
    if (::fstatat(files.get(), candidate.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {  // an item without entry
      entryFile.reset();
      discardEntry();
      continue;
    }
    if (!writeAll(entryFile.get(), entry) || ::fsync(entryFile.get()) != 0 || !entryFile.close()) {
      const int code = errno;
      discardEntry();
      ZTSetError(error, failure(code, can.root + "/info/" + entryName));
      return std::nullopt;
    }
    int moved = ::renameat2(AT_FDCWD, item.c_str(), files.get(), candidate.c_str(), RENAME_NOREPLACE);
    if (moved != 0 && (errno == EINVAL || errno == ENOSYS)) {
      // A file system without "no replace" (or a folder moved into itself, which fails again below).
      if (::fstatat(files.get(), candidate.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
      } else {
        moved = ::renameat(AT_FDCWD, item.c_str(), files.get(), candidate.c_str());
      }
    }
    if (moved != 0) {
      const int code = errno;
      discardEntry();
      if (code == EEXIST) continue;  // taken meanwhile by someone else
      ZTSetError(error, failure(code, item,
                                code == EXDEV ? "\u201C" + name +
                                                    "\u201D couldn\u2019t be moved to the trash because it is on "
                                                    "another file system."
                                              : std::string()));
      return std::nullopt;
    }
    return can.root + "/files/" + candidate;
  }
  ZTSetError(error, failure(EEXIST, can.root + "/files/" + name));
  return std::nullopt;
}

}  // namespace

std::optional<TrashCan> topFolderTrash(const std::string& topdir, uid_t uid) {
  const std::string base = topdir == "/" ? std::string() : topdir;
  const std::string sharedTrash = base + "/.Trash";
  struct stat st {};
  if (::lstat(sharedTrash.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX) != 0) {
    const std::string mine = sharedTrash + "/" + std::to_string(uid);
    if ((::mkdir(mine.c_str(), 0700) == 0 || errno == EEXIST) && isOwnedFolder(mine, uid, false) &&
        makeTrashFolders(mine, true)) {
      return TrashCan{mine, topdir, true};
    }
  }
  const std::string own = base + "/.Trash-" + std::to_string(uid);
  if ((::mkdir(own.c_str(), 0700) == 0 || errno == EEXIST) && isOwnedFolder(own, uid, true) &&
      makeTrashFolders(own, true)) {
    return TrashCan{own, topdir, true};
  }
  return std::nullopt;
}

std::string mountPointOf(const std::string& realFolder) {
  struct stat st {};
  if (::stat(realFolder.c_str(), &st) != 0) return "/";
  std::string folder = realFolder;
  while (folder.size() > 1) {  // one step per component: bounded by the path's length
    const std::string parent = stringByDeletingLastPathComponent(folder);
    struct stat above {};
    if (::stat(parent.c_str(), &above) != 0 || above.st_dev != st.st_dev) return folder;
    folder = parent.empty() ? "/" : parent;
  }
  return "/";
}

std::string percentEncodedPath(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(path.size());
  for (unsigned char c : path) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
        c == '_' || c == '~' || c == '/') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

std::string trashInfo(std::string_view encodedPath, std::time_t when) {
  std::tm local {};
  char date[32] = "";
  if (::localtime_r(&when, &local) != nullptr) std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::string text = "[Trash Info]\nPath=";
  text.append(encodedPath);
  text.append("\nDeletionDate=");
  text.append(date);
  text.push_back('\n');
  return text;
}

std::optional<std::string> moveItemToTrash(std::string_view path, const std::optional<std::string>& homeTrash,
                                           ZTError* error) {
  const std::string given(path);
  const std::string name = lastPathComponent(path);
  if (!usablePath(path) || name.empty() || name == "/" || name == "." || name == "..") {
    ZTSetError(error, failure(EINVAL, given));
    return std::nullopt;
  }
  // The item's folder without links, so the entry names where the item really was.
  std::string folder = stringByDeletingLastPathComponent(path);
  if (folder.empty()) folder = ".";
  char resolved[PATH_MAX];
  if (::realpath(folder.c_str(), resolved) == nullptr) {
    ZTSetError(error, failure(errno, given));
    return std::nullopt;
  }
  const std::string item = stringByAppendingPathComponent(resolved, name);
  struct stat itemStatus {};
  if (::lstat(item.c_str(), &itemStatus) != 0) {
    ZTSetError(error, failure(errno, given));
    return std::nullopt;
  }

  std::optional<TrashCan> can;
  if (homeTrash) {
    char trashResolved[PATH_MAX];
    const std::string trashRoot =
        ::realpath(homeTrash->c_str(), trashResolved) != nullptr ? std::string(trashResolved) : *homeTrash;
    if (item == trashRoot || item.rfind(trashRoot + "/", 0) == 0) {
      ZTSetError(error, failure(EINVAL, given, "\u201C" + name + "\u201D is already in the trash."));
      return std::nullopt;
    }
    struct stat trashStatus {};
    if (::stat((trashRoot + "/files").c_str(), &trashStatus) == 0 && trashStatus.st_dev == itemStatus.st_dev) {
      can = TrashCan{trashRoot, {}, false};
    }
  }
  if (!can) {
    const std::string topdir = mountPointOf(resolved);
    can = topFolderTrash(topdir, ::geteuid());
    if (can && (item == can->root || item.rfind(can->root + "/", 0) == 0)) {
      ZTSetError(error, failure(EINVAL, given, "\u201C" + name + "\u201D is already in the trash."));
      return std::nullopt;
    }
  }
  if (!can) {
    ZTSetError(error, failure(EXDEV, given,
                              "\u201C" + name +
                                  "\u201D couldn\u2019t be moved to the trash because its file system has no trash "
                                  "this user may use."));
    return std::nullopt;
  }
  return moveInto(item, *can, error);
}

}  // namespace zt::fs_internal

std::optional<std::string> zt::moveItemToTrash(std::string_view path, ZTError* error) {
  const std::optional<std::string> homeTrash =
      fs_internal::homeTrash(ZTHomeDirectory(), fs_internal::processEnvironment());
  return fs_internal::moveItemToTrash(path, homeTrash, error);
}
