// Type identities must hold across shared objects built with hidden visibility: a plugin's
// delegate is recognised by a proxy in the host, and the library's exceptions thrown in a plugin
// are caught by their type in the host.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "plugin/download_delegate.h"
#include "zentrel/platform/exceptions.h"

namespace {

class RecordingDelegate final : public DownloadDelegate {
 public:
  void downloadDidFinish(int bytes) override { finishedBytes += bytes; }
  int finishedBytes = 0;
};

class Plugin : public ::testing::Test {
 protected:
  void SetUp() override {
    handle_ = dlopen(ZT_TEST_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle_, nullptr) << dlerror();
  }
  void TearDown() override {
    if (handle_) dlclose(handle_);
  }
  template <class F>
  F entry(const char* name) {
    void* symbol = dlsym(handle_, name);
    EXPECT_NE(symbol, nullptr) << name;
    return reinterpret_cast<F>(symbol);
  }
  void* handle_ = nullptr;
};

TEST_F(Plugin, ProxyRecognisesTheOptionalMethodsAPluginDelegateDeclares) {
  int finished = 0;
  int retries = 0;
  {
    std::shared_ptr<DownloadDelegate> pluginDelegate;
    entry<ZTTestPluginMakeDelegate>("ztTestPluginMakeDelegate")(&finished, &retries, &pluginDelegate);
    ASSERT_NE(pluginDelegate, nullptr);
    auto hostDelegate = std::make_shared<RecordingDelegate>();
    auto proxy = ZTProxyDelegate<DownloadDelegate>::create<DownloadDelegateProxy>({hostDelegate, pluginDelegate});

    EXPECT_TRUE(proxy->delegateRespondsToSelector(pluginDelegate, ZTSelectorOf<&DownloadDelegate::downloadShouldRetry>));
    EXPECT_FALSE(proxy->delegateRespondsToSelector(hostDelegate, ZTSelectorOf<&DownloadDelegate::downloadShouldRetry>));
    EXPECT_TRUE(proxy->downloadShouldRetry(1));
    EXPECT_EQ(retries, 1);

    proxy->downloadDidFinish(10);
    EXPECT_EQ(hostDelegate->finishedBytes, 10);
    EXPECT_EQ(finished, 1);
  }  // the plugin's objects are gone before it is unloaded
}

TEST_F(Plugin, LibraryExceptionsThrownInAPluginAreCaughtByTheirType) {
  auto raise = entry<ZTTestPluginThrow>("ztTestPluginThrow");
  EXPECT_THROW(raise(), ZTInternalInconsistencyException);
}

}  // namespace
