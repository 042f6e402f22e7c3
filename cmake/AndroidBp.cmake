# Writes Android.bp into the build folder, from Android.bp.in and the lists that the libraries are
# built from. A test compares it with the checked-in one.

# blueprint(variable indentation texts...): the texts as the lines of a list.
function(blueprint variable indentation)
    list(TRANSFORM ARGN REPLACE "(.+)" "${indentation}\"\\1\"," OUTPUT_VARIABLE lines)
    list(JOIN lines "\n" lines)
    set(${variable} "${lines}" PARENT_SCOPE)
endfunction()

# header_libraries(variable files...): the platform's libraries whose headers the files include.
function(header_libraries variable)
    set(libraries)
    foreach(file IN LISTS ARGN)
        file(STRINGS "${file}" includes REGEX "^#include <(android|cutils|hardware|system|utils)/")
        list(TRANSFORM includes REPLACE "#include <([a-z]+)/.*" "lib\\1_headers")
        list(APPEND libraries ${includes})
    endforeach()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
    list(TRANSFORM libraries REPLACE "libandroid_" "liblog_")
    list(REMOVE_DUPLICATES libraries)
    list(SORT libraries)
    set(${variable} ${libraries} PARENT_SCOPE)
endfunction()

header_libraries(libraries "${CMAKE_SOURCE_DIR}/adapterlayer/oemlayer_host.h"
    "${CMAKE_SOURCE_DIR}/platform/abi.h" "${CMAKE_SOURCE_DIR}/platform/android/camera3.h")
blueprint(host_header_libs "        " ${libraries})
file(GLOB files CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/adapterlayer/*.h"
    "${CMAKE_SOURCE_DIR}/adapterlayer/*.cpp" "${CMAKE_SOURCE_DIR}/layer/*.cpp"
    "${CMAKE_SOURCE_DIR}/platform/*/*.h")
header_libraries(libraries ${files})
blueprint(header_libs "        " ${libraries})

set(cflags ${visibility} ${OEMLAYER_WARNINGS} ${hardening} ${optimised_hardening})
set(ldflags ${link_hardening} ${link_needed})
foreach(property IN ITEMS cflags ldflags)
    blueprint(${property} "        " ${${property}})
endforeach()
blueprint(cppflags "        " ${cpp_options})
blueprint(arm64_cflags "                " ${arm64_hardening})

# sources_of(variable targets...): from the source folder.
function(sources_of variable)
    set(all)
    foreach(target IN LISTS ARGN)
        get_target_property(sources ${target} SOURCES)
        get_target_property(folder ${target} SOURCE_DIR)
        cmake_path(RELATIVE_PATH folder BASE_DIRECTORY "${CMAKE_SOURCE_DIR}")
        list(TRANSFORM sources PREPEND ${folder}/)
        list(APPEND all ${sources})
    endforeach()
    set(${variable} ${all} PARENT_SCOPE)
endfunction()
sources_of(sources oemlayer_adapter_objects)
blueprint(adapter_srcs "        " ${sources})
foreach(side IN ITEMS host vendor)
    sources_of(sources oemlayer_${side}_layer_objects contract_events)
    blueprint(${side}_layer_srcs "        " ${sources})
endforeach()
foreach(kind IN ITEMS platform device)
    get_property(libraries GLOBAL PROPERTY oemlayer_${kind}_libraries)
    list(TRANSFORM libraries PREPEND lib)
    list(SORT libraries)
    blueprint(${kind}_libs "        " ${libraries})
endforeach()

# The fuzzers: a module for each, and in their defaults all that they have in common.
include("${CMAKE_SOURCE_DIR}/fuzz/sources.cmake")
list(TRANSFORM fuzz_core_sources PREPEND fuzz/)
list(APPEND fuzz_linked_sources ${fuzz_core_sources})
sources_of(sources oemlayer_adapter_objects contract_events)
list(APPEND fuzz_linked_sources ${sources})
list(SORT fuzz_linked_sources)
blueprint(fuzz_srcs "        " ${fuzz_linked_sources})
file(GLOB fuzz_files RELATIVE "${CMAKE_SOURCE_DIR}" CONFIGURE_DEPENDS
    fuzz/*.h kit/*.h standin/*.h contract/*.h view/*.h fuzz/*.cpp)
header_libraries(libraries ${files} ${fuzz_linked_sources} ${fuzz_files})
blueprint(fuzz_header_libs "        " ${libraries})
blueprint(warnings "        " ${OEMLAYER_WARNINGS})
set(fuzz_modules)
foreach(name IN LISTS fuzzers)
    list(TRANSFORM fuzz_${name}_sources PREPEND fuzz/)
    blueprint(srcs "        " ${fuzz_${name}_sources})
    set(options "${CMAKE_SOURCE_DIR}/fuzz/${name}.options")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${options}")
    file(STRINGS "${options}" options REGEX "^[a-z_]+ = ")
    list(TRANSFORM options REPLACE " = " "=")
    blueprint(options "            " ${options})
    string(CONFIGURE [[
cc_fuzz {
    name: "camera.oemlayer.fuzz_@name@",
    defaults: ["camera.oemlayer.fuzz_defaults"],
    srcs: [
@srcs@
    ],
    corpus: ["fuzz/corpus/@name@/*"],
    fuzz_config: {
        libfuzzer_options: [
@options@
        ],
    },
}
]] module @ONLY)
    string(APPEND fuzz_modules "\n${module}")
endforeach()
configure_file("${CMAKE_SOURCE_DIR}/Android.bp.in" "${CMAKE_BINARY_DIR}/Android.bp" @ONLY)
