# shellcheck shell=bash
# The setting of one row: a temporary folder, the daemons in it, and an end to all of it.
# To be sourced by a script that runs in a mount namespace of its own (see run and ./demo).
#
# $dir is the folder. Whatever way the script ends, the daemons are ended first, by process id, and
# then the folder goes. Should the script itself be killed, the kernel ends them (--pdeathsig).

dir=$(mktemp -d)
daemons=()
borrowed= # a folder outside of $dir that is ours to remove

clean_up() {
  local pid
  for pid in "${daemons[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  for pid in "${daemons[@]}"; do
    gone_within 50 "$pid" || kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$dir" ${borrowed:+"$borrowed"}
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

fail() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit 1
}

# gone_within TENTHS PID: a zombie counts as gone.
gone_within() {
  local left=$1 state
  while state=$(ps -o state= -p "$2") && [ "${state:0:1}" != Z ]; do
    [ $((left -= 1)) -ge 0 ] || return 1
    sleep 0.1
  done
}

# start NAME COMMAND...: runs a daemon, its words in $dir/NAME.log, its process id in $started.
start() {
  local name=$1
  shift
  setpriv --pdeathsig KILL "$@" >"$dir/$name.log" 2>&1 </dev/null &
  started=$!
  daemons=("$started" "${daemons[@]}")
}

# start_again NAME COMMAND...: the same for a daemon that comes back when it has been killed, as soon as
# there is no file $dir/NAME.away. Its process id is in $dir/NAME.pid.
start_again() {
  # shellcheck disable=SC2016 # For the inner shell.
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

# wait_until WHAT COMMAND...: for at most ten seconds.
wait_until() {
  local what=$1 left=200
  shift
  until "$@"; do
    [ $((left -= 1)) -gt 0 ] || fail "waited in vain: $what"
    sleep 0.05
  done
}

# listens PORT: read from a table, since some would take a connection for business.
listens() {
  grep -q "^ *[0-9]*: [0-9A-F]*:$(printf %04X "$1") [0-9A-F]*:0000 0A" /proc/net/tcp
}

# free_ports: the first of two ports in a row that nobody listens on, outside of the range that the
# kernel gives out by itself.
free_ports() {
  local port
  while port=$((20000 + RANDOM % 12000)); do
    listens "$port" || listens $((port + 1)) || break
  done
  printf '%s\n' "$port"
}

# private_run: an empty /run (and /dev/shm) of our own, where daemons find their fixed places.
private_run() {
  mkdir "$dir/run" "$dir/shm"
  mkdir -p "$dir/run/lock"
  chmod 1777 "$dir/shm"
  mount --bind "$dir/run" /run
  mount --bind "$dir/shm" /dev/shm
}

# borrow_run: for those who may not have mounts of their own. The machine's /run, as long as nobody else
# runs a pcscd there.
borrow_run() {
  [ ! -e /run/pcscd/pcscd.comm ] || fail "a pcscd runs already, and mounts of our own are not allowed"
  [ -w /run ] || fail "run this as root: neither mounts of our own nor writing to /run is allowed"
  [ -e /run/pcscd ] || borrowed=/run/pcscd
}

# find_library PATH...: the first that exists.
find_library() {
  local path
  for path in "$@"; do
    [ ! -e "$path" ] || { printf '%s\n' "$path" && return; }
  done
  fail "there is none of: $*"
}
multiarch=/usr/lib/$(gcc -print-multiarch 2>/dev/null || dpkg-architecture -qDEB_HOST_MULTIARCH)
