# Compiler, standard library, warnings and sanitizers for everything in this project.

if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR
        "The compiler is ${CMAKE_CXX_COMPILER} (${CMAKE_CXX_COMPILER_ID}), and this project needs "
        "clang: its records hold objects of LLVM's libc++. Remove ${CMAKE_BINARY_DIR}, unset CXX, "
        "and configure again; './dev setup' installs clang.")
endif()

add_compile_options(-stdlib=libc++)
add_link_options(-stdlib=libc++ -fuse-ld=lld)

include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_FLAGS "-stdlib=libc++")
check_cxx_source_compiles("
    #include <string>
    #ifndef _LIBCPP_VERSION
    #error another standard library
    #endif
    static_assert(sizeof(std::string) == 24);
    int main() { return static_cast<int>(std::string(\"x\").size()) - 1; }" OEMLAYER_HAS_LIBCXX)
unset(CMAKE_REQUIRED_FLAGS)
if(NOT OEMLAYER_HAS_LIBCXX)
    message(FATAL_ERROR
        "${CMAKE_CXX_COMPILER} cannot build against LLVM's libc++, which this project needs: its "
        "records hold a 24-byte std::string. Run './dev setup', which installs it, and configure "
        "again in a new folder.")
endif()

find_package(Threads REQUIRED)

add_library(project_warnings INTERFACE)
set(OEMLAYER_WARNINGS
    -Wall -Wextra -Wshadow -Wmissing-declarations -Wextra-semi -Wthread-safety -Werror)
target_compile_options(project_warnings INTERFACE ${OEMLAYER_WARNINGS} ${OEMLAYER_MORE_WARNINGS})
foreach(folder IN ITEMS standin tests)
    set(is_there "$<STREQUAL:$<TARGET_PROPERTY:SOURCE_DIR>,${CMAKE_SOURCE_DIR}/${folder}>")
    target_compile_options(project_warnings INTERFACE
        "$<${is_there}:${OEMLAYER_MORE_WARNINGS_${folder}}>")
endforeach()

# For the linters: everything is compiled, and of programs and libraries there is the name only.
if(OEMLAYER_COMPILE_ONLY)
    foreach(rule IN ITEMS LINK_EXECUTABLE CREATE_SHARED_LIBRARY CREATE_SHARED_MODULE)
        set(CMAKE_CXX_${rule} "<CMAKE_COMMAND> -E touch <TARGET>")
    endforeach()
    set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
    set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()

# add_foreign_subdirectory(source binary): sources of others, which the linters need not read.
function(add_foreign_subdirectory source binary)
    set(CMAKE_CXX_CLANG_TIDY "")
    set(CMAKE_CXX_CPPCHECK "")
    add_subdirectory("${source}" "${binary}" EXCLUDE_FROM_ALL SYSTEM)
endfunction()

# No path of the building machine gets into a binary. A debugger finds the sources from their
# folder.
add_compile_options(-fdebug-compilation-dir=.
    "-ffile-prefix-map=${CMAKE_BINARY_DIR}=build" "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")
if(CMAKE_SYSROOT)
    add_compile_options("-ffile-prefix-map=${CMAKE_SYSROOT}=")
endif()

if(OEMLAYER_SANITIZE)
    add_compile_options(
        -fsanitize=${OEMLAYER_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${OEMLAYER_SANITIZE})
elseif(NOT OEMLAYER_FUZZ)
    # Every symbol of a library is found at link time. (The runtime of a sanitizer or of a fuzzer is
    # in the program only.)
    add_link_options(LINKER:-z,defs)
endif()

# Where fuzzers are built: what they are linked with, and how code is compiled that they follow.
separate_arguments(fuzzing_engine UNIX_COMMAND "${LIB_FUZZING_ENGINE}")
set(fuzzing_follows)
if(NOT fuzzing_engine)
    set(fuzzing_engine -fsanitize=fuzzer)
    set(fuzzing_follows -fsanitize=fuzzer-no-link)
endif()
