#pragma once
// The user's standard folders on a freedesktop (XDG) system.
//
//  home                 the home folder of the user database entry of the real user id, even when
//                       $HOME says otherwise; $HOME (when absolute, else "/") for a user without an
//                       entry, which is logged once per process
//  documents            XDG_DOCUMENTS_DIR from $XDG_CONFIG_HOME/user-dirs.dirs, else ~/Documents
//  application          the documents folder's parent; home when the documents folder is home
//                       itself (xdg-user-dirs' way of disabling it)
//  trash                the root of the freedesktop home trash, $XDG_DATA_HOME/Trash: the folder
//                       holding files/ (the trashed items) and info/ (their .trashinfo entries).
//                       It is made, with both subfolders and mode 0700, when missing; ~/.Trash only
//                       when it cannot be made (logged). To trash an item use zt::moveItemToTrash
//                       (trash.h), which writes the entry the desktop needs to show and restore it.
//  library              $XDG_DATA_HOME (default ~/.local/share)
//  caches               $XDG_CACHE_HOME (default ~/.cache)
//  application support  $XDG_DATA_HOME/<executable name>, created when missing; the temporary
//                       folder when it cannot be (logged)
//  temporary            the library's private folder <base>/zentrel-<euid>, base being $TMPDIR when
//                       it is an absolute path, else /tmp: created with mode 0700 and checked
//                       before every use (a folder, not a link, owned by this user, no access for
//                       others). When someone else holds that name the library logs it once and
//                       uses $XDG_RUNTIME_DIR/zentrel or a fresh folder of its own instead.
// An XDG variable counts only when it holds an absolute path, as the freedesktop rules say.
//
// Documents, application, trash, library, caches and application support are computed on first
// use and kept for the life of the process (later changes of the environment are not seen);
// home, the application library folder and the temporary folder are computed on every call.
// Each "...Add" function appends its argument as a path component. Every function may be called
// from any thread; the cached values are computed once under the language's thread-safe static
// initialisation. None of them throws. The trash, application support and temporary folders are
// created when missing; the others are not.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

ZT_API std::string ZTHomeDirectory();
ZT_API std::string ZTTrashDirectory();
ZT_API std::string ZTDocumentsDirectory();
ZT_API std::string ZTDocumentsDirectoryAdd(std::string_view component);
ZT_API std::string ZTApplicationDirectory();
ZT_API std::string ZTLibraryDirectory();
ZT_API std::string ZTLibraryDirectoryAdd(std::string_view component);
ZT_API std::string ZTApplicationLibraryDirectory();
ZT_API std::string ZTApplicationLibraryDirectoryAdd(std::string_view component);
ZT_API std::string ZTCachesDirectory();
ZT_API std::string ZTCachesDirectoryAdd(std::string_view component);
ZT_API std::string ZTApplicationSupportDirectory();
ZT_API std::string ZTApplicationSupportDirectoryAdd(std::string_view component);
ZT_API std::string ZTTemporaryDirectory();
ZT_API std::string ZTTemporaryDirectoryAdd(std::string_view component);

// Cloud document containers. There is no application bundle on Linux, so the application passes
// its information dictionary (the dictionary that holds "NSUbiquitousContainers": container
// identifier -> settings). Answers the first identifier, in the dictionary's key order, whose
// settings have "NSUbiquitousContainerIsDocumentScopePublic" true; nullopt when none does.
ZT_API std::optional<std::string> ZTiCloudContainerIdentifier(const ZTValue& infoDictionary);
// The folder URL home + "/Library/Mobile Documents/" + the identifier with every "." replaced by
// "~", standardized. nullopt for a missing or empty identifier. Nothing is created or checked.
ZT_API std::optional<ZTFileURL> ZTiCloudContainerURLFromIdentifier(const std::optional<std::string>& identifier);
