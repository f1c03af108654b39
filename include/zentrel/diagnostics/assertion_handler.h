#pragma once
// Assertion failures: where they go, and what happens to them.
//
// Every failure reported through __ztassert or a handler below ends in
// handleFailureAtSymbolWithName, which logs
//   "*** Assertion failure in <symbol>\n<file>:<line>"
// and then either throws ZTInternalInconsistencyException with the description as reason (no
// shared handler block), or hands symbol, file, line and description to the block. A failure
// reported while that block runs (the block asserting itself) is ignored instead of recursing.
//
// The process-wide hook. ZTAssertionHandler::currentHandler() answers what the installed provider
// gives; the default provider is the plain handler (assertions enabled, no block: log and throw).
// An application that wants the library's own policy installs ZTAssertionHandler::ztCurrentHandler
// as provider:
//   ZTSetAssertionHandlerProvider([] { return ZTAssertionHandler::ztCurrentHandler(); });
// In this library's fixed configuration assertionsEnabled() always answers false and
// sharedHandlerBlock() always answers an empty block (their setters have no effect), so with that
// provider in force every failure is dropped. Handlers created with an explicit Configuration run
// the full logic, which is what an application that enables assertions gets.
//
// Threads: any thread. The provider is read and replaced under a lock; a handler's recursion flag
// belongs to that handler object, so concurrent failures through one handler object while its block
// runs are ignored as recursive (create a handler per use, as currentHandler() does).

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>

#include "zentrel/platform/export.h"

class ZT_API ZTAssertionHandler {
 public:
  // symbol, file, line, description.
  using HandlerBlock = std::function<void(const std::string& symbol, const std::string& file, std::int64_t line,
                                          const std::string& description)>;

  // Whether assertions are checked, and the block every failure is handed to.
  struct Configuration {
    bool assertionsEnabled = false;
    HandlerBlock sharedHandlerBlock;
  };

  // The handler with the given settings; the default Configuration is the library's fixed one.
  [[nodiscard]] static std::shared_ptr<ZTAssertionHandler> create(Configuration configuration = fixedConfiguration());
  // The plain handler: assertions enabled, no block; failures are logged and thrown.
  [[nodiscard]] static std::shared_ptr<ZTAssertionHandler> platformHandler();

  // The handler that the process-wide provider gives (nullptr: failures are dropped).
  static std::shared_ptr<ZTAssertionHandler> currentHandler();

  // The library's choice of handler for a configuration: nullptr when assertions are disabled; a
  // handler calling the block when one is set; else platformHandler(). The no-argument form uses
  // the fixed configuration and is what an application installs as provider.
  static std::shared_ptr<ZTAssertionHandler> ztCurrentHandler();
  static std::shared_ptr<ZTAssertionHandler> ztCurrentHandler(const Configuration& configuration);

  // The fixed class-level settings: false and an empty block; the setters change nothing.
  static bool assertionsEnabled();
  static void setAssertionsEnabled(bool enabled);
  static HandlerBlock sharedHandlerBlock();
  static void setSharedHandlerBlock(HandlerBlock block);
  static Configuration fixedConfiguration();

  virtual ~ZTAssertionHandler() = default;

  // A failure in a method. The symbol is "-[Class selector]" for an object, "+[Class selector]"
  // when objectIsClass says the receiver is the class itself; the class is the demangled name of
  // objectType (pass typeid(*this), or typeid(T) for a static member). The description is the
  // printf-style format filled with the arguments, "N/A" for a null or empty format. Nothing
  // happens unless this handler's assertions are enabled.
  void handleFailureInMethod(std::string_view selector, const std::type_info& objectType, bool objectIsClass,
                             std::string_view file, std::int64_t line, const char* format, ...)
      __attribute__((format(printf, 7, 8)));
  // The symbol is the function's name.
  void handleFailureInFunction(std::string_view functionName, std::string_view file, std::int64_t line,
                               std::string_view description);
  void handleFailureAtSymbolWithName(std::string_view symbol, std::string_view file, std::int64_t line,
                                     std::string_view description);

  // True while this handler's block runs.
  bool recursiveHandleFailureCall() const { return recursiveHandleFailureCall_; }
  const Configuration& configuration() const { return configuration_; }

 protected:
  explicit ZTAssertionHandler(Configuration configuration) : configuration_(std::move(configuration)) {}

 private:
  Configuration configuration_;
  bool recursiveHandleFailureCall_ = false;
};

// Replaces the process-wide provider behind ZTAssertionHandler::currentHandler(); an empty function
// restores the default (the plain handler). The provider may be called from any thread.
using ZTAssertionHandlerProvider = std::function<std::shared_ptr<ZTAssertionHandler>()>;
ZT_API void ZTSetAssertionHandlerProvider(ZTAssertionHandlerProvider provider);

// The assertion entry point for C and C++ code. The description is the printf-style format filled
// with the arguments ("" for a null format); a null function or file name reads
// "<Unknown function>" / "<Unknown file>". The failure goes to
// ZTAssertionHandler::currentHandler()->handleFailureInFunction, and is dropped when there is no
// current handler. With a handler that throws, the exception leaves through this function: C
// callers must be compiled with -fexceptions, or install a provider whose handler has a block.
extern "C" ZT_API void __ztassert(const char* functionName, const char* fileName, std::int32_t line,
                                  const char* format, ...) __attribute__((format(printf, 4, 5)));
