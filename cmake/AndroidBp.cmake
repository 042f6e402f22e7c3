# Writes Android.bp into the build folder, from Android.bp.in and the lists that the library is
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

header_libraries(libraries oemlayer_host.h
    "${CMAKE_SOURCE_DIR}/platform/abi.h" "${CMAKE_SOURCE_DIR}/platform/android/camera3.h")
blueprint(host_header_libs "        " ${libraries})
file(GLOB files CONFIGURE_DEPENDS *.h *.cpp "${CMAKE_SOURCE_DIR}/platform/*/*.h")
header_libraries(libraries ${files})
blueprint(header_libs "        " ${libraries})

list(TRANSFORM sources PREPEND adapterlayer/ OUTPUT_VARIABLE srcs)
set(cflags ${visibility} ${OEMLAYER_WARNINGS} ${hardening} ${optimised_hardening})
set(ldflags ${link_hardening} ${link_needed})
foreach(property IN ITEMS srcs cflags ldflags)
    blueprint(${property} "        " ${${property}})
endforeach()
blueprint(cppflags "        " ${cpp_options})
blueprint(arm64_cflags "                " ${arm64_hardening})
foreach(kind IN ITEMS platform device)
    list(TRANSFORM ${kind}_libraries PREPEND lib OUTPUT_VARIABLE libraries)
    list(SORT libraries)
    blueprint(${kind}_libs "        " ${libraries})
endforeach()
configure_file("${CMAKE_SOURCE_DIR}/Android.bp.in" "${CMAKE_BINARY_DIR}/Android.bp" @ONLY)
