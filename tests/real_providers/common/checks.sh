# shellcheck shell=bash
# Checks of a scenario. To be sourced. The first check that fails ends the scenario.

# check TEXT COMMAND...: prints "ok: TEXT" if the command succeeds.
check() {
  local text=$1
  shift
  "$@" || fail "check failed: $text"
  printf 'ok: %s\n' "$text"
}

# Conditions about the last command that was run with cardcert() or converse().
exit_is() {
  [ "$status" -eq "$1" ] || {
    printf 'exit status %d instead of %d; %s\n' "$status" "$1" "$(cat "$dir/out" "$dir/err")" >&2
    return 1
  }
}
stderr_contains() { grep --quiet --fixed-strings -- "$1" "$dir/err"; }
screen_contains() { grep --quiet --fixed-strings -- "$1" "$dir/screen"; }
no_signature() { [ ! -e "$dir/signature" ]; }

# state_is STATE [CARD]: compares the state of a card with, for example, "in, PIN 3, PUK 3".
state_is() { tell_card "${2:-card}" state "$1"; }
