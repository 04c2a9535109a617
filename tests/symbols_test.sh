#!/usr/bin/env bash
# symbols_test.sh LIBZEM SOURCE-DIR CXX
#
# libzem.so exports what the public headers declare, all of it and nothing else, and needs nothing
# beyond the C++ runtime, the platform's closed libraries, the Android log and what Android's C library has.
set -euo pipefail
export LC_ALL=C
library=$(realpath "$1") source=$(realpath "$2") cxx=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
status=0
complain() {  # TITLE, names on standard input
    local names
    names=$(c++filt)
    [[ -z $names ]] || { echo "$1:"; sed 's/^/    /' <<<"$names"; status=1; }
}

# A constructor or destructor has one declaration and several symbols.
unify() { sed -E 's/([CD])[0-5]E/\14E/'; }

classes=$(sed -nE 's/^class ZEM_EXPORT ([A-Za-z]+).*/\1/p' "$source"/include/zem/*.h)
[[ $classes ]] || { echo "no exported class in the public headers"; exit 1; }
mangled=$(for class in $classes; do echo -n "|${#class}$class"; done)
mangled="3zem(${mangled#|})"

# The debug information of a file with nothing but the public headers knows all declarations.
for header in "$source"/include/zem/*.h; do echo "#include \"$header\""; done >headers.cpp
"$cxx" -std=c++17 -g -O0 -fno-eliminate-unused-debug-types -femit-class-debug-always \
    -fkeep-inline-functions -I "$source/include" -c headers.cpp
readelf --debug-dump=info headers.o | awk '
    function flush() { if (name != "") print name, optional; name = optional = "" }
    /^ *<[0-9a-f]+><[0-9a-f]+>:/ { flush() }
    /DW_AT_linkage_name/ { name = $NF }
    /DW_TAG_variable|DW_AT_(artificial|deleted|defaulted|virtuality)/ { optional = "optional" }
    END { flush() }' | grep -E "^_ZNK?$mangled" | unify | sort -u >declarations
awk '{ print $1 }' declarations | sort -u >declared

# Those that are defined inline need no export, nor does what the compiler may supply; virtual
# functions, which may be pure, are required through their tables.
nm --defined-only headers.o | awk '{ print $NF }' | unify | sort -u >inline
{
    awk '!$2 { print $1 }' declarations | sort -u | comm -23 - inline
    nm --undefined-only headers.o | awk '{ print $NF }' | grep -E "^_ZT[VI]N${mangled}E$"
} | sort -u >required

nm -D --defined-only "$library" | awk '{ print $NF }' | unify | sort -u >exported
grep -vE "^_ZT[VIS]N${mangled}E$" exported >members || true

[[ -s required && -s members ]] || { echo "found no declarations or no exports"; exit 1; }
complain "exported, but in no public header" < <(comm -13 declared members)
complain "declared in a public header, but not exported" < <(comm -23 required exported)

# C and C++ runtime symbols carry their library's version; some hooks of the linker have none.
grep -hoE '\b(zap|wds|diag)_[a-z0-9_]+\(' "$source"/platform/include/*.h | tr -d '(' >platform
echo __android_log_print >>platform
nm -D --undefined-only "$library" | awk '{ print $NF }' |
    grep -vE '@(GLIBCXX|CXXABI|GCC)_|^_ITM_|^__gmon_start__$' | sort -u >needed
complain "needed, but no platform interface" < <(grep -v '@GLIBC_' needed | comm -23 - <(sort -u platform))
complain "needed of the C library, but not in tests/bionic.txt" \
    < <(sed -n 's/@GLIBC_.*//p' needed | comm -23 - <(sort "$source/tests/bionic.txt"))
exit "$status"
