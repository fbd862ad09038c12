# benchmark.sh SOURCE BUILD PREFIX
here=$(dirname "$0")
# Debian took out the reading of the version from Git, so it has to be given.
cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE="$here/../../cmake/toolchains/mingw-gcc.cmake" \
    -DCMAKE_INSTALL_PREFIX="$3" -DBUILD_SHARED_LIBS=OFF -DBENCHMARK_ENABLE_TESTING=OFF \
    -DBENCHMARK_ENABLE_WERROR=OFF -DGIT_VERSION=1.7.1 -DBENCHMARK_INSTALL_DOCS=OFF
cmake --build "$2"
cmake --install "$2"
