// URLs from arbitrary bytes: a reference, a base to resolve it against and a query-item name. Every
// accessor of ZTURL and ZTURLComponents is read; the query items a URL gives are set back and must
// read the same; components that make a reference must make one that parses again.
#include <cstdlib>
#include <string_view>

#include "fuzz_input.h"
#include "zentrel/networking/url.h"
#include "zentrel/platform/log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ZTSetLogSink([](std::string_view) {});
  return 0;
}

namespace {

void readURL(const ZTURL& url, const std::string& name) {
  (void)url.scheme();
  (void)url.host();
  (void)url.port();
  (void)url.user();
  (void)url.password();
  (void)url.path();
  (void)url.query();
  (void)url.fragment();
  (void)url.isFileURL();
  (void)url.lastPathComponent();
  (void)url.hasFileExtension(url.pathExtension());
  (void)url.parameterValue(name);
  (void)url.hasParameter(name);
  (void)url.absoluteURL();
}

void readComponents(ZTURLComponents components, const std::string& name) {
  (void)components.user();
  (void)components.password();
  (void)components.host();
  (void)components.path();
  (void)components.query();
  (void)components.fragment();
  (void)components.valueForQueryItemName(name);
  (void)components.queryItemsDictionary();

  const auto items = components.queryItems();
  ZTURLComponents copy = components;
  copy.setQueryItems(items);
  if (copy.queryItems() != items) std::abort();

  const std::string text = components.string();
  if (!text.empty() && !ZTURLComponents::componentsWithString(text)) std::abort();

  // Decoded components set back are encoded again; what comes out must still be a value.
  copy.setUser(components.user());
  copy.setPassword(components.password());
  copy.setHost(components.host());
  copy.setPath(components.path());
  copy.setQuery(components.query());
  copy.setFragment(components.fragment());
  (void)copy.string();
  (void)copy.URL();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string reference = zt_fuzz::text(input);
  const std::string baseText = zt_fuzz::text(input);
  const std::string name = zt_fuzz::text(input, 64);

  if (auto components = ZTURLComponents::componentsWithString(reference)) readComponents(*components, name);
  const auto url = ZTURL::URLWithString(reference);
  if (url) {
    readURL(*url, name);
    if (auto components = ZTURLComponents::componentsWithURL(*url, false)) readComponents(*components, name);
  }
  if (const auto base = ZTURL::URLWithString(baseText)) {
    if (const auto resolved = ZTURL::URLWithString(reference, *base)) {
      readURL(*resolved, name);
      if (auto components = ZTURLComponents::componentsWithURL(*resolved, true)) readComponents(*components, name);
    }
  }
  return 0;
}
