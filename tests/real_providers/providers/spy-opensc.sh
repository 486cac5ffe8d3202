# shellcheck shell=bash
# pkcs11-spy around OpenSC with a PIV card.
. "$here/providers/opensc.sh"
. "$here/common/spy.sh"
eval "$(declare -f set_up | sed '1s/set_up/set_up_opensc/')"

set_up() {
  set_up_opensc
  spy_on "$opensc"
}
