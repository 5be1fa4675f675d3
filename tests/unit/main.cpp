// Entry of the unit tests. They use the unit's fixed queue keys, so they run in an IPC namespace of
// their own: no queue of the machine is seen or removed.

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (unshare(CLONE_NEWIPC) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
    std::perror("norva_unit_tests: no private IPC namespace");
    return 1;
  }
  alarm(240);  // ends a test that blocks on a queue for ever, however the program was started
  signal(SIGPIPE, SIG_IGN);  // as the agent does
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
