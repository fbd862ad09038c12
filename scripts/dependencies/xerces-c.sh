# xerces-c.sh SOURCE BUILD PREFIX
here=$(dirname "$0")
# No path of the folder that it happens to be built in: the same sources make the same DLL.
# Optimised for size: parsing one report is never the slow part, and every host carries this.
cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel -DCMAKE_TOOLCHAIN_FILE="$here/../../cmake/toolchains/mingw-gcc.cmake" \
    -DCMAKE_INSTALL_PREFIX="$3" -DCMAKE_CXX_FLAGS="-ffunction-sections -fdata-sections -ffile-prefix-map=$1=xerces-c -ffile-prefix-map=$2=xerces-c" \
    -DBUILD_SHARED_LIBS=OFF -Dnetwork=OFF -Dtranscoder=windows -Dmessage-loader=inmemory \
    -Dxmlch-type=wchar_t -Dmutex-manager=windows
# The library alone: its own tests and samples don't compile with XMLCh as wchar_t.
ninja -C "$2" src/all
ninja -C "$2" src/install
mkdir -p "$3/share/licenses/xerces-c"
cp "$1/LICENSE" "$1/NOTICE" "$3/share/licenses/xerces-c/"
