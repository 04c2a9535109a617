#!/usr/bin/env bash
# syscalls_test.sh TRACED-REQUESTS
#
# A request costs one write to the engine's descriptor, one wait for it, two reads until it is empty, and
# what the two threads need to wait for each other; all its log lines together cost nothing.
set -euo pipefail
export LC_ALL=C
requests=1000

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
strace -f -qq -o "$work/trace" true 2>/dev/null || { echo "no process may be traced here"; exit 77; }

status=0
for zone in UTC ""; do
    # Without TZ the zone's file is looked at, once a second at the most.
    env -u TZ ${zone:+TZ=$zone} strace -f -qq -o "$work/trace" "$1" >/dev/null
    awk -v requests=$requests -v zone="$zone" '
        / resumed>/ || !/^[0-9]+ +[a-z_0-9]+\(/ { next }
        { name = $2; sub(/\(.*/, "", name) }
        name == "getppid" { if (++marks % 2) delete count; else check(); next }
        { ++count[name] }
        function check(    n, waits, wrong) {
            waits = count["epoll_wait"] + count["epoll_pwait"]  # the first or last may be on the other side of a mark
            wrong = count["write"] != requests || waits < requests - 1 || waits > requests + 1 ||
                    count["read"] != 2 * requests || count["futex"] < requests || count["futex"] > 6 * requests
            for (n in count)
                if (n !~ /^(write|epoll_wait|epoll_pwait|read|futex)$/ &&
                    !((n == "newfstatat" || n == "openat") && zone == "" && count[n] < 60))  # openat: there is no such file
                    wrong = 1
            if (!wrong) return
            printf "TZ=%s, kind %d of request, %d times:", zone, marks / 2, requests
            for (n in count) printf " %s %d", n, count[n]
            print ""
            failed = 1
        }
        END { if (marks != 6) { print "traced " marks + 0 " marks"; failed = 1 }; exit failed }' "$work/trace" || status=1
done
exit $status
