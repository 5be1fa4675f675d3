#include "Thread.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <limits>
#include <semaphore>
#include <thread>

#include "TestSupport.h"

namespace norva {
namespace {

using test::printed;

constexpr auto kPatience = std::chrono::seconds(30);

enum class Ends { kWhenCancelled, kAtOnce, kAtOnceDetached };

/// Tells when its body begins and when it has ended, by return or by cancellation.
class ProbeThread : public Thread {
 public:
  explicit ProbeThread(Ends ends) : Thread(kRunning, SCHED_OTHER, 0), _ends(ends) {}

  void run() override {
    const EndTeller tellEnd{ended};
    if (_ends == Ends::kAtOnceDetached) pthread_detach(pthread_self());
    tid = static_cast<pid_t>(syscall(SYS_gettid));
    begun.release();
    while (_ends == Ends::kWhenCancelled) pause();
  }
  void onStop() override { statusInOnStop = status(); }

  std::counting_semaphore<> begun{0};
  std::counting_semaphore<> ended{0};
  std::atomic<pid_t> tid = 0;
  std::int32_t statusInOnStop = -1;

 private:
  struct EndTeller {
    std::counting_semaphore<>& ended;
    ~EndTeller() { ended.release(); }
  };
  const Ends _ends;
};

TEST(ThreadTest, StartsAndStops) {
  ProbeThread thread(Ends::kWhenCancelled);
  EXPECT_EQ(thread.getName(), "");
  EXPECT_FALSE(thread.getFlag());
  EXPECT_EQ(thread.getWordA(), 0);
  thread.markIdle();
  EXPECT_EQ(thread.status(), Thread::kIdle);
  EXPECT_EQ(thread.start(), 0);
  EXPECT_EQ(thread.status(), Thread::kRunning);
  ASSERT_TRUE(thread.begun.try_acquire_for(kPatience));
  thread.setWordB(7);
  thread.setWordC(-9);
  EXPECT_EQ(thread.getWordB(), 7);
  EXPECT_EQ(thread.getWordC(), -9);

  EXPECT_EQ(thread.stop(), 0);
  EXPECT_EQ(thread.statusInOnStop, Thread::kStopped);
  EXPECT_EQ(thread.status(), Thread::kStopped);
  EXPECT_EQ(thread.getWordB(), 0);
  EXPECT_EQ(thread.getWordC(), 0);
  ASSERT_TRUE(thread.ended.try_acquire_for(kPatience)) << "cancelled";
  EXPECT_EQ(thread.markRunning(), 0);
  EXPECT_EQ(thread.status(), Thread::kRunning);
}

TEST(ThreadTest, ASecondStartRunsTheSameObjectTwice) {
  ProbeThread thread(Ends::kAtOnceDetached);
  EXPECT_EQ(thread.start(), 0);
  EXPECT_EQ(thread.start(), 0);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(thread.ended.try_acquire_for(kPatience));
  EXPECT_EQ(thread.status(), Thread::kRunning);
}

TEST(ThreadTest, StoppingAThreadThatIsGoneFails) {
  ProbeThread thread(Ends::kAtOnce);
  ASSERT_EQ(thread.start(), 0);
  ASSERT_TRUE(thread.ended.try_acquire_for(kPatience));
  thread.setWordB(7);
  thread.setWordC(9);
  for (int i = 0; i < 30000 && syscall(SYS_tgkill, getpid(), thread.tid.load(), 0) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  int result = 0;
  EXPECT_EQ(printed([&] { result = thread.stop(); }), "Delete thread error\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(thread.status(), Thread::kStopped);
  EXPECT_EQ(thread.getWordB(), 7);
  EXPECT_EQ(thread.getWordC(), 9);
}

TEST(ThreadTest, AStartThatTheSystemRefusesIsPrinted) {
  pthread_attr_t usual;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  pthread_attr_t impossible;
  ASSERT_EQ(pthread_getattr_default_np(&impossible), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, std::numeric_limits<std::size_t>::max() / 2), 0);
  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  ProbeThread thread(Ends::kWhenCancelled);
  int result = 0;
  const std::string output = printed([&] { result = thread.start(); });
  pthread_setattr_default_np(&usual);
  EXPECT_EQ(output, "Create thread fail!\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(thread.status(), Thread::kRunning);
  pthread_attr_destroy(&usual);
  pthread_attr_destroy(&impossible);
}

}  // namespace
}  // namespace norva
