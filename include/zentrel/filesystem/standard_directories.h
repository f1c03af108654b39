#pragma once
// The user's standard folders on a freedesktop (XDG) system.
//
//  home                 the home folder of the user database entry of the real user id, even when
//                       $HOME says otherwise; $HOME (or "/") only when the lookup fails (logged)
//  documents            XDG_DOCUMENTS_DIR from $XDG_CONFIG_HOME/user-dirs.dirs, else ~/Documents
//  application          the documents folder's parent
//  trash                $XDG_DATA_HOME/Trash (the freedesktop home trash); ~/.Trash when no data
//                       home can be found (logged)
//  library              $XDG_DATA_HOME (default ~/.local/share)
//  caches               $XDG_CACHE_HOME (default ~/.cache)
//  application support  $XDG_DATA_HOME/<executable name>, created when missing; the temporary
//                       folder when it cannot be (logged)
//  temporary            $TMPDIR, else /tmp
// An XDG variable counts only when it holds an absolute path, as the freedesktop rules say.
//
// Documents, application, trash, library, caches and application support are computed on first
// use and kept for the life of the process (later changes of the environment are not seen);
// home, the application library folder and the temporary folder are computed on every call.
// Each "...Add" function appends its argument as a path component. Every function may be called
// from any thread; the cached values are computed once under the language's thread-safe static
// initialisation. None of them throws; the folders other than application support are not
// created.

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
