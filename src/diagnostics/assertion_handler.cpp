#include "zentrel/diagnostics/assertion_handler.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"

namespace {

std::string formatV(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (length <= 0) return {};
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  text.resize(static_cast<std::size_t>(length));
  return text;
}

struct ProviderSlot {
  ZTMutex mutex;
  ZTAssertionHandlerProvider provider ZT_GUARDED_BY(mutex);
};

// Never destroyed: assertions may fire while the process exits.
ProviderSlot& providerSlot() {
  static ProviderSlot* slot = new ProviderSlot;
  return *slot;
}

// A handler whose constructor is reachable from make_shared.
class ConcreteAssertionHandler final : public ZTAssertionHandler {
 public:
  explicit ConcreteAssertionHandler(Configuration configuration) : ZTAssertionHandler(std::move(configuration)) {}
};

}  // namespace

std::shared_ptr<ZTAssertionHandler> ZTAssertionHandler::create(Configuration configuration) {
  return std::make_shared<ConcreteAssertionHandler>(std::move(configuration));
}

std::shared_ptr<ZTAssertionHandler> ZTAssertionHandler::platformHandler() {
  return create(Configuration{true, {}});
}

std::shared_ptr<ZTAssertionHandler> ZTAssertionHandler::currentHandler() {
  ZTAssertionHandlerProvider provider;
  {
    ProviderSlot& slot = providerSlot();
    ZTLockGuard lock(slot.mutex);
    provider = slot.provider;
  }
  if (!provider) return platformHandler();
  return provider();
}

std::shared_ptr<ZTAssertionHandler> ZTAssertionHandler::ztCurrentHandler() {
  return ztCurrentHandler(fixedConfiguration());
}

std::shared_ptr<ZTAssertionHandler> ZTAssertionHandler::ztCurrentHandler(const Configuration& configuration) {
  if (!configuration.assertionsEnabled) return nullptr;
  if (configuration.sharedHandlerBlock) return create(configuration);
  return platformHandler();
}

bool ZTAssertionHandler::assertionsEnabled() { return false; }
void ZTAssertionHandler::setAssertionsEnabled(bool) {}
ZTAssertionHandler::HandlerBlock ZTAssertionHandler::sharedHandlerBlock() { return {}; }
void ZTAssertionHandler::setSharedHandlerBlock(HandlerBlock) {}
ZTAssertionHandler::Configuration ZTAssertionHandler::fixedConfiguration() {
  return Configuration{assertionsEnabled(), sharedHandlerBlock()};
}

void ZTAssertionHandler::handleFailureInMethod(std::string_view selector, const std::type_info& objectType,
                                               bool objectIsClass, std::string_view file, std::int64_t line,
                                               const char* format, ...) {
  if (!configuration_.assertionsEnabled) return;
  std::string symbol;
  symbol += objectIsClass ? '+' : '-';
  symbol += '[';
  symbol += ZTDemangledTypeName(objectType);
  symbol += ' ';
  symbol += selector;
  symbol += ']';
  std::string description = "N/A";
  if (format != nullptr && format[0] != '\0') {
    va_list args;
    va_start(args, format);
    description = formatV(format, args);
    va_end(args);
  }
  handleFailureAtSymbolWithName(symbol, file, line, description);
}

void ZTAssertionHandler::handleFailureInFunction(std::string_view functionName, std::string_view file,
                                                 std::int64_t line, std::string_view description) {
  handleFailureAtSymbolWithName(functionName, file, line, description);
}

void ZTAssertionHandler::handleFailureAtSymbolWithName(std::string_view symbol, std::string_view file,
                                                       std::int64_t line, std::string_view description) {
  if (recursiveHandleFailureCall_) return;
  ZTLog("*** Assertion failure in " + std::string(symbol) + "\n" + std::string(file) + ":" + std::to_string(line));
  if (!configuration_.sharedHandlerBlock) throw ZTInternalInconsistencyException(std::string(description));
  recursiveHandleFailureCall_ = true;
  struct ClearFlag {
    bool& flag;
    ~ClearFlag() { flag = false; }
  } clear{recursiveHandleFailureCall_};
  configuration_.sharedHandlerBlock(std::string(symbol), std::string(file), line, std::string(description));
}

void ZTSetAssertionHandlerProvider(ZTAssertionHandlerProvider provider) {
  ProviderSlot& slot = providerSlot();
  ZTLockGuard lock(slot.mutex);
  slot.provider = std::move(provider);
}

extern "C" void __ztassert(const char* functionName, const char* fileName, std::int32_t line, const char* format,
                           ...) {
  std::string description;
  if (format != nullptr) {
    va_list args;
    va_start(args, format);
    description = formatV(format, args);
    va_end(args);
  }
  const std::shared_ptr<ZTAssertionHandler> handler = ZTAssertionHandler::currentHandler();
  if (!handler) return;
  handler->handleFailureInFunction(functionName ? functionName : "<Unknown function>",
                                   fileName ? fileName : "<Unknown file>", line, description);
}
