# Cross build for 64-bit Arm, against a sysroot of Debian's own packages for it, run under qemu.

set(OEMLAYER_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/arm64-sysroot/unpacked"
    CACHE PATH "Sysroot for arm64")
# try_compile's projects get the same sysroot.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OEMLAYER_SYSROOT)
get_filename_component(OEMLAYER_SYSROOT "${OEMLAYER_SYSROOT}" ABSOLUTE)
if(NOT EXISTS "${OEMLAYER_SYSROOT}/usr/lib/llvm-14")
    message(FATAL_ERROR "There is no sysroot in ${OEMLAYER_SYSROOT}. './dev arm64' makes it.")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_SYSROOT "${OEMLAYER_SYSROOT}")

# libc++ of the target, not the one that lies beside the compiler; found from the sysroot, whatever
# its name has.
set(CMAKE_CXX_FLAGS_INIT
    "-nostdinc++ -iwithsysroot /usr/lib/llvm-14/include/c++/v1 -Wno-unused-command-line-argument")
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-stdlib=libc++ -fuse-ld=lld -L=/usr/lib/llvm-14/lib")
endforeach()

set(CMAKE_FIND_ROOT_PATH "${OEMLAYER_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-aarch64;-L;${OEMLAYER_SYSROOT}")
