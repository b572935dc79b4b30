# 32-bit x86; the programs run natively on a 64-bit kernel.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++-12)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
# Header-only libraries come from the host, behind the compiler's own directories. Without SSE a
# double passes through 80-bit registers.
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse -idirafter /usr/include")
