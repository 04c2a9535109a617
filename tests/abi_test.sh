#!/usr/bin/env bash
# abi_test.sh [--accept] LIBZEM PLAIN-LIBZEM SOURCE-DIR
#
# What programs linked with libzem.so rely on is as tests/abi has it: the symbols that it exports, and
# the layout of the types behind them. PLAIN-LIBZEM is made of the same objects without link-time
# optimisation, after which debug information no longer tells whose functions are exported. --accept
# makes what is there the new measure.
set -euo pipefail
export LC_ALL=C
accept=
[[ $1 != --accept ]] || { accept=1; shift; }
library=$1 plain=$2 source=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
machine=$(readelf -h "$library" | sed -n 's/ *Machine: *//p')
case $machine in
    AArch64) baseline=$source/tests/abi/arm64.abi.xz ;;
    *X86-64) baseline=$source/tests/abi/x86_64.abi.xz ;;
    *) echo "skipped: no layout is recorded for $machine"; exit 77 ;;
esac
grep -q ' [.]debug_info ' < <(readelf -SW "$plain") || { echo "skipped: built without debug information"; exit 77; }
symbols=$source/tests/abi/symbols.txt

# The complete and the base variant of a constructor may be one.
nm -DC --defined-only "$library" | cut -d ' ' -f 3- | sort -u >"$work/symbols"
if [[ $accept ]]; then
    cp "$work/symbols" "$symbols"
    abidw --exported-interfaces-only --drop-private-types --headers-dir "$source/include" \
        --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed "$plain" | sed "s|path='$source/|path='|" | xz -9 >"$baseline"
    exit
fi

status=0
diff "$symbols" "$work/symbols" >"$work/difference" || {
    echo "exported symbols differ, < before, > now:"
    cat "$work/difference"
    status=1
}
xz -dc "$baseline" >"$work/before.abi"
abidiff --exported-interfaces-only --harmless "$work/before.abi" "$plain" || status=1
((status == 0)) || echo "If this is meant: ./dev abi, and a line in CHANGELOG.md."
exit "$status"
