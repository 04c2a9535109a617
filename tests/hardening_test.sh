#!/usr/bin/env bash
# hardening_test.sh LIBZEM ZEMCTL
#
# What was built is hardened, and the library does nothing before it is called.
set -euo pipefail
export LC_ALL=C
status=0
complain() { echo "$file: $*"; status=1; }

for file; do
    segments=$(readelf -lW "$file") dynamic=$(readelf -dW "$file") needed=$(nm -D --undefined-only "$file")
    grep -q '^ *GNU_RELRO ' <<<"$segments" || complain "no read-only relocations"
    grep -qE '^ *GNU_STACK .* RW +0x' <<<"$segments" || complain "executable stack"
    ! grep -qE '^ *LOAD .* (RWE|R?WE) ' <<<"$segments" || complain "a segment is writable and executable"
    grep -qE '(BIND_NOW|Flags: NOW)' <<<"$dynamic" || complain "bound late"
    ! grep -q TEXTREL <<<"$dynamic" || complain "relocations in the text"
    grep -q '__stack_chk_fail@' <<<"$needed" || complain "no stack protector"
    grep -q '_chk@' <<<"$needed" || complain "no fortified function"
    grep -q 'Type: *DYN ' < <(readelf -h "$file") || complain "placed at a fixed address"
done

file=$1
names=$(nm "$file" 2>/dev/null)
[[ $names ]] || complain "stripped: nothing tells what runs when it is loaded"
initialisers=$(grep -E 'sub_I_|_GLOBAL__I' <<<"$names" || true)
[[ -z $initialisers ]] || complain "runs when it is loaded: $initialisers"
exit "$status"
