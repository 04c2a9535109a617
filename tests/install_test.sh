#!/usr/bin/env bash
# install_test.sh BUILD-DIR CXX EXAMPLE.cpp
#
# The installed tree stands alone: a program builds against its headers and libraries, and both that
# program and the tool find all libraries by their run paths.
set -euo pipefail
unset LD_LIBRARY_PATH
build=$1 cxx=$2 example=$3

prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
lib=$(dirname "$(find "$prefix" -name libzem.so)")

"$cxx" -std=c++17 -I "$prefix/include" "$example" -o "$prefix/example" \
    -L "$lib" -lzem -lsoftmodem -Wl,-rpath,"$lib" -Wl,--allow-shlib-undefined -pthread
output=$("$prefix/example")
grep -q '^3GPP:[0-9]* token=.*ApnName=internet,' <<<"$output"
"$prefix/bin/zemctl" --help >/dev/null
