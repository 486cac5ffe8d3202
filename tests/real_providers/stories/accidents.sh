# shellcheck shell=bash
# What goes wrong with cards.
. "$here/parts/checks.sh"
# pcscd looks at its readers every 0.4 s. A card that left without a word needs as long to be missed.
missed() { sleep 1; }
printf 'a message' >"$dir/message"
no_signature() { [ ! -e "$dir/signature" ]; }

card card remove-on-sign will
sign_with "$pin" anna sha256
check "a card pulled out in the middle of a signature: failed" exit_is 1
check "... with a reason" said "Signature operation failed"
check "... and nothing is written" no_signature
check "... and the card is out" state_is "out, PIN 3, PUK 3"
cardcert present "$(serial_of anna)"
check "its certificate is not present" exit_is 4
missed
card card insert inserted
sign_with "$pin" anna sha256
check "put in again it signs" exit_is 0
check "... and openssl verifies it" verify anna sha256
rm "$dir/signature"

card card "remove-on 20" will
sign_with "$pin" anna sha256
check "pulled out at the question for the PIN's state: failed" exit_is 1
check "... and nothing is written" no_signature
check "... and no try is lost" state_is "out, PIN 3, PUK 3"
missed
card card insert inserted

card card "remove-on cb" will
sign_with "$pin" anna sha256
check "pulled out while its certificates are read: there is no such certificate" exit_is 4
missed
card card insert inserted

sign_with "$pin" carl sha256
check "the key that wants the PIN again right before each signature: failed" exit_is 1
check "... with CKR_USER_NOT_LOGGED_IN" said "Signature operation failed (257)"
check "... and without a try lost" state_is "in, PIN 3, PUK 3"

start_card blank 1 --blank
card blank insert inserted
cardcert list --json
check "beside a card that no driver knows the other one is listed" exit_is 0
check "... whole" test "$(jq length "$dir/out")" -eq ${#certificates[@]}
card card remove removed
sleep 0.1
began=${EPOCHREALTIME/./}
cardcert list
took=$(((${EPOCHREALTIME/./} - began) / 1000))
check "alone it has no certificates, which took $took ms to find out" exit_is 0
check "... and says so" said "no certificates"
card blank remove removed
sleep 0.1

start_card second 1 --state "$dir/second.state" --key 9A "$keys/ca.key" "$keys/ca.pem"
card second insert inserted
card card insert inserted
cardcert list --json
check "two cards in two readers are listed with their readers" \
  test "$(jq -r '.[].slot' "$dir/out" | sort | uniq -c | tr -s ' ' | tr '\n' ';')" = \
  " 4 Virtual PCD 00 00; 1 Virtual PCD 00 01;"
sign_with "$pin" anna sha256
check "the first one signs" exit_is 0
card card remove removed
sleep 0.1
sign_with "$pin" ca sha256
check "the second one goes on when the first is out" exit_is 0
check "... and openssl verifies it" verify ca sha256
