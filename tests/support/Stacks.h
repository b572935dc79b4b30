#pragma once

/// Prints on the standard error stream where each thread of the process is: its stack where there
/// is a debugger, what the kernel knows of it elsewhere.
void printStacks();
