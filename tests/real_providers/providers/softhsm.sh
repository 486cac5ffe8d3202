# shellcheck shell=bash
# SoftHSM, whose token is a folder.
. "$here/common/softhsm.sh"

set_up() {
  make_softhsm_token
  module=$softhsm
  remove_token_with 'mv tokens tokens.away'
  restore_token_with 'mv tokens.away tokens'
}
