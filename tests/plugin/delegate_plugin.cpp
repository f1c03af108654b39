// A plugin built with hidden visibility, as applications build theirs: only the two entry points
// below are visible. Its delegate must still be recognised by a proxy in the program that loads it.
#include <zentrel/platform/exceptions.h>

#include "plugin/download_delegate.h"

namespace {

class CountingDelegate final : public DownloadDelegate {
 public:
  CountingDelegate(int* finished, int* retries) : finished_(finished), retries_(retries) {
    declareImplemented<&DownloadDelegate::downloadShouldRetry>(&CountingDelegate::downloadShouldRetry);
  }
  void downloadDidFinish(int) override { ++*finished_; }
  bool downloadShouldRetry(int) override {
    ++*retries_;
    return true;
  }

 private:
  int* finished_;
  int* retries_;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void ztTestPluginMakeDelegate(
    int* finishedCalls, int* retryCalls, std::shared_ptr<DownloadDelegate>* out) {
  *out = std::make_shared<CountingDelegate>(finishedCalls, retryCalls);
}

extern "C" __attribute__((visibility("default"))) void ztTestPluginThrow() {
  throw ZTInternalInconsistencyException("thrown inside the plugin");
}
