#include "zentrel/transfer/service_discovery.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/watch.h>
#include <sys/time.h>
#include <unistd.h>

#include <exception>
#include <set>

#include "transfer/internal/link_support.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"

using namespace zt::transfer_internal;

// Avahi's watches and timeouts, on run-loop descriptor sources and timers. Avahi declares the two
// structures and leaves their content to whoever implements its poll interface.
struct AvahiWatch {
  class RunLoopPoll* poll = nullptr;
  int fd = -1;
  int writeFd = -1;  // a duplicate: a run loop watches one direction per descriptor
  AvahiWatchEvent wanted{};
  AvahiWatchEvent happened{};
  AvahiWatchCallback callback = nullptr;
  void* userdata = nullptr;
  std::shared_ptr<ZTFileDescriptorSource> readSource;
  std::shared_ptr<ZTFileDescriptorSource> writeSource;
  int dispatching = 0;
  bool freed = false;
};

struct AvahiTimeout {
  class RunLoopPoll* poll = nullptr;
  AvahiTimeoutCallback callback = nullptr;
  void* userdata = nullptr;
  std::shared_ptr<ZTTimer> timer;
  int dispatching = 0;
  bool freed = false;
};

class RunLoopPoll {
 public:
  explicit RunLoopPoll(std::shared_ptr<ZTRunLoop> runLoop) : runLoop_(std::move(runLoop)) {
    api_.userdata = this;
    api_.watch_new = watchNew;
    api_.watch_update = watchUpdate;
    api_.watch_get_events = [](AvahiWatch* w) { return w->happened; };
    api_.watch_free = watchFree;
    api_.timeout_new = timeoutNew;
    api_.timeout_update = timeoutUpdate;
    api_.timeout_free = timeoutFree;
  }
  ~RunLoopPoll() {
    // Whatever Avahi did not free (it frees everything with its client).
    for (AvahiWatch* w : watches_) destroy(w);
    for (AvahiTimeout* t : timeouts_) destroy(t);
  }
  const AvahiPoll* api() const { return &api_; }

 private:
  static RunLoopPoll* self(const AvahiPoll* api) { return static_cast<RunLoopPoll*>(api->userdata); }

  static void destroy(AvahiWatch* w) {
    if (w->readSource) w->readSource->cancel();
    if (w->writeSource) w->writeSource->cancel();
    if (w->writeFd >= 0) ::close(w->writeFd);
    delete w;
  }
  static void destroy(AvahiTimeout* t) {
    if (t->timer) t->timer->invalidate();
    delete t;
  }

  static void dispatch(AvahiWatch* w, AvahiWatchEvent event) {
    if (w->freed) return;
    w->happened = event;
    ++w->dispatching;
    try {
      w->callback(w, w->fd, event, w->userdata);
    } catch (...) {
      ZTLog("ZTHandoff discovery: an exception escaped an Avahi callback");
    }
    --w->dispatching;
    w->happened = static_cast<AvahiWatchEvent>(0);
    if (w->freed && w->dispatching == 0) {
      w->poll->watches_.erase(w);
      destroy(w);
    }
  }

  static void arm(AvahiWatch* w) {
    RunLoopPoll* poll = w->poll;
    const bool wantRead = (w->wanted & (AVAHI_WATCH_IN | AVAHI_WATCH_ERR | AVAHI_WATCH_HUP)) != 0;
    const bool wantWrite = (w->wanted & AVAHI_WATCH_OUT) != 0;
    if (wantRead && !w->readSource) {
      w->readSource = poll->runLoop_->addFileDescriptorSource(w->fd, ZTFileDescriptorSource::Event::Readable,
                                                             [w](ZTFileDescriptorSource&) { dispatch(w, AVAHI_WATCH_IN); });
    } else if (!wantRead && w->readSource) {
      w->readSource->cancel();
      w->readSource.reset();
    }
    if (wantWrite && !w->writeSource) {
      if (w->writeFd < 0) w->writeFd = ::dup(w->fd);
      if (w->writeFd >= 0) {
        w->writeSource = poll->runLoop_->addFileDescriptorSource(w->writeFd, ZTFileDescriptorSource::Event::Writable,
                                                                [w](ZTFileDescriptorSource&) { dispatch(w, AVAHI_WATCH_OUT); });
      }
    } else if (!wantWrite && w->writeSource) {
      w->writeSource->cancel();
      w->writeSource.reset();
    }
  }

  static AvahiWatch* watchNew(const AvahiPoll* api, int fd, AvahiWatchEvent event, AvahiWatchCallback callback, void* userdata) {
    auto* w = new AvahiWatch;
    w->poll = self(api);
    w->fd = fd;
    w->wanted = event;
    w->callback = callback;
    w->userdata = userdata;
    w->poll->watches_.insert(w);
    arm(w);
    return w;
  }
  static void watchUpdate(AvahiWatch* w, AvahiWatchEvent event) {
    w->wanted = event;
    arm(w);
  }
  static void watchFree(AvahiWatch* w) {
    w->freed = true;
    if (w->readSource) w->readSource->cancel();
    if (w->writeSource) w->writeSource->cancel();
    if (w->dispatching == 0) {
      w->poll->watches_.erase(w);
      destroy(w);
    }
  }

  static void schedule(AvahiTimeout* t, const struct timeval* tv) {
    if (t->timer) t->timer->invalidate();
    t->timer.reset();
    if (!tv) return;
    struct timeval now {};
    ::gettimeofday(&now, nullptr);
    double seconds = static_cast<double>(tv->tv_sec - now.tv_sec) + static_cast<double>(tv->tv_usec - now.tv_usec) / 1e6;
    t->timer = t->poll->runLoop_->scheduleTimer(ZTRunLoop::Seconds(std::max(0.0, seconds)), false, [t](ZTTimer&) {
      if (t->freed) return;
      ++t->dispatching;
      try {
        t->callback(t, t->userdata);
      } catch (...) {
        ZTLog("ZTHandoff discovery: an exception escaped an Avahi callback");
      }
      --t->dispatching;
      if (t->freed && t->dispatching == 0) {
        t->poll->timeouts_.erase(t);
        destroy(t);
      }
    });
  }
  static AvahiTimeout* timeoutNew(const AvahiPoll* api, const struct timeval* tv, AvahiTimeoutCallback callback, void* userdata) {
    auto* t = new AvahiTimeout;
    t->poll = self(api);
    t->callback = callback;
    t->userdata = userdata;
    t->poll->timeouts_.insert(t);
    schedule(t, tv);
    return t;
  }
  static void timeoutUpdate(AvahiTimeout* t, const struct timeval* tv) { schedule(t, tv); }
  static void timeoutFree(AvahiTimeout* t) {
    t->freed = true;
    if (t->timer) t->timer->invalidate();
    if (t->dispatching == 0) {
      t->poll->timeouts_.erase(t);
      destroy(t);
    }
  }

  AvahiPoll api_{};
  std::shared_ptr<ZTRunLoop> runLoop_;
  std::set<AvahiWatch*> watches_;
  std::set<AvahiTimeout*> timeouts_;
};

namespace {

ZTError discoveryError(ZTServiceDiscoveryError code, const std::string& description) {
  return makeError(ZTServiceDiscoveryErrorDomain, code, description);
}

ZTError avahiError(int avahiCode, const std::string& doing) {
  if (avahiCode == AVAHI_ERR_NO_DAEMON || avahiCode == AVAHI_ERR_DBUS_ERROR || avahiCode == AVAHI_ERR_DISCONNECTED) {
    return discoveryError(avahiCode == AVAHI_ERR_DISCONNECTED ? ZTServiceDiscoveryErrorDisconnected : ZTServiceDiscoveryErrorNoDaemon,
                          "The Avahi service discovery daemon is not running (" + std::string(avahi_strerror(avahiCode)) +
                              "): hand-off discovery is unavailable; connect to an explicit host and port instead.");
  }
  return discoveryError(ZTServiceDiscoveryErrorFailed, doing + ": " + avahi_strerror(avahiCode) + ".");
}

template <class Function, class... Arguments>
void safely(const char* what, const Function& function, Arguments&&... arguments) {
  if (!function) return;
  try {
    function(std::forward<Arguments>(arguments)...);
  } catch (const std::exception& exception) {
    ZTLogf("%s threw: %s", what, exception.what());
  } catch (...) {
    ZTLogf("%s threw an exception that is not a std::exception", what);
  }
}

// ---------------------------------------------------------------------------------------------

class Advertiser final : public ZTHandoffAdvertiser {
 public:
  Advertiser(const Description& description, StateCallback callback, std::shared_ptr<ZTRunLoop> runLoop)
      : description_(description), callback_(std::move(callback)), poll_(std::move(runLoop)), name_(description.serviceName) {}
  ~Advertiser() override {
    if (group_) avahi_entry_group_free(group_);
    if (client_) avahi_client_free(client_);
  }

  bool start(ZTError* error) {
    int failure = 0;
    client_ = avahi_client_new(poll_.api(), static_cast<AvahiClientFlags>(0), clientCallback, this, &failure);
    if (!client_) {
      ZTSetError(error, avahiError(failure, "Cannot reach the Avahi daemon"));
      return false;
    }
    if (startupError_) {
      ZTSetError(error, *startupError_);
      return false;
    }
    return true;
  }

  std::string serviceName() const override { return name_; }
  bool isRegistered() const override { return registered_; }

 private:
  static void clientCallback(AvahiClient* client, AvahiClientState state, void* userdata) {
    auto* self = static_cast<Advertiser*>(userdata);
    self->client_ = client;
    switch (state) {
      case AVAHI_CLIENT_S_RUNNING:
        if (!self->group_) self->publish();
        break;
      case AVAHI_CLIENT_S_COLLISION:
      case AVAHI_CLIENT_S_REGISTERING:
        self->registered_ = false;
        if (self->group_) avahi_entry_group_reset(self->group_);
        break;
      case AVAHI_CLIENT_FAILURE:
        self->registered_ = false;
        self->report(avahiError(avahi_client_errno(client), "Advertising stopped"));
        break;
      case AVAHI_CLIENT_CONNECTING:
        break;
    }
  }

  static void groupCallback(AvahiEntryGroup* group, AvahiEntryGroupState state, void* userdata) {
    auto* self = static_cast<Advertiser*>(userdata);
    switch (state) {
      case AVAHI_ENTRY_GROUP_ESTABLISHED:
        self->registered_ = true;
        safely("ZTHandoffAdvertiser's state callback", self->callback_, *self, nullptr);
        break;
      case AVAHI_ENTRY_GROUP_COLLISION: {
        // Another service has the name: take the next alternative ("name #2"), a bounded number of times.
        if (++self->renames_ > 20) {
          self->report(discoveryError(ZTServiceDiscoveryErrorFailed, "Cannot find a free service name for \"" +
                                                                         self->description_.serviceName + "\"."));
          break;
        }
        char* next = avahi_alternative_service_name(self->name_.c_str());
        self->name_ = next;
        avahi_free(next);
        avahi_entry_group_reset(group);
        self->publish();
        break;
      }
      case AVAHI_ENTRY_GROUP_FAILURE:
        self->report(avahiError(avahi_client_errno(avahi_entry_group_get_client(group)), "Advertising failed"));
        break;
      default:
        break;
    }
  }

  void publish() {
    if (!group_) group_ = avahi_entry_group_new(client_, groupCallback, this);
    if (!group_) {
      report(avahiError(avahi_client_errno(client_), "Cannot advertise"));
      return;
    }
    AvahiStringList* txt = nullptr;
    txt = avahi_string_list_add_pair(txt, ZTHandoffTXTFingerprintKey, description_.fingerprint.c_str());
    txt = avahi_string_list_add_pair(txt, ZTHandoffTXTVersionKey, ZTHandoffProtocolVersion);
    txt = avahi_string_list_add_pair(txt, ZTHandoffTXTNameKey, description_.deviceName.c_str());
    txt = avahi_string_list_add_pair(txt, ZTHandoffTXTActivityKey, description_.activityType.c_str());
    int status = avahi_entry_group_add_service_strlst(group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, static_cast<AvahiPublishFlags>(0),
                                                      name_.c_str(), ZTHandoffServiceType, nullptr, nullptr,
                                                      description_.port, txt);
    avahi_string_list_free(txt);
    if (status == AVAHI_ERR_COLLISION) {
      groupCallback(group_, AVAHI_ENTRY_GROUP_COLLISION, this);
      return;
    }
    if (status >= 0) status = avahi_entry_group_commit(group_);
    if (status < 0) report(avahiError(status, "Cannot advertise \"" + name_ + "\""));
  }

  void report(const ZTError& error) {
    registered_ = false;
    if (starting_) {
      startupError_ = error;
      return;
    }
    safely("ZTHandoffAdvertiser's state callback", callback_, *this, &error);
  }

 public:
  bool starting_ = true;

 private:
  Description description_;
  StateCallback callback_;
  RunLoopPoll poll_;
  AvahiClient* client_ = nullptr;
  AvahiEntryGroup* group_ = nullptr;
  std::string name_;
  bool registered_ = false;
  int renames_ = 0;
  std::optional<ZTError> startupError_;
};

bool validTXTValue(const std::string& key, const std::string& value) { return key.size() + 1 + value.size() <= 255; }

// ---------------------------------------------------------------------------------------------

class Browser final : public ZTHandoffBrowser {
 public:
  Browser(Callbacks callbacks, std::shared_ptr<ZTRunLoop> runLoop) : callbacks_(std::move(callbacks)), poll_(std::move(runLoop)) {}
  ~Browser() override {
    for (AvahiServiceResolver* resolver : resolvers_) avahi_service_resolver_free(resolver);
    if (browser_) avahi_service_browser_free(browser_);
    if (client_) avahi_client_free(client_);
  }

  bool start(ZTError* error) {
    int failure = 0;
    client_ = avahi_client_new(poll_.api(), static_cast<AvahiClientFlags>(0), clientCallback, this, &failure);
    if (!client_) {
      ZTSetError(error, avahiError(failure, "Cannot reach the Avahi daemon"));
      return false;
    }
    browser_ = avahi_service_browser_new(client_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, ZTHandoffServiceType, nullptr,
                                         static_cast<AvahiLookupFlags>(0), browseCallback, this);
    if (!browser_) {
      ZTSetError(error, avahiError(avahi_client_errno(client_), "Cannot browse for hand-off services"));
      return false;
    }
    return true;
  }

 private:
  using Key = std::tuple<int, int, std::string, std::string>;  // interface, protocol, name, domain

  static void clientCallback(AvahiClient* client, AvahiClientState state, void* userdata) {
    auto* self = static_cast<Browser*>(userdata);
    if (state == AVAHI_CLIENT_FAILURE && self->browser_) {
      ZTError error = avahiError(avahi_client_errno(client), "Browsing stopped");
      safely("ZTHandoffBrowser's failure callback", self->callbacks_.failed, error);
    }
  }

  static void browseCallback(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
                             const char* name, const char* type, const char* domain, AvahiLookupResultFlags, void* userdata) {
    auto* self = static_cast<Browser*>(userdata);
    switch (event) {
      case AVAHI_BROWSER_NEW: {
        if (self->resolvers_.size() >= 256) break;  // a flood of services: resolve the first ones only
        AvahiServiceResolver* resolver =
            avahi_service_resolver_new(self->client_, interface, protocol, name, type, domain, AVAHI_PROTO_UNSPEC,
                                       static_cast<AvahiLookupFlags>(0), resolveCallback, self);
        if (resolver) self->resolvers_.insert(resolver);
        break;
      }
      case AVAHI_BROWSER_REMOVE: {
        auto found = self->services_.find(Key{interface, protocol, name ? name : "", domain ? domain : ""});
        if (found == self->services_.end()) break;
        ZTHandoffService service = found->second;
        self->services_.erase(found);
        safely("ZTHandoffBrowser's disappeared callback", self->callbacks_.disappeared, service);
        break;
      }
      case AVAHI_BROWSER_FAILURE: {
        ZTError error = avahiError(avahi_client_errno(self->client_), "Browsing failed");
        safely("ZTHandoffBrowser's failure callback", self->callbacks_.failed, error);
        break;
      }
      default:
        break;
    }
  }

  static void resolveCallback(AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol protocol,
                              AvahiResolverEvent event, const char* name, const char*, const char* domain, const char* hostName,
                              const AvahiAddress* address, uint16_t port, AvahiStringList* txt, AvahiLookupResultFlags,
                              void* userdata) {
    auto* self = static_cast<Browser*>(userdata);
    self->resolvers_.erase(resolver);
    if (event == AVAHI_RESOLVER_FOUND && name && address) {
      ZTHandoffService service;
      service.serviceName = name;
      service.domain = domain ? domain : "";
      service.interfaceIndex = interface;
      service.isIPv6 = protocol == AVAHI_PROTO_INET6;
      service.hostName = hostName ? hostName : "";
      char text[AVAHI_ADDRESS_STR_MAX] = {};
      avahi_address_snprint(text, sizeof text, address);
      service.address = text;
      if (service.isIPv6 && service.address.rfind("fe80:", 0) == 0) service.address += "%" + std::to_string(interface);
      service.port = port;
      int entries = 0;
      for (AvahiStringList* item = txt; item && entries < 64; item = avahi_string_list_get_next(item), ++entries) {
        char* key = nullptr;
        char* value = nullptr;
        size_t size = 0;
        if (avahi_string_list_get_pair(item, &key, &value, &size) == 0) {
          service.txt[key] = value ? std::string(value, size) : std::string();
          avahi_free(key);
          avahi_free(value);
        }
      }
      Key key{interface, protocol, service.serviceName, service.domain};
      bool known = self->services_.count(key) != 0;
      self->services_[key] = service;
      if (!known) safely("ZTHandoffBrowser's appeared callback", self->callbacks_.appeared, service);
    }
    avahi_service_resolver_free(resolver);
  }

  Callbacks callbacks_;
  RunLoopPoll poll_;
  AvahiClient* client_ = nullptr;
  AvahiServiceBrowser* browser_ = nullptr;
  std::set<AvahiServiceResolver*> resolvers_;
  std::map<Key, ZTHandoffService> services_;
};

}  // namespace

std::unique_ptr<ZTHandoffAdvertiser> ZTHandoffAdvertiser::create(const Description& description, StateCallback callback,
                                                                 const std::shared_ptr<ZTRunLoop>& runLoop, ZTError* error) {
  if (description.serviceName.empty() || description.serviceName.size() > 63 || description.port == 0 ||
      !validTXTValue(ZTHandoffTXTActivityKey, description.activityType) ||
      !validTXTValue(ZTHandoffTXTNameKey, description.deviceName) ||
      !validTXTValue(ZTHandoffTXTFingerprintKey, description.fingerprint)) {
    ZTSetError(error, discoveryError(ZTServiceDiscoveryErrorBadArgument,
                                     "A hand-off service needs a name of 1 to 63 bytes, a port, and TXT values of at most 255 bytes."));
    return nullptr;
  }
  auto advertiser = std::make_unique<Advertiser>(description, std::move(callback), runLoop ? runLoop : ZTRunLoop::main());
  if (!advertiser->start(error)) return nullptr;
  advertiser->starting_ = false;
  return advertiser;
}

std::unique_ptr<ZTHandoffBrowser> ZTHandoffBrowser::create(Callbacks callbacks, const std::shared_ptr<ZTRunLoop>& runLoop,
                                                           ZTError* error) {
  auto browser = std::make_unique<Browser>(std::move(callbacks), runLoop ? runLoop : ZTRunLoop::main());
  if (!browser->start(error)) return nullptr;
  return browser;
}
