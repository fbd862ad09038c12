# Windows as Microsoft's compiler makes programs for it, by Clang and LLD, without any run time.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_C_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_RC_COMPILER llvm-rc-14)
set(CMAKE_MT llvm-mt-14)
# Nothing can be linked here that has a main.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_C_STANDARD_LIBRARIES "")
set(CMAKE_C_FLAGS_INIT "-ffreestanding -fms-extensions")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib -Xlinker /entry:start -Xlinker /nodefaultlib")
set(CMAKE_MSVC_RUNTIME_LIBRARY "")
