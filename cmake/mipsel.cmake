# Little-endian 32-bit MIPS.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++-12)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
