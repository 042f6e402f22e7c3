# What the library and the stand-in are compiled against: the platform headers of this project, and
# Android's own log and trace libraries as Debian packages them.

find_path(ANDROID_INCLUDE_DIR android/log.h PATH_SUFFIXES android)
set(folder /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
find_library(ANDROID_LIBLOG log PATH_SUFFIXES android PATHS ${folder})
find_library(ANDROID_LIBCUTILS cutils PATH_SUFFIXES android PATHS ${folder})
if(NOT ANDROID_INCLUDE_DIR OR NOT ANDROID_LIBLOG OR NOT ANDROID_LIBCUTILS)
    message(FATAL_ERROR
        "Android's log and trace libraries are missing. Run './dev setup', which installs "
        "android-liblog-dev and android-libcutils-dev, and configure again.")
endif()

add_library(platform INTERFACE)
target_include_directories(platform INTERFACE "${CMAKE_SOURCE_DIR}")
target_include_directories(platform SYSTEM INTERFACE "${ANDROID_INCLUDE_DIR}")
target_link_libraries(platform INTERFACE project_warnings)

add_library(android_log INTERFACE)
target_link_libraries(android_log INTERFACE "${ANDROID_LIBLOG}")
add_library(android_cutils INTERFACE)
target_link_libraries(android_cutils INTERFACE "${ANDROID_LIBCUTILS}")

# What the stand-in and the host do with pictures.
find_path(YUV_INCLUDE_DIR libyuv.h)
find_library(YUV_LIBRARY yuv)
find_path(PNG_INCLUDE_DIR png.h)
find_library(PNG_LIBRARY NAMES png16 png)
if(NOT YUV_INCLUDE_DIR OR NOT YUV_LIBRARY OR NOT PNG_INCLUDE_DIR OR NOT PNG_LIBRARY)
    message(FATAL_ERROR
        "libyuv or libpng is missing. Run './dev setup', which installs libyuv-dev and "
        "libpng-dev, and configure again.")
endif()

# The folder that stands for "/" on the device, in the build tree.
set(DEVICE_ROOT "${CMAKE_BINARY_DIR}/device")
