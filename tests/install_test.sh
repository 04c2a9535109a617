#!/usr/bin/env bash
# install_test.sh BUILD-DIR CXX EXAMPLE.cpp
#
# The installed tree stands alone: a program builds against its headers and libraries, both that
# program and the tool find all libraries by their run paths, and the tool's manual page and
# completions say what its verbs are.
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
