#include "zentrel/platform/localization.h"

#include <libintl.h>

#include <string>

#include "zentrel/platform/mutex.h"

namespace {
struct Domain {
  ZTMutex mutex;
  std::string name ZT_GUARDED_BY(mutex);
};
Domain& domainState() {
  static auto* d = new Domain;  // never destroyed: usable from threads still running at exit
  return *d;
}
}  // namespace

void ZTSetLocalizationDomain(std::string_view domain, std::string_view directory) {
  Domain& d = domainState();
  ZTLockGuard lock(d.mutex);
  d.name = std::string(domain);
  if (!domain.empty() && !directory.empty()) {
    bindtextdomain(d.name.c_str(), std::string(directory).c_str());
    bind_textdomain_codeset(d.name.c_str(), "UTF-8");
  }
}

std::string ZTLocalizationDomain() {
  Domain& d = domainState();
  ZTLockGuard lock(d.mutex);
  return d.name;
}

std::string ZTLocalizedString(std::string_view english) {
  const std::string id(english);
  if (id.empty()) return id;  // gettext("") answers the catalogue header
  std::string domain = ZTLocalizationDomain();
  const char* translated = domain.empty() ? gettext(id.c_str()) : dgettext(domain.c_str(), id.c_str());
  return translated ? std::string(translated) : id;
}
