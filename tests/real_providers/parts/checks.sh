# shellcheck shell=bash
# Checks of a story, one line each. To be sourced. The first that fails ends the story.

# check TEXT COMMAND...
check() {
  local text=$1
  shift
  "$@" || fail "not so: $text"
  printf 'ok: %s\n' "$text"
}

exit_is() {
  [ "$status" -eq "$1" ] || {
    printf 'exit status %d instead of %d; %s\n' "$status" "$1" "$(cat "$dir/out" "$dir/err")" >&2
    return 1
  }
}
said() { grep --quiet --fixed-strings -- "$1" "$dir/err"; }
on_screen() { grep --quiet --fixed-strings -- "$1" "$dir/screen"; }
state_is() { card "${2:-card}" state "$1"; }
