#!/usr/bin/env bash
# android_bp_check.sh CHECKED_IN WRITTEN: the Android.bp of the source folder is the one that CMake
# wrote.
diff -u "$1" "$2" || {
    printf 'Android.bp is not what CMake builds. To write it anew: cp "%s" "%s"\n' "$2" "$1"
    exit 1
}
