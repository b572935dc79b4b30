#pragma once

/// The library's socket paths are fixed. Gives this process a /dev/shm of its own where the kernel
/// allows it, and otherwise waits until no other test process has the real one. Call it first of
/// all, while the process has one thread. Returns whether it is this process's own.
bool takeOwnSharedMemory();
