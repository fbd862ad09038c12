# libzip.sh SOURCE BUILD PREFIX
here=$(dirname "$0")
# Deflate alone, by the distribution's zlib: archives that any program on any machine opens.
cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE="$here/../../cmake/toolchains/mingw-gcc.cmake" \
    -DCMAKE_INSTALL_PREFIX="$3" -DBUILD_SHARED_LIBS=OFF -DCMAKE_C_FLAGS="-ffunction-sections -fdata-sections" \
    -DZLIB_INCLUDE_DIR=/usr/x86_64-w64-mingw32/include -DZLIB_LIBRARY=/usr/x86_64-w64-mingw32/lib/libz.a \
    -DENABLE_COMMONCRYPTO=OFF -DENABLE_GNUTLS=OFF -DENABLE_MBEDTLS=OFF -DENABLE_OPENSSL=OFF \
    -DENABLE_WINDOWS_CRYPTO=OFF -DENABLE_BZIP2=OFF -DENABLE_LZMA=OFF -DENABLE_ZSTD=OFF \
    -DBUILD_TOOLS=OFF -DBUILD_REGRESS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_DOC=OFF
cmake --build "$2"
cmake --install "$2"
