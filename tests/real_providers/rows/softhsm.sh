# shellcheck shell=bash
# SoftHSM: a token that is a folder.
. "$here/parts/softhsm.sh"

set_up() {
  make_softhsm_token
  module=$softhsm
  take_away 'mv tokens tokens.away'
  bring_back 'mv tokens.away tokens'
}
