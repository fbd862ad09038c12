# How LUMlog's own code is compiled. What users of the package see is not affected.

add_library(lumlog_build_options INTERFACE)
if(CMAKE_CXX_COMPILER_FRONTEND_VARIANT STREQUAL "MSVC" OR CMAKE_CXX_COMPILER_ID STREQUAL "MSVC")
    target_compile_options(lumlog_build_options INTERFACE $<$<COMPILE_LANGUAGE:C,CXX>:/W4;/WX;/utf-8;/Gy;/Gw>)
else()
    target_compile_options(
        lumlog_build_options
        INTERFACE
            $<$<COMPILE_LANGUAGE:C,CXX>:-Wall;-Wextra;-Wpedantic;-Wshadow;-Wconversion;-Wsign-conversion>
            $<$<COMPILE_LANGUAGE:C,CXX>:-Wcast-align;-Wformat=2;-Wundef;-Werror>
            $<$<COMPILE_LANGUAGE:C,CXX>:-ffunction-sections;-fdata-sections>)
endif()

if(MINGW)
    # The C++ run time inside, so that the Windows system DLLs are all that is needed.
    target_link_options(
        lumlog_build_options INTERFACE -static -static-libgcc -static-libstdc++ -Wl,--gc-sections)
    # The same sources make the same bytes, whenever they are built.
    target_link_options(lumlog_build_options INTERFACE -Wl,--no-insert-timestamp)
    # Symbols would be two thirds of the DLL; builds for debugging keep them, and so does what splits them off.
    target_link_options(
        lumlog_build_options
        INTERFACE $<$<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:LUMLOG_KEEPS_SYMBOLS>>>>:-s>)
endif()
if(WIN32)
    # msvcrt heads the list of what Windows programs run on: no universal run time to install.
    target_compile_definitions(lumlog_build_options INTERFACE _WIN32_WINNT=0x0602)
    # A program for Windows runs through this wherever CMake or CTest has to run one.
    set(CMAKE_CROSSCOMPILING_EMULATOR
        ${PROJECT_SOURCE_DIR}/scripts/lib/wine-run.sh ${PROJECT_BINARY_DIR}/wine)
endif()

set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)

# lumlog_add_symbols(TARGET): for debuggers, with Clang for a PDB, else in the last form in which LLDB 14 finds the names of
# sources. These are as seen from the tree's root, whoever builds it and where.
function(lumlog_add_symbols target)
    file(RELATIVE_PATH way_back ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
    target_compile_options(
        ${target}
        PRIVATE -g $<IF:$<CXX_COMPILER_ID:Clang>,-gcodeview,-gdwarf-4> -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=./
                -ffile-prefix-map=${way_back}=./
                -ffile-prefix-map=${PROJECT_BINARY_DIR}=.)
    foreach(prefix IN LISTS CMAKE_PREFIX_PATH)
        target_compile_options(${target} PRIVATE -ffile-prefix-map=${prefix}/=./dependencies/)
    endforeach()
endfunction()

# lumlog_make_pdb(TARGET): a PDB beside what Clang and LLD link, which names it without its folder.
function(lumlog_make_pdb target)
    target_link_options(${target} PRIVATE -Wl,--pdb= -Wl,-Xlink=-pdbaltpath:%_PDB%)
endfunction()
