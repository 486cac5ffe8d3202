# shellcheck shell=bash
# SoftHSM through p11-kit's proxy.
. "$here/common/softhsm.sh"
. "$here/common/p11-kit.sh"

set_up() {
  make_softhsm_token
  use_proxy "module: $softhsm"
  remove_token_with 'mv tokens tokens.away'
  restore_token_with 'mv tokens.away tokens'
}
