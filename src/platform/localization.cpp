#include "zentrel/platform/localization.h"

#include <libintl.h>

#include <mutex>

namespace {
std::mutex& domainMutex() {
  static auto* m = new std::mutex;  // never destroyed: usable from threads still running at exit
  return *m;
}
std::string& domainName() {
  static auto* d = new std::string;
  return *d;
}
}  // namespace

void ZTSetLocalizationDomain(std::string_view domain, std::string_view directory) {
  std::lock_guard lock(domainMutex());
  domainName() = std::string(domain);
  if (!domain.empty() && !directory.empty()) {
    bindtextdomain(domainName().c_str(), std::string(directory).c_str());
    bind_textdomain_codeset(domainName().c_str(), "UTF-8");
  }
}

std::string ZTLocalizationDomain() {
  std::lock_guard lock(domainMutex());
  return domainName();
}

std::string ZTLocalizedString(std::string_view english) {
  const std::string id(english);
  if (id.empty()) return id;  // gettext("") answers the catalogue header
  std::string domain = ZTLocalizationDomain();
  const char* translated = domain.empty() ? gettext(id.c_str()) : dgettext(domain.c_str(), id.c_str());
  return translated ? std::string(translated) : id;
}
