# shellcheck shell=bash
# Somebody at a terminal. To be sourced.

# converse COMMAND... -- PROMPT ANSWER [PROMPT ANSWER]...: runs the command on a terminal of its own and
# types each answer when its prompt has come. The exit status in $status, all that was on the screen in
# $dir/screen.
converse() {
  local command=() offset=0 keyboard pid size
  while [ "$1" != -- ]; do
    command+=("$1")
    shift
  done
  shift
  rm -f "$dir/keyboard" "$dir/screen"
  mkfifo "$dir/keyboard"
  : >"$dir/screen"
  # script takes some seconds to end when it is told to, so it ends with us instead, and the terminal
  # with it.
  setpriv --pdeathsig KILL \
    script --quiet --return --flush --command "$(printf '%q ' "${command[@]}")" "$dir/screen" \
    <"$dir/keyboard" >/dev/null &
  pid=$!
  exec {keyboard}>"$dir/keyboard"
  while [ $# -gt 0 ]; do
    wait_until "the prompt '$1'; the screen: $(cat "$dir/screen")" appears "$1" "$offset"
    size=$(stat --format %s "$dir/screen")
    offset=$size
    printf '%s\n' "$2" >&"$keyboard"
    shift 2
  done
  status=0
  wait $pid || status=$?
  exec {keyboard}>&-
}

# appears TEXT OFFSET
appears() {
  tail --bytes "+$(($2 + 1))" "$dir/screen" | grep --quiet --fixed-strings -- "$1"
}
