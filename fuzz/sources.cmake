# What the fuzzers are made of, for their targets and for Android.bp.
set(fuzzers table config log recording)
set(fuzz_core_sources check.cpp heap.cpp)
foreach(name IN LISTS fuzzers)
    set(fuzz_${name}_sources ${name}.cpp)
endforeach()
list(APPEND fuzz_table_sources host.cpp model.cpp vendor.cpp)

# All else that they have, where the stand-in device is a part of the program.
set(fuzz_linked_sources
    kit/android.cpp kit/heap.cpp
    standin/buffers.cpp standin/camera_module.cpp standin/chicontext.cpp standin/control.cpp
    standin/dlopen_redirect.cpp standin/extension.cpp standin/hwconfig.cpp
    standin/located_json.cpp standin/metadata.cpp standin/offline.cpp standin/pixels.cpp
    standin/session.cpp standin/utils.cpp standin/zlog.cpp
    contract/recording.cpp
    view/check.cpp view/diff.cpp view/json.cpp view/report.cpp view/serials.cpp view/story.cpp
    view/text.cpp view/timeline.cpp view/walk.cpp)
