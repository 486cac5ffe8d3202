# shellcheck shell=bash
# pkcs11-spy around SoftHSM.
. "$here/providers/softhsm.sh"
. "$here/common/spy.sh"
eval "$(declare -f set_up | sed '1s/set_up/set_up_softhsm/')"

set_up() {
  set_up_softhsm
  spy_on "$softhsm"
}
