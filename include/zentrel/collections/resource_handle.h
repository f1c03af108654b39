#pragma once
// ZTResourceHandle: ties the disposal of a resource to the lifetime of an object. create() runs the
// allocation function at once and keeps its result; when the handle goes, the dispose function runs
// first and the resource is released after it. The dispose function takes no arguments: it captures
// what it needs.
//
// Ownership: handles are held by std::shared_ptr; the last owner to let go runs the disposal, on
// its own thread. Threads: resource() and setResource() are not synchronised.
// Bad input: an empty allocation or dispose function throws ZTInternalInconsistencyException. A
// dispose function must not throw; if it does, the exception is logged and swallowed, since it
// runs from a destructor.

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"

template <class Resource>
class ZTResourceHandle {
 public:
  using AllocationBlock = std::function<Resource()>;
  using DisposeBlock = std::function<void()>;

  [[nodiscard]] static std::shared_ptr<ZTResourceHandle> create(const AllocationBlock& resourceAllocationBlock,
                                                                DisposeBlock disposeResourceBlock) {
    if (!resourceAllocationBlock)
      throw ZTInternalInconsistencyException("A resource handle needs a resource allocation function.");
    if (!disposeResourceBlock)
      throw ZTInternalInconsistencyException("A resource handle needs a dispose function.");
    return std::shared_ptr<ZTResourceHandle>(
        new ZTResourceHandle(resourceAllocationBlock(), std::move(disposeResourceBlock)));
  }

  ZTResourceHandle(const ZTResourceHandle&) = delete;
  ZTResourceHandle& operator=(const ZTResourceHandle&) = delete;
  ~ZTResourceHandle() {
    if (!disposeResourceBlock_) return;
    try {
      disposeResourceBlock_();
    } catch (const std::exception& error) {
      ZTLog("ERROR: the dispose function of " + ZTDebugClassNameForObject(this) + " threw: " + error.what());
    } catch (...) {
      ZTLog("ERROR: the dispose function of " + ZTDebugClassNameForObject(this) + " threw an unknown exception");
    }
  }

  const Resource& resource() const { return resource_; }
  Resource& resource() { return resource_; }
  void setResource(Resource resource) { resource_ = std::move(resource); }
  const DisposeBlock& disposeResourceBlock() const { return disposeResourceBlock_; }
  // An empty function means nothing runs when the handle goes.
  void setDisposeResourceBlock(DisposeBlock block) { disposeResourceBlock_ = std::move(block); }

 private:
  ZTResourceHandle(Resource resource, DisposeBlock disposeResourceBlock)
      : resource_(std::move(resource)), disposeResourceBlock_(std::move(disposeResourceBlock)) {}

  Resource resource_;
  DisposeBlock disposeResourceBlock_;
};
