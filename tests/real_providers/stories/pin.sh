# shellcheck shell=bash
# A wrong PIN, the warning before the last try, the lock, the unlock with the PUK, the new PIN.
. "$here/parts/checks.sh"
. "$here/parts/conversation.sh"
serial=$(serial_of anna)
printf 'a message' >"$dir/message"
sign=("$build/cardcert" sign "$serial" --module "$module" --in "$dir/message" --out "$dir/signature")
no_signature() { [ ! -e "$dir/signature" ]; }

converse "${sign[@]}" -- "PIN: " ""
check "a person who enters nothing cancels" exit_is 6
check "... which costs no try" state_is "in, PIN 3, PUK 3"
check "... and writes nothing" no_signature

sign_with 111111 anna sha256
check "a script's wrong PIN costs a try" exit_is 7
check "... and only one" state_is "in, PIN 2, PUK 3"
sign_with 222222 anna sha256
check "another one too" exit_is 7
sign_with "$pin" anna sha256
check "the last try is held back, though this PIN is right" exit_is 9
check "... and the card was not asked" state_is "in, PIN 1, PUK 3"
check "nothing was written" no_signature

converse "${sign[@]}" -- "PIN: " 333333 "[y/N] " n
check "a person is warned before the last try" on_screen "cardcert: warning: this is the last try"
check "... and told that the PIN is locked" on_screen "cardcert: error: the PIN is locked"
check "... and need not unlock it" exit_is 8
check "the card has locked itself" state_is "in, PIN 0, PUK 3"
card card remove removed
sleep 0.1
card card insert inserted
check "... and stays so when it is taken out" state_is "in, PIN 0, PUK 3"

sign_with "$pin" anna sha256
check "a script is told that the PIN is locked" exit_is 8
converse "${sign[@]}" -- "[y/N] " y "SO PIN (PUK): " 11111111 "SO PIN (PUK): " "$so_pin" \
  "ew PIN: " "$new_pin" "once more: " "$new_pin" "PIN: " "$new_pin"
check "a person unlocks it: a wrong PUK, the right one, a new PIN twice, the new PIN" exit_is 0
check "... and has a signature that openssl verifies" verify anna sha256
check "the card counts from three again" state_is "in, PIN 3, PUK 3"
rm "$dir/signature"
sign_with "$new_pin" anna sha256
check "a script signs with the new PIN" exit_is 0
rm "$dir/signature"
for _ in 1 2 3; do
  probe lock 999999 12 >/dev/null
done
printf '%s\n' "$so_pin" >"$dir/so"
printf '%s\n' "$pin" >"$dir/new"
cardcert sign "$serial" --in "$dir/message" --out "$dir/signature" --pin-file "$dir/pin" \
  --so-pin-file "$dir/so" --new-pin-file "$dir/new"
check "a script that has the PUK unlocks and signs, too" exit_is 0
check "... and openssl verifies it" verify anna sha256
