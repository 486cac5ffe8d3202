# shellcheck shell=bash
# OpenSC with a card and SoftHSM, in two modules of one process.
. "$here/common/checks.sh"
. "$here/common/softhsm.sh"
make_softhsm_token
signers=(anna)
answer=$(probe pair "$softhsm" "$(serial_of ben)" "$pin" "$pin" "$dir/remove-token")
expected="4 and 2, signed and signed; 2, signed; 4, signed; noticed and not noticed, 0 and 2"
check "both list, sign and notice only changes of their own: $expected" test "$answer" = "$expected"
