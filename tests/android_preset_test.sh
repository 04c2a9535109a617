#!/usr/bin/env bash
# android_preset_test.sh SOURCE-DIR CXX
#
# The preset android-arm64, rehearsed without an NDK: clang and lld, as in an NDK, build for the
# distribution's arm64 C library. What they build is one shared library for a device, which needs
# nothing but the closed libraries, the log and the runtime. Ends with 77 where a tool is missing.
set -euo pipefail
source=$1 cxx=$2

for tool in clang clang++ ld.lld llvm-strip aarch64-linux-gnu-g++; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool, which ./dev arm64 installs"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ANDROID_NDK=$work/ndk
sysroot=$ANDROID_NDK/sysroot

mkdir -p "$ANDROID_NDK/build/cmake" "$sysroot/usr/include/android" "$sysroot/usr/lib"
cat >"$ANDROID_NDK/build/cmake/android.toolchain.cmake" <<'END'
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ANDROID_ABI ANDROID_PLATFORM ANDROID_STL)
if(NOT "${ANDROID_ABI} ${ANDROID_PLATFORM} ${ANDROID_STL}" STREQUAL "arm64-v8a android-30 c++_shared")
    message(FATAL_ERROR "asked for ${ANDROID_ABI} ${ANDROID_PLATFORM} ${ANDROID_STL}")
endif()
set(ANDROID ON)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_PLATFORM_NO_VERSIONED_SONAME ON)
foreach(language IN ITEMS C CXX)
    set(CMAKE_${language}_COMPILER_TARGET aarch64-linux-gnu)
    set(CMAKE_${language}_FLAGS_INIT "-ffunction-sections -fdata-sections")
endforeach()
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_STRIP llvm-strip)
foreach(kind IN ITEMS EXE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()
set(CMAKE_FIND_ROOT_PATH $ENV{ANDROID_NDK}/sysroot)
foreach(what IN ITEMS INCLUDE LIBRARY PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${what} ONLY)
endforeach()
END
# What platform 30 declares of the log, as far as it is used here; the distribution's is older.
cat >"$sysroot/usr/include/android/log.h" <<'END'
#pragma once
#include <stddef.h>
#include <stdint.h>
#ifdef __cplusplus
extern "C" {
#endif
enum { ANDROID_LOG_VERBOSE = 2, ANDROID_LOG_DEBUG, ANDROID_LOG_INFO, ANDROID_LOG_WARN,
       ANDROID_LOG_ERROR, ANDROID_LOG_FATAL, ANDROID_LOG_SILENT };
struct __android_log_message {
    size_t struct_size;
    int32_t buffer_id, priority;
    const char *tag, *file;
    uint32_t line;
    const char* message;
};
int __android_log_print(int, const char*, const char*, ...) __attribute__((format(printf, 3, 4)));
int32_t __android_log_set_minimum_priority(int32_t);
void __android_log_set_logger(void (*)(const struct __android_log_message*));
#ifdef __cplusplus
}
#endif
END
clang --target=aarch64-linux-gnu -fuse-ld=lld -shared -Wl,-soname,liblog.so -x c - -o "$sysroot/usr/lib/liblog.so" \
    <<<'int __android_log_print(int priority, const char* tag, const char* format, ...) { return 0; }' 2>/dev/null

(cd "$source" && cmake --preset android-arm64 -B "$work/build" >/dev/null)
cmake --build "$work/build" >"$work/log" || { cat "$work/log"; exit 1; }
cmake --install "$work/build" --prefix "$work/installed" --strip >/dev/null
library=$work/installed/lib/libzem.so
[[ $(find "$work/installed" -name '*.so*') == "$library" ]] || { echo "more than one library is installed"; exit 1; }

status=0
expect() {  # WHAT EXPECTED FOUND
    [[ $2 == "$3" ]] || { echo "$1: expected '$2', found '$3'"; status=1; }
}
dynamic=$(readelf -dW "$library")
expect machine AArch64 "$(readelf -h "$library" | sed -n 's/ *Machine: *//p')"
expect "needed beside the runtime" "libdiag_channel.so liblog.so libwds_service.so libzap_client.so" \
    "$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" | grep -vE '^(libstdc\+\+|lib(c|m|gcc_s)|ld-linux-aarch64)\.' |
        sort | paste -sd ' ')"
# shellcheck disable=SC2016  # the loader's variable
expect "run path" '$ORIGIN:$ORIGIN/../lib' "$(sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p' <<<"$dynamic")"
expect "packed relocations" 1 "$(grep -c '(RELR)' <<<"$dynamic")"
expect "alignment of segments" 0x4000 "$(readelf -lW "$library" | awk '$1 == "LOAD" { print $NF }' | sort -u)"
"$source/tests/symbols_test.sh" "$library" "$source" "$cxx" || status=1

# The branches that only Android compiles.
grep -rl --include='*.cpp' __ANDROID__ "$source/src" "$source/zemctl" | while read -r file; do
    clang++ --target=aarch64-linux-gnu -std=c++17 -Wall -Wextra -Werror -D__ANDROID__ -fsyntax-only \
        -I "$source/include" -I "$source/zemctl" -isystem "$sysroot/usr/include" "$file" || exit 1
done || status=1
exit "$status"
