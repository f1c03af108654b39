#pragma once
// A delegate interface shared by the test host and the plugin it loads; each compiles its own copy
// of everything inline here, as separately built programs and plugins do.

#include <zentrel/collections/delegate_protocol.h>
#include <zentrel/collections/proxy_delegate.h>

#include <memory>

class DownloadDelegate : public virtual ZTDelegateProtocol {
 public:
  virtual void downloadDidFinish(int bytes) = 0;
  virtual bool downloadShouldRetry(int attempt) { return attempt < 0; }
  static const ZTProtocol& protocol() {
    static const ZTProtocol description("DownloadDelegate", {ZTSelectorOf<&DownloadDelegate::downloadDidFinish>},
                                        {ZTSelectorOf<&DownloadDelegate::downloadShouldRetry>});
    return description;
  }
};

class DownloadDelegateProxy final : public ZTProxyDelegate<DownloadDelegate> {
 public:
  void downloadDidFinish(int bytes) override { forward<&DownloadDelegate::downloadDidFinish>(bytes); }
  bool downloadShouldRetry(int attempt) override {
    return forwardOrDefault<&DownloadDelegate::downloadShouldRetry>(
        [&] { return DownloadDelegate::downloadShouldRetry(attempt); }, attempt);
  }
};

// What the plugin exports (C names, looked up with dlsym).
extern "C" {
// A delegate that implements the optional method and counts the calls it receives.
using ZTTestPluginMakeDelegate = void (*)(int* finishedCalls, int* retryCalls, std::shared_ptr<DownloadDelegate>* out);
// Throws one of the library's exceptions from inside the plugin.
using ZTTestPluginThrow = void (*)();
}
