#!/usr/bin/env bash
# install_test.sh BUILD-DIR SOURCE-DIR CXX EXAMPLE.cpp
#
# The installed tree stands alone, wherever it is moved to: other projects find it by CMake and by
# pkg-config, build against its headers and libraries, and run; they and the tool find all libraries
# by their run paths, and the tool's manual page and completions say what its verbs are.
set -euo pipefail
unset LD_LIBRARY_PATH
build=$1 source=$2 cxx=$3 example=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
install_to() {  # PREFIX [CMAKE-ARG...]
    cmake --install "$build" --prefix "$@" >/dev/null
}
files() { (cd "$1" && find . ! -type d | sort); }

# Each component brings its own files, and together they bring all.
install_to "$work/parts" --component zem
! files "$work/parts" | grep -E 'zemctl|softmodem' || { echo "these belong to other components"; exit 1; }
install_to "$work/parts" --component softmodem
! files "$work/parts" | grep zemctl || { echo "these belong to the tool"; exit 1; }
install_to "$work/parts" --component zemctl
install_to "$work/first" --strip
diff <(files "$work/first") <(files "$work/parts") || { echo "these belong to no component"; exit 1; }

prefix=$work/moved
mv "$work/first" "$prefix"
# A folder of the build, as a path of its own or before one of its entries: a checkout at /zem is no part of lib/cmake/zem.
leaks=
for folder in "$source" "$build" "$work"; do
    entries=$(cd "$folder" && printf '\\Q%s\\E|' *)
    leaks+="|(?<![\w./})-])\\Q$folder\\E(?![\w./-])|\\Q$folder\\E/(${entries%|})(?![\w.-])"
done
! LC_ALL=C grep -rlaP "${leaks#|}" "$prefix" || { echo "these name a folder of the build"; exit 1; }

cp -r "$source/tests/consumer" "$work/consumer"
cp "$example" "$work/consumer/example.cpp"
cp -r "$source/platform/stubs" "$work/consumer/stand_ins"
cmake -G Ninja -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer/build" >/dev/null
"$work/consumer/build/alone" >/dev/null

pc=$(find "$prefix" -name zem.pc)
export PKG_CONFIG_PATH=${pc%/*}
pkg-config --atleast-version 0.1 zem
# shellcheck disable=SC2046  # words
"$cxx" -std=c++17 "$example" -o "$work/example" $(pkg-config --cflags --libs zem softmodem) \
    -Wl,-rpath,"$(pkg-config --variable=libdir zem)"
for program in "$work/consumer/build/example" "$work/example"; do
    output=$("$program")
    grep -q '^3GPP:[0-9]* token=.*ApnName=internet,' <<<"$output"
done

export PATH=$prefix/bin:$PATH
page=$prefix/share/man/man1/zemctl.1
warnings=$(groff -man -ww -z -Tascii "$page" 2>&1)
[[ -z $warnings ]] || { echo "$warnings"; exit 1; }
text=$(groff -man -Tascii -P-cbou "$page" | tr -s ' ')
# Each verb of the help, and each option of its own help, is in the page.
verbs=$(zemctl --help | sed -n '/^Profiles/,/^Options/s/^  \([a-z-]*\( [a-z]\+\)\{0,1\}\)  .*/\1/p')
(($(wc -l <<<"$verbs") > 35))
while read -r verb; do
    grep -q "^ $verb" <<<"$text" || { echo "no '$verb' in the page"; exit 1; }
    # shellcheck disable=SC2086  # one word or two
    for option in $(zemctl $verb --help | sed -n 's/^  \(--[a-z0-9-]*\).*/\1/p'); do
        grep -q -e "^ $option" <<<"$text" || { echo "no $option in the page"; exit 1; }
    done
done <<<"$verbs"

# As a new shell takes it up.
bash -c '
    source "$1"
    COMP_LINE="zemctl modem sh" COMP_POINT=15 COMP_WORDS=(zemctl modem sh) COMP_CWORD=2
    _zemctl zemctl
    [[ ${COMPREPLY[*]} == show ]]' _ "$prefix/share/bash-completion/completions/zemctl"
head -1 "$prefix/share/zsh/site-functions/_zemctl" | grep -qx '#compdef zemctl'
