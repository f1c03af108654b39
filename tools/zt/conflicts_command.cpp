// `zt conflicts FILE`: the versions of a document that sync clients left in conflict (current
// first, then each conflict copy with its client, device and date), and
// `zt conflicts FILE --keep N... --delete N...`: the user's resolution, run in the background
// with a line per step. The current version, if kept, else the first kept one, stays at the document's
// place; other kept versions
// are saved beside it under readable conflict names. Removed files go to the desktop's trash.

#include <algorithm>
#include <ctime>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "commands.h"
#include "zentrel/filesystem/file_version.h"
#include "zentrel/filesystem/file_version_conflicts.h"
#include "zentrel/filesystem/trash.h"
#include "zentrel/platform/run_loop.h"

namespace ztool {
namespace {

std::string shownDate(const std::optional<ZTDate>& date) {
  if (!date) return "date unknown";
  const std::time_t seconds = static_cast<std::time_t>(date->timeIntervalSince1970());
  std::tm local{};
  ::localtime_r(&seconds, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

ZTFileVersionList versionsInOrder(const ZTFileURL& url) {
  ZTFileVersionList versions;
  if (auto current = ZTFileVersion::currentVersionOfItemAtURL(url)) versions.push_back(current);
  for (auto& other : ZTFileVersion::otherVersionsOfItemAtURL(url)) versions.push_back(other);
  return versions;
}

void listVersions(const ZTFileVersionList& versions) {
  for (std::size_t i = 0; i < versions.size(); ++i) {
    const auto& v = versions[i];
    std::cout << "  " << i << "  ";
    if (!v->isConflict()) {
      std::cout << (v->isStored() ? "kept version   " : "current        ") << shownDate(v->modificationDate()) << "  " << v->URL().path() << "\n";
      continue;
    }
    const std::string kind = v->conflictCopyName() ? v->conflictCopyName()->syncClient + " copy" : "kept by an application";
    std::cout << kind << ", " << (v->localizedNameOfSavingComputer() ? "from " + *v->localizedNameOfSavingComputer() : std::string("device not named"))
              << ", modified " << shownDate(v->modificationDate()) << "\n     " << v->URL().path() << "\n";
  }
}

nlohmann::json utcDate(const std::optional<ZTDate>& date) {
  if (!date) return nullptr;
  const std::time_t seconds = static_cast<std::time_t>(date->timeIntervalSince1970());
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

// The listing for scripts: {"document": path, "versions": [{number, path, conflict, syncClient,
// device, modified}]}, with null where a value is unknown.
int listVersionsAsJson(const std::string& file) {
  const ZTFileURL url = ZTFileURL::fileURLWithPath(file);
  const ZTFileVersionList versions = versionsInOrder(url);
  nlohmann::json list = nlohmann::json::array();
  for (std::size_t i = 0; i < versions.size(); ++i) {
    const auto& v = versions[i];
    const auto name = v->conflictCopyName();
    const auto device = v->localizedNameOfSavingComputer();
    list.push_back({{"number", i},
                    {"path", v->URL().path()},
                    {"conflict", v->isConflict()},
                    {"syncClient", name ? nlohmann::json(name->syncClient) : nlohmann::json(nullptr)},
                    {"device", device ? nlohmann::json(*device) : nlohmann::json(nullptr)},
                    {"modified", utcDate(v->modificationDate())}});
  }
  const nlohmann::json out = {{"document", url.path()}, {"versions", std::move(list)}};
  std::cout << out.dump(2) << "\n";
  return 0;
}

std::string firstStepText(const ZTFileVersionList& saving) {
  if (saving.empty()) return "moved to the trash (nothing kept): ";
  for (const auto& v : saving)
    if (!v->isConflict()) return "kept the current contents at ";
  return "wrote " + saving.front()->URL().path() + " over ";
}

int runConflicts(const std::string& file, const std::vector<std::size_t>& keep, const std::vector<std::size_t>& remove) {
  const ZTFileURL url = ZTFileURL::fileURLWithPath(file);
  const ZTFileVersionList versions = versionsInOrder(url);
  const bool hasCurrent = !versions.empty() && !versions.front()->isConflict();
  std::cout << "Versions of " << url.path() << (hasCurrent ? "" : " (the document itself is missing)") << ":\n";
  if (versions.empty()) {
    std::cout << "  none\n";
    return keep.empty() && remove.empty() ? 0 : 2;
  }
  listVersions(versions);
  if (keep.empty() && remove.empty()) {
    if (versions.size() == 1 && hasCurrent) std::cout << "No conflict copies.\n";
    return 0;
  }

  std::set<std::size_t> seen;
  ZTFileVersionList saving;
  ZTFileVersionList deleting;
  for (const auto* list : {&keep, &remove}) {
    for (std::size_t n : *list) {
      if (n >= versions.size()) {
        std::cerr << "zt conflicts: there is no version " << n << " (0 to " << versions.size() - 1 << ")\n";
        return 2;
      }
      if (!seen.insert(n).second) {
        std::cerr << "zt conflicts: version " << n << " is named twice\n";
        return 2;
      }
      (list == &keep ? saving : deleting).push_back(versions[n]);
    }
  }
  for (const auto& v : deleting)
    if (!v->isConflict()) {
      std::cerr << "zt conflicts: only conflict copies can be deleted; to remove the document itself, delete "
                   "its copies and keep nothing\n";
      return 2;
    }

  // Keeping only copies writes over the document: its current contents go to the trash first, so
  // that the desktop's trash can give them back.
  const bool currentKept = hasCurrent && std::find(keep.begin(), keep.end(), 0) != keep.end();
  if (hasCurrent && !currentKept && !saving.empty()) {
    ZTError trashError;
    const auto trashed = zt::moveItemToTrash(url.path(), &trashError);
    if (!trashed) {
      std::cerr << "zt conflicts: could not put the current contents of " << url.path()
                << " in the trash before replacing them, so nothing was changed: " << trashError.localizedDescription()
                << "\n";
      return 1;
    }
    std::cout << "The current contents of " << url.path() << " are in the trash (" << *trashed
              << "); restore them from there if needed.\n";
  }
  std::cout << "Resolving: keep " << saving.size() << ", delete " << deleting.size()
            << " (removed files go to the trash)\n";
  struct State {
    bool done = false;
    int status = 0;
  };
  auto state = std::make_shared<State>();
  zt::resolveConflictsForItemAtURL(
      url, saving, deleting, ZTFileURL::fileURLWithPath(folderOf(url.path())), nullptr, nullptr,
      [url, firstStep = firstStepText(saving)](std::uint64_t processed, std::uint64_t total,
                                               const std::optional<ZTFileURL>& saved, bool*) {
        std::cout << "  [" << processed << "/" << total << "] ";
        if (processed == 1)
          std::cout << firstStep << url.path() << "\n";
        else if (saved)
          std::cout << "kept beside it as " << saved->path() << "\n";
        else
          std::cout << "removed a conflict copy (in the trash)\n";
      },
      [state, nothingKept = saving.empty()](std::uint64_t, const std::shared_ptr<ZTFileVersion>& kept) {
        std::cout << "Done: ";
        if (nothingKept)
          std::cout << "the document and the copies named are in the trash\n";
        else if (kept && kept->isConflict())
          std::cout << "the document now holds what was in " << kept->URL().path() << "\n";
        else
          std::cout << "the document kept its current contents\n";
        state->done = true;
      },
      [state](const std::shared_ptr<ZTFileVersion>& failed, const ZTError& error) {
        std::cerr << "zt conflicts: failed" << (failed ? " on " + failed->URL().path() : std::string()) << ": "
                  << error.localizedDescription() << "\n";
        state->status = 1;
        state->done = true;
      });
  ZTRunLoop::main()->runWithCondition([&] { return !state->done; }, std::chrono::minutes(30));
  if (!state->done) {
    std::cerr << "zt conflicts: gave up waiting after 30 minutes\n";
    return 1;
  }
  return state->status;
}

}  // namespace

void addConflictsCommand(CLI::App& app) {
  auto* command = app.add_subcommand(
      "conflicts", "List a document's conflict copies (Syncthing, Nextcloud, ownCloud, Dropbox) and resolve them");
  command->footer("Lists the document (0) and its conflict copies (1, 2, ...) when neither --keep nor --delete is given.\n"
      "Exit status: 0 when done, 1 when a file could not be changed, 2 for numbers that do not fit the list.\n\n"
      "Example: zt conflicts ~/notes.txt\n"
      "         zt conflicts ~/notes.txt --json\n"
      "         zt conflicts ~/notes.txt --keep 0 --delete 1 2");
  static std::string file;
  static std::vector<std::size_t> keep;
  static std::vector<std::size_t> remove;
  command->add_option("FILE", file, "The document")->required();
  static bool json = false;
  auto* keepOption = command->add_option("--keep", keep, "Versions to keep, by the numbers listed: 0 (the document) stays if kept, else the first kept one takes its place");
  auto* deleteOption = command->add_option("--delete", remove, "Conflict copies to remove (to the trash), by the numbers listed");
  command->add_flag("--json", json, "Print the list as one JSON object, for scripts")->excludes(keepOption)->excludes(deleteOption);
  command->callback([] {
    const int status = json ? listVersionsAsJson(file) : runConflicts(file, keep, remove);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace ztool
