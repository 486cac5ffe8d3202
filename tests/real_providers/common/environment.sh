# shellcheck shell=bash
# The environment of one test: a temporary folder, daemons in it, and their clean-up. To be sourced by a
# script that runs in a mount namespace of its own (see run and scripts/demo_card).
#
# $dir is the folder. When the script ends, for whatever reason, the daemons are ended and then the
# folder is removed. If the script is killed, the kernel ends the daemons (--pdeathsig).

dir=$(mktemp -d)
daemons=()
created_folder= # A folder outside of $dir that has to be removed, too.

clean_up() {
  local pid
  for pid in "${daemons[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  for pid in "${daemons[@]}"; do
    ends_within 50 "$pid" || kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$dir" ${created_folder:+"$created_folder"}
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

fail() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit 1
}

# ends_within TENTHS PID: waits until the process has ended or is a zombie, for so many tenths of a
# second.
ends_within() {
  local left=$1 state
  while state=$(ps -o state= -p "$2") && [ "${state:0:1}" != Z ]; do
    [ $((left -= 1)) -ge 0 ] || return 1
    sleep 0.1
  done
}

# start NAME COMMAND...: starts a daemon. Its output goes to $dir/NAME.log, its process ID to $started.
start() {
  local name=$1
  shift
  setpriv --pdeathsig KILL "$@" >"$dir/$name.log" 2>&1 </dev/null &
  started=$!
  daemons=("$started" "${daemons[@]}")
}

# start_respawning NAME COMMAND...: starts a daemon that is started again whenever it ends, unless the
# file $dir/NAME.away exists. Its process ID is in $dir/NAME.pid.
start_respawning() {
  # shellcheck disable=SC2016 # The inner shell expands the variables.
  start "$1" bash -c '
    file=$1
    shift
    trap "kill \$!; exit" TERM
    while :; do
      if [ -e "$file.away" ]; then
        sleep 0.05
      else
        setpriv --pdeathsig KILL "$@" &
        echo $! >"$file.pid"
        wait $! || true
      fi
    done' respawn "$dir/$1" "${@:2}"
}

# wait_until DESCRIPTION COMMAND...: waits until the command succeeds. Fails after ten seconds.
wait_until() {
  local description=$1 left=200
  shift
  until "$@"; do
    [ $((left -= 1)) -gt 0 ] || fail "timed out waiting for $description"
    sleep 0.05
  done
}

# listens PORT: succeeds if a process listens on the TCP port. Does not connect, because some daemons
# would take that for a client.
listens() {
  grep -q "^ *[0-9]*: [0-9A-F]*:$(printf %04X "$1") [0-9A-F]*:0000 0A" /proc/net/tcp
}

# free_ports: prints the first of two consecutive TCP ports on which no process listens. They are outside
# of the range from which the kernel assigns ports.
free_ports() {
  local port
  while port=$((20000 + RANDOM % 12000)); do
    listens "$port" || listens $((port + 1)) || break
  done
  printf '%s\n' "$port"
}

# use_private_run: mounts empty folders on /run and /dev/shm, where daemons have fixed paths. Needs a
# mount namespace.
use_private_run() {
  mkdir "$dir/run" "$dir/shm"
  mkdir -p "$dir/run/lock"
  chmod 1777 "$dir/shm"
  mount --bind "$dir/run" /run
  mount --bind "$dir/shm" /dev/shm
}

# use_system_run: uses the machine's /run instead, where mount namespaces are not allowed. Fails if a
# pcscd runs already.
use_system_run() {
  [ ! -e /run/pcscd/pcscd.comm ] ||
    fail "pcscd is already running, and mount namespaces are not allowed; stop pcscd and try again"
  [ -w /run ] || fail "cannot write to /run, and mount namespaces are not allowed; run this as root"
  [ -e /run/pcscd ] || created_folder=/run/pcscd
}

# find_library PATH...: prints the first path that exists.
find_library() {
  local path
  for path in "$@"; do
    [ ! -e "$path" ] || { printf '%s\n' "$path" && return; }
  done
  fail "library not found: $*"
}
multiarch=/usr/lib/$(gcc -print-multiarch 2>/dev/null || dpkg-architecture -qDEB_HOST_MULTIARCH)
