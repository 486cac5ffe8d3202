# shellcheck shell=bash
# The p11-kit server's helper process dies while `cardcert watch` uses it.
. "$here/common/checks.sh"
server=$started
events() { grep --count "\"event\":\"$1\"" "$dir/watch.log" || true; }
has_events() { [ "$(events "$1")" -ge "$2" ]; }

# With the default action of SIGPIPE, so that only the program itself can ignore the signal.
start watch env --default-signal=PIPE "$build/cardcert" watch --module "$module" --json --interval 0.2
watch=$started
wait_until "the first list" has_events present ${#certificates[@]}
pkill -KILL -P "$server"
wait_until "the removals" has_events removed ${#certificates[@]}
check "watch reports that the certificates are removed" \
  test "$(events removed)" -eq ${#certificates[@]}
check "... it still runs" kill -0 "$watch"
status=0
kill -TERM "$watch"
wait "$watch" || status=$?
check "... it ends when it is asked to" test $status -eq 0
cardcert list --json
check "a new process lists the certificates" test "$(jq length "$dir/out")" -eq ${#certificates[@]}
