# shellcheck shell=bash
# SoftHSM beside OpenSC with a card, in two modules of one process.
. "$here/parts/checks.sh"
. "$here/parts/softhsm.sh"
make_softhsm_token
signers=(anna)
answer=$(probe pair "$softhsm" "$(serial_of ben)" "$pin" "$pin" "$dir/take-away")
expected="4 and 2, signed and signed; 2, signed; 4, signed; noticed and not noticed, 0 and 2"
check "$expected" test "$answer" = "$expected"
