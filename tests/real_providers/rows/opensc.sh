# shellcheck shell=bash
# OpenSC with a PIV card in a virtual reader.
. "$here/parts/card.sh"

set_up() {
  start_readers
  insert_piv_card
  module=$opensc
  take_away "$pull_out"
  bring_back "$put_in"
}
