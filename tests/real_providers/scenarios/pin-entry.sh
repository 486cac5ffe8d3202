# shellcheck shell=bash
# Wrong PINs, the warning before the last try, a locked PIN, unlocking with the PUK, a new PIN.
. "$here/common/checks.sh"
. "$here/common/terminal.sh"
serial=$(serial_of anna)
printf 'a message' >"$dir/message"
sign=("$build/cardcert" sign "$serial" --module "$module" --in "$dir/message" --out "$dir/signature")

converse "${sign[@]}" -- "PIN: " ""
check "a user who enters no PIN cancels" exit_is 6
check "... no try is used up" state_is "in, PIN 3, PUK 3"
check "... no signature is written" no_signature

sign_with 111111 anna sha256
check "a wrong PIN from a file: sign fails" exit_is 7
check "... one try is used up" state_is "in, PIN 2, PUK 3"
sign_with 222222 anna sha256
check "a second wrong PIN: sign fails" exit_is 7
sign_with "$pin" anna sha256
check "the last try: a PIN from a file is not used, even if it is right" exit_is 9
check "... no try is used up" state_is "in, PIN 1, PUK 3"
check "... no signature is written" no_signature

converse "${sign[@]}" -- "PIN: " 333333 "[y/N] " n
check "a user is warned before the last try" screen_contains "cardcert: warning: this is the last try"
check "... after it, the user is told that the PIN is locked" screen_contains "cardcert: error: the PIN is locked"
check "... the user need not unlock it" exit_is 8
check "... the card has locked the PIN" state_is "in, PIN 0, PUK 3"
tell_card card remove removed
sleep 0.1
tell_card card insert inserted
check "the PIN stays locked when the card is removed and inserted" state_is "in, PIN 0, PUK 3"

sign_with "$pin" anna sha256
check "a PIN from a file: sign reports that the PIN is locked" exit_is 8
converse "${sign[@]}" -- "[y/N] " y "SO PIN (PUK): " 11111111 "SO PIN (PUK): " "$so_pin" \
  "ew PIN: " "$new_pin" "once more: " "$new_pin" "PIN: " "$new_pin"
check "a user unlocks the PIN: a wrong PUK, the right one, the new PIN twice, then sign succeeds" exit_is 0
check "... openssl verifies the signature" verify anna sha256
check "... the counters are reset" state_is "in, PIN 3, PUK 3"
rm "$dir/signature"
sign_with "$new_pin" anna sha256
check "the new PIN from a file: sign succeeds" exit_is 0
rm "$dir/signature"
for _ in 1 2 3; do
  probe lock 999999 12 >/dev/null
done
umask 077
printf '%s\n' "$so_pin" >"$dir/so"
printf '%s\n' "$pin" >"$dir/new"
cardcert sign "$serial" --in "$dir/message" --out "$dir/signature" --pin-file "$dir/pin" \
  --so-pin-file "$dir/so" --new-pin-file "$dir/new"
check "the PUK from a file is not tried, because the card does not report its tries" exit_is 9
check "... and costs no try" state_is "in, PIN 0, PUK 3"
cardcert sign "$serial" --in "$dir/message" --out "$dir/signature" --pin-file "$dir/pin" \
  --so-pin-file "$dir/so" --new-pin-file "$dir/new" --allow-unreported-tries
check "the PUK and a new PIN from files: sign unlocks the PIN and succeeds" exit_is 0
check "... openssl verifies the signature" verify anna sha256
