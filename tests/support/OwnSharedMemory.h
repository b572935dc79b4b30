#pragma once

/// The library's socket paths are fixed. Gives this process a /dev/shm of its own where the kernel
/// allows it; elsewhere waits until no other test process uses the real one. Call it first of all,
/// while the process has one thread. Returns whether /dev/shm is now this process's own.
bool takeOwnSharedMemory();
