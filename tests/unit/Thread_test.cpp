#include "Thread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <limits>
#include <list>
#include <memory>
#include <semaphore>
#include <thread>

#include "TestSupport.h"

namespace norva::test {
namespace {

constexpr auto kPatience = std::chrono::seconds(30);

/// Tells when its body begins and when it has ended, by return or by cancellation. As in the agent,
/// an object outlives its thread, which nobody joins: make it by `makeProbe`.
class ProbeThread : public Thread {
 public:
  explicit ProbeThread(bool endsAtOnce) : Thread(kIdle, SCHED_OTHER, 0), _endsAtOnce(endsAtOnce) {}

  void run() override {
    const std::shared_ptr<void> tellEnd(nullptr, [this](void*) { ended.release(); });
    tid = static_cast<pid_t>(syscall(SYS_gettid));
    handle = pthread_self();
    begun.release();
    while (!_endsAtOnce) pause();
  }
  void onStop() override { statusInOnStop = status(); }

  std::binary_semaphore begun{0}, ended{0};
  std::atomic<pid_t> tid = 0;
  std::atomic<pthread_t> handle{};
  std::int32_t statusInOnStop = -1;

 private:
  const bool _endsAtOnce;
};

ProbeThread& makeProbe(bool endsAtOnce) {
  static auto* const probes = new std::list<ProbeThread>;
  return probes->emplace_back(endsAtOnce);
}

TEST(ThreadTest, StartsAndStops) {
  ProbeThread& thread = makeProbe(false);
  EXPECT_EQ(thread.start(), 0);
  EXPECT_EQ(thread.status(), Thread::kRunning);
  ASSERT_TRUE(thread.begun.try_acquire_for(kPatience));
  pthread_attr_t attributes;
  int detachState = PTHREAD_CREATE_JOINABLE;
  ASSERT_EQ(pthread_getattr_np(thread.handle, &attributes), 0);
  pthread_attr_getdetachstate(&attributes, &detachState);
  pthread_attr_destroy(&attributes);
  EXPECT_EQ(detachState, PTHREAD_CREATE_DETACHED) << "its stack goes with it";
  thread.setWordB(7);
  EXPECT_EQ(thread.stop(), 0);
  EXPECT_EQ(thread.statusInOnStop, Thread::kStopped);
  EXPECT_EQ(thread.status(), Thread::kStopped);
  EXPECT_EQ(thread.getWordB(), 0);
  ASSERT_TRUE(thread.ended.try_acquire_for(kPatience)) << "cancelled";
}

TEST(ThreadTest, StoppingAThreadThatIsGoneFails) {
  ProbeThread& thread = makeProbe(true);
  ASSERT_EQ(thread.start(), 0);
  ASSERT_TRUE(thread.ended.try_acquire_for(kPatience));
  thread.setWordB(7);
  for (int i = 0; i < 30000 && syscall(SYS_tgkill, getpid(), thread.tid.load(), 0) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(printed([&] { EXPECT_EQ(thread.stop(), -1); }), "Delete thread error\n");
  EXPECT_EQ(thread.status(), Thread::kStopped);
  EXPECT_EQ(thread.getWordB(), 7);
}

TEST(ThreadTest, AStartThatTheSystemRefusesIsPrinted) {
  withoutThreads([] {
    EXPECT_EQ(printed([&] { EXPECT_EQ(makeProbe(false).start(), -1); }), "Create thread fail!\n");
  });
}

}  // namespace
}  // namespace norva::test
