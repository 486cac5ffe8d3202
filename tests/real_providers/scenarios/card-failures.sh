# shellcheck shell=bash
# Cards that are removed at the wrong moment, keys that cannot be used, unknown cards, two cards.
. "$here/common/checks.sh"
# pcscd polls its readers every 0.4 s. It notices that a card disappeared on its own only then.
wait_for_pcscd() { sleep 1; }
printf 'a message' >"$dir/message"

tell_card card remove-on-sign armed
sign_with "$pin" anna sha256
check "card removed during the signature: sign fails" exit_is 1
check "... the reason is shown" stderr_contains "Signature operation failed"
check "... no signature is written" no_signature
check "... the card is out" state_is "out, PIN 3, PUK 3"
cardcert present "$(serial_of anna)"
check "... the certificate is not present" exit_is 4
wait_for_pcscd
tell_card card insert inserted
sign_with "$pin" anna sha256
check "card inserted again: sign succeeds" exit_is 0
check "... openssl verifies the signature" verify anna sha256
rm "$dir/signature"

tell_card card "remove-on 20" armed
sign_with "$pin" anna sha256
check "card removed when its PIN counter is read: sign fails" exit_is 1
check "... no signature is written" no_signature
check "... no try is used up" state_is "out, PIN 3, PUK 3"
wait_for_pcscd
tell_card card insert inserted

tell_card card "remove-on cb" armed
sign_with "$pin" anna sha256
check "card removed while its certificates are read: the certificate is not found" exit_is 4
wait_for_pcscd
tell_card card insert inserted

sign_with "$pin" carl sha256
check "key that needs the PIN right before each signature: sign fails" exit_is 1
check "... with CKR_USER_NOT_LOGGED_IN" stderr_contains "Signature operation failed (257)"
check "... no try is used up" state_is "in, PIN 3, PUK 3"

start_card blank 1 --blank
tell_card blank insert inserted
cardcert list --json
check "a card that no driver recognises in the second slot: list succeeds" exit_is 0
check "... the certificates of the other card are listed" \
  test "$(jq length "$dir/out")" -eq ${#certificates[@]}
tell_card card remove removed
sleep 0.1
began=${EPOCHREALTIME/./}
cardcert list
took=$(((${EPOCHREALTIME/./} - began) / 1000))
check "only a card that no driver recognises: list succeeds within $took ms" exit_is 0
check "... it says that there are no certificates" stderr_contains "no certificates"
tell_card blank remove removed
sleep 0.1

start_card second 1 --state "$dir/second.state" --key 9A "$keys/ca.key" "$keys/ca.pem"
tell_card second insert inserted
tell_card card insert inserted
cardcert list --json
check "two cards are listed, each with its reader" \
  test "$(jq -r '.[].slot' "$dir/out" | sort | uniq -c | tr -s ' ' | tr '\n' ';')" = \
  " 4 Virtual PCD 00 00; 1 Virtual PCD 00 01;"
sign_with "$pin" anna sha256
check "... the first one signs" exit_is 0
tell_card card remove removed
sleep 0.1
sign_with "$pin" ca sha256
check "... the second one signs after the first one was removed" exit_is 0
check "... openssl verifies the signature" verify ca sha256
