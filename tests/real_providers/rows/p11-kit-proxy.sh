# shellcheck shell=bash
# SoftHSM through p11-kit's proxy.
. "$here/parts/softhsm.sh"
. "$here/parts/p11-kit.sh"

set_up() {
  make_softhsm_token
  use_proxy "module: $softhsm"
  take_away 'mv tokens tokens.away'
  bring_back 'mv tokens.away tokens'
}
