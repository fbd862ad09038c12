# googletest.sh SOURCE BUILD PREFIX
here=$(dirname "$0")
cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE="$here/../../cmake/toolchains/mingw-gcc.cmake" \
    -DCMAKE_INSTALL_PREFIX="$3" -DBUILD_SHARED_LIBS=OFF -DBUILD_GMOCK=ON
cmake --build "$2"
cmake --install "$2"
