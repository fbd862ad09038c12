# 64-bit Windows with GCC of MinGW-w64: the toolchain that LUMlog ships with, and the one that
# the libraries it links are built by.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# "posix" is the thread model with <mutex> and <thread>.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

include(${CMAKE_CURRENT_LIST_DIR}/mingw-search.cmake)
