#include "support/OwnSharedMemory.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

bool mountOwn() {
  if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  // Without this the mount would show in the namespace it came from.
  if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  return mount("none", "/dev/shm", "tmpfs", 0, nullptr) == 0;
}

}  // namespace

bool takeOwnSharedMemory() {
  if (mountOwn()) return true;
  // Held, with its descriptor, until the process ends.
  const int file = open("/dev/shm/quillwork-tests.lock", O_CREAT | O_RDWR, 0666);
  if (file < 0 || flock(file, LOCK_EX) != 0) {
    std::perror("/dev/shm/quillwork-tests.lock");
    std::exit(1);
  }
  return false;
}
