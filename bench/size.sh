#!/usr/bin/env bash
# size.sh ARM64-BUILD HOST-BUILD EMULATOR
#
# A table of what libzem.so for arm64 takes: in storage, when it is loaded, and in memory.
set -euo pipefail
export LC_ALL=C
library=$1/src/libzem.so

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
aarch64-linux-gnu-strip -o "$work/stripped" "$library"
aarch64-linux-gnu-size -A "$work/stripped" >"$work/sections"
readelf -rW "$work/stripped" >"$work/relocations"
"$3" "$1/bin/zem_footprint" >"$work/arm64"  # no resident figures under an emulator
"$2/bin/zem_footprint" >"$work/host"

row() { printf '| %-52s | %9s |\n' "$@"; }
sections() { awk -v names="^\\.($1)$" '$1 ~ names { sum += $2 } END { print sum + 0 }' "$work/sections"; }
relocations() { grep -cE " R_AARCH64_($1) " "$work/relocations" || true; }
taken() { awk -v name="$2" '$1 == name { print $2 }' "$work/$1"; }

row "libzem.so for arm64" ""
row ---- ---:
row "file, stripped (bytes)" "$(stat -c %s "$work/stripped")"
row "code" "$(sections 'text|plt|init|fini')"
row "constants" "$(sections 'rodata')"
row "unwinding and exception tables" "$(sections 'eh_frame|eh_frame_hdr|gcc_except_table')"
row "symbols and their names" "$(sections 'dynsym|dynstr|gnu[.]hash|gnu[.]version|gnu[.]version_r')"
row "relocations" "$(sections 'rela[.]dyn|rela[.]plt')"
row "data, read only once it is loaded" "$(sections 'data[.]rel[.]ro|init_array|fini_array|dynamic|got')"
row "data, writable" "$(sections 'data|bss')"
row "addresses to move when it is loaded (count)" "$(relocations RELATIVE)"
row "symbols to look up when it is loaded (count)" "$(relocations 'ABS64|GLOB_DAT|JUMP_SLOT')"
row "static initialisers of its own (count)" "$(nm "$library" | grep -cE 'sub_I_|_GLOBAL__I' || true)"
row "heap of an engine without profiles (bytes)" "$(taken arm64 heap-empty)"
row "heap of an engine with 2 x 255 profiles" "$(taken arm64 heap-full)"
row "  for each profile" $((($(taken arm64 heap-full) - $(taken arm64 heap-empty)) / 510))
row "resident with 2 x 255 profiles (bytes, on this host)" "$(taken host resident-full)"
