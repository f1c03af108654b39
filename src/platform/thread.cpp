#include "zentrel/platform/thread.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>

#include "platform/internal/system_thread.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"

using zt::internal::callingThreadIsMain;
using zt::internal::currentSystemThreadId;

namespace {
thread_local std::shared_ptr<ZTThread> currentThreadObject;

int niceValueForPriority(double priority) {
  priority = std::clamp(priority, 0.0, 1.0);
  return std::clamp(static_cast<int>(std::lround((0.5 - priority) * 39.0)), -20, 19);
}

// Linux shows at most 15 bytes of a thread name; cut on a UTF-8 character boundary.
std::string osThreadName(const std::string& name) {
  if (name.size() <= 15) return name;
  std::size_t cut = 15;
  while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
  return name.substr(0, cut);
}
}  // namespace

ZTThread::ZTThread() : runLoop_(ZTRunLoop::makeUnbound()) {}

ZTThread::ZTThread(AdoptTag, std::shared_ptr<ZTRunLoop> loop) : kind_(Kind::Adopted), runLoop_(std::move(loop)) {
  started_ = true;
  executing_ = true;
  tid_ = currentSystemThreadId();
}

ZTThread::~ZTThread() = default;

std::shared_ptr<ZTThread> ZTThread::create(std::function<void()> body) {
  auto thread = std::shared_ptr<ZTThread>(new ZTThread());
  thread->body_ = std::move(body);
  return thread;
}

std::shared_ptr<ZTThread> ZTThread::adoptCallingThread() {
  return std::shared_ptr<ZTThread>(new ZTThread(AdoptTag{}, ZTRunLoop::current()));
}

std::shared_ptr<ZTThread> ZTThread::mainThread() {
  static auto* thread = [] {
    auto* holder = new std::shared_ptr<ZTThread>(new ZTThread(AdoptTag{}, ZTRunLoop::main()));
    (*holder)->tid_ = static_cast<long>(::getpid());
    ZTThread& adopted = **holder;
    ZTLockGuard lock(adopted.mutex_);
    adopted.name_ = "main";
    return holder;
  }();
  return *thread;
}

std::shared_ptr<ZTThread> ZTThread::currentThread() {
  if (currentThreadObject) return currentThreadObject;
  currentThreadObject = callingThreadIsMain() ? mainThread() : adoptCallingThread();
  return currentThreadObject;
}

bool ZTThread::isMainThread() { return callingThreadIsMain(); }
bool ZTThread::isMain() const { return tid_.load() == static_cast<long>(::getpid()); }

void ZTThread::start() {
  if (kind_ == Kind::Adopted) {
    throw ZTInternalInconsistencyException("ZTThread: a thread the library did not create cannot be started");
  }
  if (started_.exchange(true)) {
    throw ZTInternalInconsistencyException("ZTThread: a thread can be started only once");
  }
  std::thread(&ZTThread::entry, shared_from_this()).detach();
}

void ZTThread::entry(std::shared_ptr<ZTThread> self) {
  self->tid_ = currentSystemThreadId();
  currentThreadObject = self;
  self->runLoop_->bindToCallingThread();
  self->applyName();
  self->applyPriority();
  self->executing_ = true;
  try {
    self->main();
  } catch (const std::exception& e) {
    ZTLogf("ERROR: uncaught exception in thread \"%s\": %s", self->name().c_str(), e.what());
  } catch (...) {
    ZTLogf("ERROR: uncaught exception in thread \"%s\"", self->name().c_str());
  }
  self->runLoop_->close();
  {
    ZTLockGuard lock(self->finishMutex_);
    self->executing_ = false;
    self->finished_ = true;
  }
  self->finishCondition_.notify_all();
  currentThreadObject.reset();
}

void ZTThread::main() {
  if (body_) body_();
}

void ZTThread::cancel() {
  cancelled_.store(true, std::memory_order_release);
  if (kind_ == Kind::Created) runLoop_->stop();
}

std::string ZTThread::name() const {
  ZTLockGuard lock(mutex_);
  return name_;
}

void ZTThread::setName(std::string name) {
  {
    ZTLockGuard lock(mutex_);
    name_ = std::move(name);
  }
  if (isExecuting()) applyName();
}

void ZTThread::applyName() {
  const std::string osName = osThreadName(name());
  const long tid = tid_.load();
  if (osName.empty() || tid == 0) return;
  if (tid == currentSystemThreadId()) {
    pthread_setname_np(pthread_self(), osName.c_str());
    return;
  }
  // Another thread's name is set through procfs: unlike a pthread handle, a stale thread id there
  // only makes the write fail.
  if (FILE* comm = std::fopen(("/proc/self/task/" + std::to_string(tid) + "/comm").c_str(), "w")) {
    std::fputs(osName.c_str(), comm);
    std::fclose(comm);
  }
}

double ZTThread::threadPriority() const {
  ZTLockGuard lock(mutex_);
  return priority_;
}

bool ZTThread::setThreadPriority(double priority) {
  {
    ZTLockGuard lock(mutex_);
    priority_ = std::clamp(priority, 0.0, 1.0);
  }
  return tid_.load() == 0 || applyPriority();
}

bool ZTThread::applyPriority() {
  const long tid = tid_.load();
  if (tid == 0) return true;
  const int nice = niceValueForPriority(threadPriority());
  errno = 0;
  const int current = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
  if (errno == 0 && current == nice) return true;
  return setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice) == 0;
}

void ZTThread::waitUntilFinished() {
  if (!started_.load() || kind_ == Kind::Adopted || tid_.load() == currentSystemThreadId()) return;
  ZTUniqueLock lock(finishMutex_);
  while (!finished_.load()) finishCondition_.wait(lock);
}
