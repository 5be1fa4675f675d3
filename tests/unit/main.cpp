// Entry of the unit tests. They use the unit's fixed queue keys, so they run in an IPC namespace of
// their own: no queue of the machine is seen or removed.

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

/// A test that blocks on a queue for ever is ended by this, however the program was started.
constexpr unsigned kLongestRunSeconds = 240;

bool enterPrivateIpcNamespace() {
  return unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (!enterPrivateIpcNamespace()) {
    std::fprintf(stderr, "norva_unit_tests: no private IPC namespace: %s\n", std::strerror(errno));
    return 1;
  }
  alarm(kLongestRunSeconds);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
