# The newest clang that the project builds with, with its own libc++ and every warning. Debian
# installs one libc++ at a time, so that unpack.sh puts the headers of this one beside the build.
# Nothing is linked.

cmake_path(SET libcxx NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/libc++-19/unpacked")
if(NOT EXISTS "${libcxx}")
    message(FATAL_ERROR "There is no ${libcxx}. './dev lint' unpacks it.")
endif()
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_CXX_FLAGS_INIT
    "-nostdinc++ -isystem \"${libcxx}/usr/lib/llvm-19/include/c++/v1\" \
-Wno-unused-command-line-argument")

# All warnings but these.
set(OEMLAYER_MORE_WARNINGS
    -Weverything
    # Not this project's language or compiler.
    -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-c++20-compat
    # The layout of records is fixed and asserted.
    -Wno-padded
    # The boundary is one of C arrays and pointers.
    -Wno-unsafe-buffer-usage
    # The texts of log lines are fixed, with %d for words and %p for every pointer.
    -Wno-format-signedness -Wno-format-pedantic
    # What a designated initialiser leaves out is zero, on purpose.
    -Wno-missing-designated-field-initializers
    # Objects of a program's life, in the stand-in, the demo and the tests.
    -Wno-global-constructors -Wno-exit-time-destructors
    # A `default` is wanted where a switch does not name every value (-Wswitch), and only there.
    -Wno-switch-enum -Wno-switch-default
    # No lock is taken twice in one call chain; annotating that would mark every function.
    -Wno-thread-safety-negative
    # A name of a function around a lambda that does not capture it.
    -Wno-shadow-uncaptured-local
    # GoogleTest's macros.
    -Wno-used-but-marked-unused)
# More for a folder. The vendor's functions are found by their names at run time; no header has
# them.
set(OEMLAYER_MORE_WARNINGS_standin -Wno-missing-prototypes)
# Offsets and counts are written as plain numbers, and classes in headers.
set(OEMLAYER_MORE_WARNINGS_tests -Wno-sign-conversion -Wno-missing-noreturn -Wno-weak-vtables)

# What Google Benchmark would link a program for.
set(HAVE_STD_REGEX ON)
