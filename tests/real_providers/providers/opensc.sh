# shellcheck shell=bash
# OpenSC with a PIV card in a virtual reader.
. "$here/common/card.sh"

set_up() {
  start_readers
  insert_piv_card
  module=$opensc
  remove_token_with "$remove_card"
  restore_token_with "$insert_card"
}
