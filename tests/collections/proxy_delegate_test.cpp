#include "zentrel/collections/proxy_delegate.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

class Download {};

// A delegate interface with one required and two optional methods. The default retry delay is not
// what a value-initialised int would be, so that the tests tell the two apart.
constexpr int kDefaultRetryDelay = 30;

class DownloadDelegate : public virtual ZTDelegateProtocol {
 public:
  virtual void downloadDidFinish(Download& download) = 0;
  virtual int downloadRetryDelay(Download&) { return kDefaultRetryDelay; }
  virtual void downloadDidProgress(Download&, double) {}

  static const ZTProtocol& protocol() {
    static const ZTProtocol description("DownloadDelegate", {ZTSelectorOf<&DownloadDelegate::downloadDidFinish>},
                                        {ZTSelectorOf<&DownloadDelegate::downloadRetryDelay>,
                                         ZTSelectorOf<&DownloadDelegate::downloadDidProgress>});
    return description;
  }
};

// Not part of the download interface; only some delegates implement it.
class DiagnosticsDelegate {
 public:
  virtual ~DiagnosticsDelegate() = default;
  virtual void downloadDidLog(const std::string& line) = 0;
};

constexpr ZTSelector kFinish = ZTSelectorOf<&DownloadDelegate::downloadDidFinish>;
constexpr ZTSelector kRetryDelay = ZTSelectorOf<&DownloadDelegate::downloadRetryDelay>;
constexpr ZTSelector kProgress = ZTSelectorOf<&DownloadDelegate::downloadDidProgress>;
constexpr ZTSelector kLog = ZTSelectorOf<&DiagnosticsDelegate::downloadDidLog>;

class DownloadDelegateProxy final : public ZTProxyDelegate<DownloadDelegate> {
 public:
  void downloadDidFinish(Download& download) override { forward<&DownloadDelegate::downloadDidFinish>(download); }
  int downloadRetryDelay(Download& download) override {
    return forwardOrDefault<&DownloadDelegate::downloadRetryDelay>(
        [&] { return DownloadDelegate::downloadRetryDelay(download); }, download);
  }
  void downloadDidProgress(Download& download, double fraction) override {
    forwardOrDefault<&DownloadDelegate::downloadDidProgress>(
        [&] { DownloadDelegate::downloadDidProgress(download, fraction); }, download, fraction);
  }
  // The same method forwarded without its default, to show what forward() alone answers.
  int retryDelayWithoutDefault(Download& download) { return forward<&DownloadDelegate::downloadRetryDelay>(download); }
  void log(const std::string& line) { forward<&DiagnosticsDelegate::downloadDidLog>(line); }
};

using Journal = std::vector<std::string>;

class Recorder : public DownloadDelegate {
 public:
  Recorder(std::string name, Journal& journal, int retryDelay = -1) : name_(std::move(name)), journal_(journal), retryDelay_(retryDelay) {
    if (retryDelay_ >= 0) declareImplemented<&DownloadDelegate::downloadRetryDelay>(&Recorder::downloadRetryDelay);
  }
  void downloadDidFinish(Download&) override { journal_.push_back(name_ + ".finish"); }
  int downloadRetryDelay(Download&) override {
    journal_.push_back(name_ + ".retryDelay");
    return retryDelay_;
  }
  void downloadDidProgress(Download&, double) override { journal_.push_back(name_ + ".progress?"); }

 protected:
  std::string name_;
  Journal& journal_;
  int retryDelay_;
};

class LoggingRecorder : public Recorder, public DiagnosticsDelegate {
 public:
  using Recorder::Recorder;
  void downloadDidLog(const std::string& line) override { journal_.push_back(name_ + ".log " + line); }
  bool respondsToSelector(ZTSelector selector) const override {
    return selector == kLog || Recorder::respondsToSelector(selector);
  }
};

class Bystander {
 public:
  virtual ~Bystander() = default;
};

struct ProxyFixture : ::testing::Test {
  Journal journal;
  Download download;
  std::shared_ptr<Recorder> a = std::make_shared<Recorder>("A", journal, 1);
  std::shared_ptr<Recorder> b = std::make_shared<Recorder>("B", journal, 2);

  std::shared_ptr<DownloadDelegateProxy> makeProxy(std::vector<std::shared_ptr<DownloadDelegate>> delegates) {
    return ZTProxyDelegate<DownloadDelegate>::create<DownloadDelegateProxy>(delegates);
  }
};

TEST_F(ProxyFixture, FansOutInOrderAndAnswersTheLastResult) {
  auto proxy = makeProxy({a, b});
  ASSERT_TRUE(proxy);
  EXPECT_EQ(proxy->mainDelegate(), a);
  EXPECT_EQ(proxy->downloadRetryDelay(download), 2);
  proxy->downloadDidFinish(download);
  EXPECT_EQ(journal, (Journal{"A.retryDelay", "B.retryDelay", "A.finish", "B.finish"}));
}

TEST_F(ProxyFixture, OptionalMethodsReachOnlyDelegatesThatDeclareThem) {
  auto silent = std::make_shared<Recorder>("S", journal);
  auto proxy = makeProxy({silent, b});
  ASSERT_TRUE(proxy);
  EXPECT_TRUE(proxy->respondsToSelector(kRetryDelay));
  EXPECT_FALSE(proxy->respondsToSelector(kProgress));
  EXPECT_TRUE(proxy->respondsToSelector(kFinish));
  EXPECT_EQ(proxy->downloadRetryDelay(download), 2);
  EXPECT_EQ(journal, (Journal{"B.retryDelay"}));
  // Nobody declared the progress method: the proxy answers as either delegate alone would.
  proxy->downloadDidProgress(download, 0.5);
  EXPECT_EQ(journal, (Journal{"B.retryDelay"}));
}

// Code written against the interface gets from the proxy what it gets from one delegate: when no
// delegate takes an optional method, the interface's own body answers.
class FinishOnly : public DownloadDelegate {
 public:
  explicit FinishOnly(Journal& journal) : journal_(journal) {}
  void downloadDidFinish(Download&) override { journal_.push_back("finish"); }

 private:
  Journal& journal_;
};

TEST_F(ProxyFixture, WhenNoDelegateTakesAnOptionalMethodTheInterfaceDefaultAnswers) {
  auto first = std::make_shared<FinishOnly>(journal);
  auto second = std::make_shared<FinishOnly>(journal);
  auto proxy = makeProxy({first, second});
  DownloadDelegate& single = *first;
  DownloadDelegate& viaProxy = *proxy;
  EXPECT_EQ(viaProxy.downloadRetryDelay(download), single.downloadRetryDelay(download));
  EXPECT_EQ(viaProxy.downloadRetryDelay(download), kDefaultRetryDelay);
  EXPECT_NO_THROW(viaProxy.downloadDidProgress(download, 0.5));
  EXPECT_TRUE(journal.empty());

  // The only delegate that implements it has it muted.
  auto proxyOfOne = makeProxy({a});
  proxyOfOne->ignoreDelegateMethodCalls(kRetryDelay, a);
  EXPECT_EQ(proxyOfOne->downloadRetryDelay(download), kDefaultRetryDelay);
  // A required method muted for every delegate is dropped.
  proxyOfOne->ignoreDelegateMethodCalls(kFinish, a);
  EXPECT_NO_THROW(proxyOfOne->downloadDidFinish(download));
  EXPECT_TRUE(journal.empty());
}

// An override that was never declared is not known to the proxy (C++ cannot list a class's
// overrides): the delegate counts as not implementing the method, and the call still answers.
class UndeclaredOverride : public Recorder {
 public:
  using Recorder::Recorder;
  int downloadRetryDelay(Download&) override {
    journal_.push_back(name_ + ".retryDelay");
    return 99;
  }
};

TEST_F(ProxyFixture, AnUndeclaredOverrideIsNotCalledAndTheCallStillAnswers) {
  auto undeclared = std::make_shared<UndeclaredOverride>("U", journal);
  auto proxy = makeProxy({undeclared});
  EXPECT_FALSE(proxy->respondsToSelector(kRetryDelay));
  EXPECT_EQ(proxy->downloadRetryDelay(download), kDefaultRetryDelay);
  proxy->addDelegatesFromArray(std::vector<std::shared_ptr<Recorder>>{b});
  EXPECT_EQ(proxy->downloadRetryDelay(download), 2);
  EXPECT_EQ(journal, (Journal{"B.retryDelay"}));
}

// Declaring a method is checked when it compiles: the class must override it, with the same
// parameters and constness.
class DeclarationProbe : public Recorder {
 public:
  using Recorder::Recorder;
  using ZTDelegateProtocol::declareImplemented;
};
template <auto Method, class Override>
constexpr bool declarable = requires(DeclarationProbe& probe, Override overriding) {
  probe.template declareImplemented<Method>(overriding);
};

TEST(DelegateDeclaration, OnlyOverriddenMethodsCanBeDeclared) {
  // Recorder overrides both optional methods; UndeclaredOverride inherits or overrides them.
  static_assert(declarable<&DownloadDelegate::downloadRetryDelay, decltype(&Recorder::downloadRetryDelay)>);
  static_assert(declarable<&DownloadDelegate::downloadRetryDelay, decltype(&UndeclaredOverride::downloadRetryDelay)>);
  static_assert(declarable<&DownloadDelegate::downloadDidProgress, decltype(&DeclarationProbe::downloadDidProgress)>);
  // Naming the interface's own method: nothing overrides it there.
  static_assert(!declarable<&DownloadDelegate::downloadRetryDelay, decltype(&DownloadDelegate::downloadRetryDelay)>);
  // Another method's override, or a method of an unrelated class.
  static_assert(!declarable<&DownloadDelegate::downloadRetryDelay, decltype(&Recorder::downloadDidFinish)>);
  static_assert(!declarable<&DownloadDelegate::downloadDidProgress, decltype(&Recorder::downloadRetryDelay)>);
  static_assert(!declarable<&DiagnosticsDelegate::downloadDidLog, decltype(&Recorder::downloadDidFinish)>);

  struct Partial : DownloadDelegate {
    void downloadDidFinish(Download&) override {}
  };
  static_assert(!declarable<&DownloadDelegate::downloadRetryDelay, decltype(&Partial::downloadRetryDelay)>);
  struct Declares : Partial {
    int downloadRetryDelay(Download&) override { return 5; }
    Declares() { declareImplemented<&DownloadDelegate::downloadRetryDelay>(&Declares::downloadRetryDelay); }
  };
  const Declares declares;
  EXPECT_TRUE(declares.respondsToSelector(kRetryDelay));
  EXPECT_FALSE(declares.respondsToSelector(kProgress));
}

// A delegate that throws: the exception reaches the caller, as from a single delegate, and the
// proxy is as it was for the next call.
class Thrower : public Recorder {
 public:
  using Recorder::Recorder;
  void downloadDidFinish(Download& download) override {
    Recorder::downloadDidFinish(download);
    throw std::runtime_error("disk full");
  }
};

TEST_F(ProxyFixture, ADelegateThatThrowsLeavesTheProxyAsItWas) {
  auto thrower = std::make_shared<Thrower>("X", journal);
  auto proxy = makeProxy({thrower, b});
  EXPECT_THROW(proxy->downloadDidFinish(download), std::runtime_error);
  EXPECT_EQ(journal, (Journal{"X.finish"}));
  proxy->removeDelegatesInArray(std::vector<std::shared_ptr<Thrower>>{thrower});
  proxy->downloadDidFinish(download);
  EXPECT_EQ(journal, (Journal{"X.finish", "B.finish"}));
  EXPECT_EQ(proxy->delegateValues().size(), 1u);
}

TEST_F(ProxyFixture, MutingSilencesOneMethodForOneDelegate) {
  auto proxy = makeProxy({a, b});
  proxy->ignoreDelegateMethodCalls(kRetryDelay, a);
  EXPECT_TRUE(proxy->respondsToSelector(kRetryDelay));
  EXPECT_FALSE(proxy->delegateRespondsToSelector(a, kRetryDelay));
  EXPECT_EQ(proxy->downloadRetryDelay(download), 2);
  proxy->downloadDidFinish(download);
  EXPECT_EQ(journal, (Journal{"B.retryDelay", "A.finish", "B.finish"}));

  proxy->ignoreDelegateMethodCalls(kRetryDelay, b);
  EXPECT_FALSE(proxy->respondsToSelector(kRetryDelay));
}

TEST_F(ProxyFixture, MainDelegateGoesFirst) {
  auto proxy = makeProxy({a, b});
  proxy->setMainDelegate(b);
  EXPECT_EQ(proxy->mainDelegate(), b);
  EXPECT_EQ(proxy->downloadRetryDelay(download), 1);
  EXPECT_EQ(journal, (Journal{"B.retryDelay", "A.retryDelay"}));

  auto stranger = std::make_shared<Recorder>("X", journal, 9);
  proxy->setMainDelegate(stranger);
  proxy->setMainDelegate(std::shared_ptr<Recorder>());
  EXPECT_EQ(proxy->mainDelegate(), b);
  EXPECT_EQ(proxy->delegateValues().size(), 2u);
}

// A delegate added twice is called twice; making it main moves one of its entries, not both.
TEST_F(ProxyFixture, MakingATwiceAddedDelegateMainMovesOneEntry) {
  auto proxy = makeProxy({a, b});
  proxy->addDelegatesFromArray(std::vector<std::shared_ptr<Recorder>>{a});
  proxy->setMainDelegate(b);
  EXPECT_EQ(proxy->delegateValues(), (std::vector<std::shared_ptr<DownloadDelegate>>{b, a, a}));
  proxy->downloadDidFinish(download);
  EXPECT_EQ(journal, (Journal{"B.finish", "A.finish", "A.finish"}));

  proxy->addDelegatesFromArray(std::vector<std::shared_ptr<Recorder>>{b});
  proxy->setMainDelegate(a);
  EXPECT_EQ(proxy->delegateValues(), (std::vector<std::shared_ptr<DownloadDelegate>>{a, b, a, b}));
}

TEST_F(ProxyFixture, DeadDelegatesDropOutAndProtocolCallsAreThenDropped) {
  auto proxy = makeProxy({a, b});
  a.reset();
  EXPECT_EQ(proxy->mainDelegate(), b);
  proxy->downloadDidFinish(download);
  EXPECT_EQ(journal, (Journal{"B.finish"}));

  b.reset();
  journal.clear();
  EXPECT_EQ(proxy->mainDelegate(), nullptr);
  EXPECT_FALSE(proxy->respondsToSelector(kFinish));
  EXPECT_NO_THROW(proxy->downloadDidFinish(download));
  EXPECT_EQ(proxy->downloadRetryDelay(download), kDefaultRetryDelay);
  EXPECT_EQ(proxy->retryDelayWithoutDefault(download), 0);
  EXPECT_TRUE(journal.empty());
  // A method outside the interface is not dropped: nobody can take it.
  EXPECT_THROW(proxy->log("lost"), ZTInternalInconsistencyException);
}

TEST_F(ProxyFixture, MethodsOfOtherInterfacesReachDelegatesThatHaveThem) {
  auto logger = std::make_shared<LoggingRecorder>("L", journal);
  auto proxy = makeProxy({a, logger});
  proxy->log("hello");
  EXPECT_EQ(journal, (Journal{"L.log hello"}));
  EXPECT_FALSE(proxy->delegateProtocolContainsSelector(kLog));
  EXPECT_TRUE(proxy->respondsToSelector(kLog));

  proxy->removeDelegatesInArray(std::vector<std::shared_ptr<LoggingRecorder>>{logger});
  EXPECT_THROW(proxy->log("again"), ZTInternalInconsistencyException);
}

TEST_F(ProxyFixture, CreationAcceptsOnlyConformingObjects) {
  auto bystander = std::make_shared<Bystander>();
  std::vector<std::shared_ptr<Bystander>> strangers{bystander, nullptr};
  EXPECT_EQ(ZTProxyDelegate<DownloadDelegate>::create<DownloadDelegateProxy>(strangers), nullptr);
  EXPECT_EQ(makeProxy({}), nullptr);

  auto proxy = makeProxy({a});
  struct Both : Bystander, Recorder {
    using Recorder::Recorder;
  };
  auto both = std::make_shared<Both>("Both", journal, 5);
  proxy->addDelegatesFromArray(std::vector<std::shared_ptr<Bystander>>{bystander, both});
  EXPECT_EQ(proxy->delegateValues().size(), 2u);
  EXPECT_EQ(proxy->downloadRetryDelay(download), 5);
}

TEST_F(ProxyFixture, RemovingTheMainDelegateElectsTheNextOne) {
  auto c = std::make_shared<Recorder>("C", journal, 3);
  auto proxy = makeProxy({a, b, c});
  proxy->ignoreDelegateMethodCalls(kRetryDelay, a);
  proxy->removeDelegatesInArray(std::vector<std::shared_ptr<Recorder>>{a, c});
  EXPECT_EQ(proxy->mainDelegate(), b);
  EXPECT_EQ(proxy->delegateValues(), (std::vector<std::shared_ptr<DownloadDelegate>>{b}));

  // A re-added delegate starts without its old muted methods.
  proxy->addDelegatesFromArray(std::vector<std::shared_ptr<Recorder>>{a});
  EXPECT_EQ(proxy->downloadRetryDelay(download), 1);
}

TEST_F(ProxyFixture, RemoveAllExceptOneKeepsItsMutedMethods) {
  auto proxy = makeProxy({a, b});
  proxy->ignoreDelegateMethodCalls(kRetryDelay, b);
  proxy->removeAllDelegatesExceptDelegate(b);
  EXPECT_EQ(proxy->mainDelegate(), b);
  EXPECT_EQ(proxy->delegateValues().size(), 1u);
  EXPECT_FALSE(proxy->respondsToSelector(kRetryDelay));

  auto stranger = std::make_shared<Recorder>("X", journal);
  proxy->removeAllDelegatesExceptDelegate(stranger);
  EXPECT_TRUE(proxy->delegateValues().empty());
  EXPECT_NO_THROW(proxy->downloadDidFinish(download));
  EXPECT_TRUE(journal.empty());
}

TEST_F(ProxyFixture, ForwardingCanBeSwitchedOff) {
  auto proxy = makeProxy({a});
  proxy->setForwardsInvocations(false);
  EXPECT_FALSE(proxy->respondsToSelector(kFinish));
  EXPECT_EQ(proxy->downloadRetryDelay(download), kDefaultRetryDelay);
  proxy->downloadDidFinish(download);
  EXPECT_NO_THROW(proxy->log("dropped"));
  EXPECT_TRUE(journal.empty());
  proxy->setForwardsInvocations(true);
  EXPECT_EQ(proxy->downloadRetryDelay(download), 1);
}

// A delegate that changes the proxy's delegate list while a call is being forwarded.
class Rewirer : public Recorder {
 public:
  using Recorder::Recorder;
  std::weak_ptr<DownloadDelegateProxy> proxy;
  std::shared_ptr<DownloadDelegate> newcomer;
  std::shared_ptr<DownloadDelegate> leaver;
  void downloadDidFinish(Download& download) override {
    Recorder::downloadDidFinish(download);
    auto strong = proxy.lock();
    strong->addDelegatesFromArray(std::vector<std::shared_ptr<DownloadDelegate>>{newcomer});
    strong->removeDelegatesInArray(std::vector<std::shared_ptr<DownloadDelegate>>{leaver});
  }
};

TEST_F(ProxyFixture, ChangesFromInsideACallApplyFromTheNextCall) {
  auto rewirer = std::make_shared<Rewirer>("R", journal);
  auto late = std::make_shared<Recorder>("Late", journal);
  rewirer->newcomer = late;
  rewirer->leaver = b;
  auto proxy = makeProxy({rewirer, b});
  rewirer->proxy = proxy;

  proxy->downloadDidFinish(download);
  EXPECT_EQ(journal, (Journal{"R.finish", "B.finish"}));
  journal.clear();
  rewirer->newcomer = nullptr;
  proxy->downloadDidFinish(download);
  EXPECT_EQ(journal, (Journal{"R.finish", "Late.finish"}));
}

TEST(Protocol, DescribesItsMethods) {
  const ZTProtocol& protocol = DownloadDelegate::protocol();
  auto required = protocol.methodDescriptionForSelector(kFinish);
  ASSERT_TRUE(required);
  EXPECT_TRUE(required->isRequired);
  auto optional = protocol.methodDescriptionForSelector(kRetryDelay);
  ASSERT_TRUE(optional);
  EXPECT_FALSE(optional->isRequired);
  EXPECT_FALSE(protocol.methodDescriptionForSelector(kLog));
  EXPECT_FALSE(protocol.methodDescriptionForSelector(ZTSelector()));
  EXPECT_NE(kFinish, kRetryDelay);
  EXPECT_EQ(kFinish, ZTSelectorOf<&DownloadDelegate::downloadDidFinish>);
  EXPECT_NE(kFinish.name().find("downloadDidFinish"), std::string_view::npos) << kFinish.name();
}

// Each shared object that names a method has its own tag for it (with hidden visibility); a tag made
// here stands for another shared object's copy.
template <auto Method>
zt::detail::SelectorTag tagOfAnotherSharedObject{typeid(zt::detail::SelectorFor<Method>),
                                                 &zt::detail::SelectorFor<Method>::name};

class Overloads {
 public:
  virtual ~Overloads() = default;
  virtual void retry(int) {}
  virtual void retry(int, int) {}
};

TEST(Selector, IsTheSameMethodWhicheverSharedObjectMadeIt) {
  const ZTSelector finish(&tagOfAnotherSharedObject<&DownloadDelegate::downloadDidFinish>);
  EXPECT_EQ(finish, kFinish);
  EXPECT_EQ(kFinish, finish);
  EXPECT_EQ(std::hash<ZTSelector>()(finish), std::hash<ZTSelector>()(kFinish));
  EXPECT_EQ(finish.name(), kFinish.name());
  EXPECT_NE(ZTSelector(&tagOfAnotherSharedObject<&DownloadDelegate::downloadRetryDelay>), kFinish);
  EXPECT_NE(finish, ZTSelector());

  using RetryOnce = void (Overloads::*)(int);
  using RetryTwice = void (Overloads::*)(int, int);
  const ZTSelector once(&tagOfAnotherSharedObject<static_cast<RetryOnce>(&Overloads::retry)>);
  EXPECT_EQ(once, ZTSelectorOf<static_cast<RetryOnce>(&Overloads::retry)>);
  EXPECT_NE(once, ZTSelectorOf<static_cast<RetryTwice>(&Overloads::retry)>);

  // What a delegate built elsewhere declares is recognised here, and muting works across copies.
  Journal journal;
  auto a = std::make_shared<Recorder>("A", journal);
  auto b = std::make_shared<Recorder>("B", journal);
  auto proxy = ZTProxyDelegate<DownloadDelegate>::create<DownloadDelegateProxy>({a, b});
  const ZTSelector progress(&tagOfAnotherSharedObject<&DownloadDelegate::downloadDidProgress>);
  struct Declaring : Recorder {
    Declaring(Journal& journal, ZTSelector selector) : Recorder("D", journal), declared(selector) {}
    bool respondsToSelector(ZTSelector selector) const override { return selector == declared; }
    ZTSelector declared;
  };
  auto declaring = std::make_shared<Declaring>(journal, progress);
  proxy->addDelegatesFromArray(std::vector<std::shared_ptr<Declaring>>{declaring});
  EXPECT_TRUE(proxy->respondsToSelector(kProgress));
  Download download;
  proxy->downloadDidProgress(download, 0.5);
  EXPECT_EQ(journal, (Journal{"D.progress?"}));
  proxy->ignoreDelegateMethodCalls(progress, declaring);
  EXPECT_FALSE(proxy->respondsToSelector(kProgress));
}

}  // namespace
