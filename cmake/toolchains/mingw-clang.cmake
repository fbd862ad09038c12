# 64-bit Windows with Clang and LLD over MinGW-w64's headers and libraries: the second compiler
# that LUMlog must build and pass its tests with.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_AR x86_64-w64-mingw32-ar)
set(CMAKE_RANLIB x86_64-w64-mingw32-ranlib)

include(${CMAKE_CURRENT_LIST_DIR}/mingw-search.cmake)

# Clang looks for GCC's folder under the name without "-posix", so it has to be told.
execute_process(
    COMMAND x86_64-w64-mingw32-g++-posix -print-libgcc-file-name
    OUTPUT_VARIABLE gcc_dir
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
cmake_path(GET gcc_dir PARENT_PATH gcc_dir)

# -nostdlibinc: else it reads this machine's headers. -femulated-tls: as libstdc++ was built.
# -Qunused-arguments: CMake passes compile flags to the linking command too.
string(JOIN " " CMAKE_C_FLAGS_INIT
    -nostdlibinc "-isystem /usr/x86_64-w64-mingw32/include" -femulated-tls -Qunused-arguments)
string(JOIN " " CMAKE_CXX_FLAGS_INIT
    -nostdlibinc
    "-isystem ${gcc_dir}/include/c++"
    "-isystem ${gcc_dir}/include/c++/x86_64-w64-mingw32"
    "-isystem ${gcc_dir}/include/c++/backward"
    "-isystem /usr/x86_64-w64-mingw32/include"
    -femulated-tls
    -Qunused-arguments)
# The run times of GCC's exceptions and of threads, which Clang does not know libstdc++ to need.
string(JOIN " " linker_flags -fuse-ld=lld-14 "-B${gcc_dir}" "-L${gcc_dir}" -lgcc_eh -lwinpthread)
set(CMAKE_EXE_LINKER_FLAGS_INIT "${linker_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${linker_flags}")
