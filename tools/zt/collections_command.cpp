// `zt collections`: a least-recently-used cache evicting as it fills, and an array with a key index.

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "zentrel/collections/map_array.h"
#include "zentrel/collections/number_limited_cache_dictionary.h"

namespace ztool {
namespace {
struct Thumbnail {
  std::string file;
};

class EvictionReporter : public ZTCacheDictionaryDelegate<std::string, Thumbnail> {
 public:
  void cacheDictionary(ZTCacheDictionary<std::string, Thumbnail>&, const std::shared_ptr<Thumbnail>& object,
                       const std::string& key) override {
    if (object) std::cout << "   evicted " << key << "\n";
  }
};

struct Contact {
  std::string email;
  std::string name;
};
}  // namespace

int runCollectionsTour() {
  std::cout << "Collections\n\n";
  auto cache = ZTNumberLimitedCacheDictionary<std::string, Thumbnail>::create(3);
  auto reporter = std::make_shared<EvictionReporter>();
  cache->setDelegate(reporter);
  std::cout << "1. A thumbnail cache holding at most 3 entries:\n";
  for (const char* file : {"a.jpg", "b.jpg", "c.jpg"}) cache->setObject(std::make_shared<Thumbnail>(Thumbnail{file}), file);
  std::cout << "   stored a.jpg, b.jpg, c.jpg; reading a.jpg makes it the most recent\n";
  (void)cache->objectForKey("a.jpg");
  std::cout << "   storing d.jpg:\n";
  cache->setObject(std::make_shared<Thumbnail>(Thumbnail{"d.jpg"}), "d.jpg");
  std::cout << "   now held, oldest first:";
  for (const auto& key : cache->keysInRecencyOrder()) std::cout << " " << key;
  std::cout << "\n";

  auto big = ZTNumberLimitedCacheDictionary<int, int>::create(100000);
  for (int i = 0; i < 100000; ++i) big->setObject(std::make_shared<int>(i), i);
  const auto start = std::chrono::steady_clock::now();
  long hits = 0;
  for (long i = 0; i < 1000000; ++i) hits += big->objectForKey(static_cast<int>((i * 7919) % 100000)) != nullptr;
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::cout << "2. At 100,000 entries, " << hits << " reads that refresh recency took " << seconds * 1000
            << " ms (" << static_cast<long>(1000000 / seconds) << " per second).\n";

  auto contacts = ZTMutableMapArray<Contact, std::string>::create(
      {{"ada@example.org", "Ada"}, {"grace@example.org", "Grace"}}, [](const Contact& c) { return c.email; });
  if (!contacts) return 1;
  const bool duplicateRefused = !contacts->addObject({"ada@example.org", "Another Ada"});
  if (!contacts->insertObject({"alan@example.org", "Alan"}, 1)) return 1;
  std::cout << "3. An array of contacts indexed by e-mail: " << contacts->size() << " contacts, grace@example.org at index "
            << contacts->indexForKey("grace@example.org") << " after an insertion before it;\n   adding a second "
            << "ada@example.org was " << (duplicateRefused ? "refused" : "ACCEPTED") << ".\n";
  return duplicateRefused ? 0 : 1;
}

void addCollectionsCommand(CLI::App& app) {
  auto* command = app.add_subcommand("collections", "A least-recently-used cache and an array with a key index");
  command->footer("Example: zt collections");
  command->callback([] {
    if (runCollectionsTour() != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
