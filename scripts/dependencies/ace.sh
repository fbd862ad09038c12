# ace.sh SOURCE BUILD PREFIX
# ACE builds inside its source tree, with make files that its own MPC writes, so BUILD stays unused.
source=$(readlink -f "$1")
prefix=$3
export ACE_ROOT=$source MPC_ROOT=$source/MPC

# The timeval of Windows counts seconds in 32 bits, which end in 2038; ACE takes one of its own where it
# is told so. Its settings for other compilers do that by themselves.
printf '%s\n' '#define ACE_HAS_TIME_T_LONG_MISMATCH' '#include "ace/config-win32.h"' >"$source/ace/config.h"
# Sections, so that a DLL which uses a few classes leaves the rest of their files behind.
cat >"$source/include/makeinclude/platform_macros.GNU" <<'END'
CROSS_COMPILE = x86_64-w64-mingw32-
static_libs_only = 1
debug = 0
optimize = 1
include $(ACE_ROOT)/include/makeinclude/platform_mingw32.GNU
CC = x86_64-w64-mingw32-gcc-posix
CXX = x86_64-w64-mingw32-g++-posix
CCFLAGS += -ffunction-sections -fdata-sections
END

cd "$source"
perl bin/mwc.pl -type gnuace ace/ace.mwc
cd ace
make -f GNUmakefile.ACE -j"$(nproc)"

mkdir -p "$prefix/lib" "$prefix/include"
cp "$(find "$source/ace" "$source/lib" -name libACE.a | head -n 1)" "$prefix/lib/"
cd "$source"
# With the .cpp files: templates take their definitions from them.
find ace -regex '.*\.\(h\|inl\|cpp\)' -print0 | tar --null -T - -cf - | tar -C "$prefix/include" -xf -
