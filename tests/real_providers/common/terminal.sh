# shellcheck shell=bash
# A user at a terminal. To be sourced.

# converse COMMAND... -- PROMPT ANSWER [PROMPT ANSWER]...: runs the command in a terminal of its own and
# types each ANSWER when its PROMPT has appeared. Sets $status to the exit status and writes everything
# that was on the screen to $dir/screen.
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
  # script(1) takes some seconds to end after a signal, so the kernel kills it together with this
  # script, and the terminal disappears with it.
  setpriv --pdeathsig KILL \
    script --quiet --return --flush --command "$(printf '%q ' "${command[@]}")" "$dir/screen" \
    <"$dir/keyboard" >/dev/null &
  pid=$!
  exec {keyboard}>"$dir/keyboard"
  while [ $# -gt 0 ]; do
    wait_until "the prompt '$1'; the screen shows: $(cat "$dir/screen")" appears "$1" "$offset"
    size=$(stat --format %s "$dir/screen")
    offset=$size
    printf '%s\n' "$2" >&"$keyboard"
    shift 2
  done
  status=0
  wait $pid || status=$?
  exec {keyboard}>&-
}

# appears TEXT OFFSET: succeeds if the screen shows TEXT behind its first OFFSET bytes.
appears() {
  tail --bytes "+$(($2 + 1))" "$dir/screen" | grep --quiet --fixed-strings -- "$1"
}
