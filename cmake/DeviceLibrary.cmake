# How the libraries for a device are compiled, linked and stripped: the adapter, and the layers.

# For the targets below and for Android.bp. (The warnings are Toolchain.cmake's.)
set(cpp_options -fno-exceptions -fno-rtti -fvisibility-inlines-hidden)
set(visibility -fvisibility=hidden)
# They are hardened as the device's own code is. Calls are checked where the compiler optimises.
set(hardening -fstack-protector-strong)
set(optimised_hardening -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
# Atomic instructions inline: the helpers of the compiler's own library are called without landing
# pads.
set(arm64_hardening -mbranch-protection=standard -mno-outline-atomics)
set(link_hardening
    relro now noexecstack text separate-code max-page-size=16384 common-page-size=16384)
list(TRANSFORM link_hardening PREPEND "-Wl,-z,")
list(APPEND link_hardening -Wl,--build-id=sha1)
# Only the libraries that it calls.
set(link_needed -Wl,--as-needed)

add_library(hardened_code INTERFACE)
target_compile_options(hardened_code INTERFACE ${hardening})
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    target_compile_options(hardened_code INTERFACE ${arm64_hardening})
endif()
# A sanitizer checks calls itself.
if(NOT OEMLAYER_SANITIZE)
    target_compile_options(hardened_code INTERFACE
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${optimised_hardening}>")
endif()

add_library(hardened_link INTERFACE)
target_link_options(hardened_link INTERFACE ${link_hardening})
if(NOT OEMLAYER_SANITIZE)
    target_link_options(hardened_link INTERFACE ${link_needed})
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        # A library is marked as having landing pads only where every linked file is, and Debian's
        # start files are not. It can do without: nothing of it runs when it is loaded or unloaded.
        target_link_options(hardened_link INTERFACE
            -nostartfiles LINKER:-z,force-bti,--fatal-warnings)
    endif()
endif()

# What is optimised is stripped, and its debug information kept in a file beside it.
set(OEMLAYER_IS_STRIPPED OFF)
if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT OEMLAYER_SANITIZE)
    set(OEMLAYER_IS_STRIPPED ON)
    find_program(OEMLAYER_OBJCOPY NAMES llvm-objcopy-14 llvm-objcopy NO_CMAKE_FIND_ROOT_PATH)
    if(NOT OEMLAYER_OBJCOPY)
        message(FATAL_ERROR
            "llvm-objcopy is not installed. Run './dev setup', which installs llvm-14.")
    endif()
endif()

# add_device_objects(target sources...)
function(add_device_objects target)
    add_library(${target} OBJECT ${ARGN})
    target_compile_options(${target} PRIVATE ${cpp_options} ${visibility})
    if(OEMLAYER_IS_STRIPPED)
        target_compile_options(${target} PRIVATE -g -fstandalone-debug)
    endif()
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${target} PUBLIC platform PRIVATE hardened_code)
endfunction()

# add_device_library(target name folder version_script libraries...): NAME.so, which is also its
# SONAME, of objects and libraries.
function(add_device_library target name folder version_script)
    set(version_script "${CMAKE_CURRENT_SOURCE_DIR}/${version_script}")
    add_library(${target} SHARED)
    target_link_libraries(${target} PRIVATE ${ARGN} hardened_link)
    # No run path: on a device as on the workstation, the libraries it needs are found by their
    # names.
    set_target_properties(${target} PROPERTIES
        PREFIX "" OUTPUT_NAME "${name}"
        LIBRARY_OUTPUT_DIRECTORY "${folder}"
        SKIP_BUILD_RPATH ON
        LINK_DEPENDS "${version_script}")
    target_link_options(${target} PRIVATE
        "LINKER:--version-script=${version_script}" "LINKER:-soname,${name}.so")
    if(OEMLAYER_IS_STRIPPED)
        set(file "${folder}/${name}.so")
        add_custom_command(TARGET ${target} POST_BUILD VERBATIM
            COMMAND "${OEMLAYER_OBJCOPY}" --only-keep-debug "${file}" "${file}.debug"
            COMMAND "${OEMLAYER_OBJCOPY}" --strip-all "--add-gnu-debuglink=${file}.debug" "${file}"
            BYPRODUCTS "${file}.debug")
    endif()
endfunction()

# How they are installed.
set(device_file_mode OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# install_folders(folders... [INSTALL arguments...]): folders that are new get their mode from here,
# not from the umask of who installs.
function(install_folders)
    cmake_parse_arguments(ARG "" "" "INSTALL" ${ARGN})
    list(JOIN ARG_UNPARSED_ARGUMENTS " " folders)
    string(CONFIGURE [[
        foreach(folder @folders@)
            set(folder "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${folder}")
            if(NOT EXISTS "${folder}")
                file(MAKE_DIRECTORY "${folder}")
                file(CHMOD "${folder}" PERMISSIONS
                    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                    WORLD_READ WORLD_EXECUTE)
            endif()
        endforeach()]] code @ONLY)
    install(CODE "${code}" ${ARG_INSTALL})
endfunction()
