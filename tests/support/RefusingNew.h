#pragma once

/// Said by the program that is linked with RefusingNew.cpp: whether the allocation that the calling
/// thread is about to make is refused, as if memory had run out. Allocates nothing itself.
bool isRefused();
