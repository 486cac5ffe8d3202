# shellcheck shell=bash
# The helper of a token on another machine dies under a watcher.
. "$here/parts/checks.sh"
server=$started
events() { grep --count "\"event\":\"$1\"" "$dir/watch.log" || true; }
has_seen() { [ "$(events "$1")" -ge "$2" ]; }

# With SIGPIPE as it is at first, so that nothing but the program itself can ignore it.
start watch env --default-signal=PIPE "$build/cardcert" watch --module "$module" --json --interval 0.2
watch=$started
wait_until "the first list" has_seen present ${#certificates[@]}
pkill -KILL -P "$server"
wait_until "the removals" has_seen removed ${#certificates[@]}
check "a watcher whose helper dies sees that the certificates are gone" \
  test "$(events removed)" -eq ${#certificates[@]}
check "... and lives" kill -0 "$watch"
status=0
kill -TERM "$watch"
wait "$watch" || status=$?
check "... until it is told to end" test $status -eq 0
cardcert list --json
check "who opens the provider now sees them again" test "$(jq length "$dir/out")" -eq ${#certificates[@]}
