# shellcheck shell=bash
# The same, with a helper that hangs for a second and a half instead of dying.
. "$here/rows/p11-kit-client.sh"
eval "$(declare -f set_up | sed '1s/set_up/set_up_client/')"

set_up() {
  set_up_client
  take_away "pkill -STOP -P $started; (sleep 1.5; pkill -CONT -P $started) >/dev/null 2>&1 &"
  behaviours=(steps)
}
