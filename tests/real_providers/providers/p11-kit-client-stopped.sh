# shellcheck shell=bash
# Like p11-kit-client, but the helper process hangs for 1.5 seconds instead of dying.
. "$here/providers/p11-kit-client.sh"
eval "$(declare -f set_up | sed '1s/set_up/set_up_client/')"

set_up() {
  set_up_client
  remove_token_with "pkill -STOP -P $started; (sleep 1.5; pkill -CONT -P $started) >/dev/null 2>&1 &"
  behaviours=(steps)
}
