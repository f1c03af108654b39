// A cache that keeps the most recently used thumbnails and lets the oldest go as it fills, and an
// array of contacts with an index by e-mail address.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/thumbnail_cache

#include <zentrel/collections/map_array.h>
#include <zentrel/collections/number_limited_cache_dictionary.h>

#include <iostream>
#include <memory>
#include <string>

struct Thumbnail {
  std::string file;
};

struct Contact {
  std::string email;
  std::string name;
};

int main() {
  auto cache = ZTNumberLimitedCacheDictionary<std::string, Thumbnail>::create(2);
  cache->setObject(std::make_shared<Thumbnail>(Thumbnail{"a.jpg"}), "a.jpg");
  cache->setObject(std::make_shared<Thumbnail>(Thumbnail{"b.jpg"}), "b.jpg");
  (void)cache->objectForKey("a.jpg");  // a.jpg is now the most recently used
  cache->setObject(std::make_shared<Thumbnail>(Thumbnail{"c.jpg"}), "c.jpg");  // b.jpg has to go
  std::cout << "Cached, oldest first:";
  for (const auto& key : cache->keysInRecencyOrder()) std::cout << " " << key;
  std::cout << "\n";

  auto contacts = ZTMutableMapArray<Contact, std::string>::create(
      {{"ada@example.org", "Ada"}, {"grace@example.org", "Grace"}}, [](const Contact& c) { return c.email; });
  if (!contacts) return 1;
  const bool duplicateAdded = contacts->addObject({"ada@example.org", "Another Ada"});
  std::cout << contacts->size() << " contacts; grace@example.org is at index " << contacts->indexForKey("grace@example.org")
            << "; a second ada@example.org was " << (duplicateAdded ? "added" : "refused") << "\n";
  return cache->objectForKey("b.jpg") == nullptr && !duplicateAdded ? 0 : 1;
}
