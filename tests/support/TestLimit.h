#pragma once

/// From now on a test that hangs ends the process, with its name and the stacks of all threads. The
/// limit is one that no machine reaches by being slow or busy, also under an emulator.
void limitTests();
