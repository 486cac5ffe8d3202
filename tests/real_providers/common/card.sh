# shellcheck shell=bash
# A virtual card reader with two slots, and emulated cards. To be sourced.
emulated_card=$build/emulated_card

# start_readers: starts pcscd with a virtual reader. Sets $reader_port to the port of the first slot and
# $opensc to OpenSC's library.
start_readers() {
  reader_port=$(free_ports)
  mkdir -p "$dir/readers" /run/pcscd
  cat >"$dir/readers/virtual" <<END
FRIENDLYNAME "Virtual PCD"
DEVICENAME /dev/null:0x$(printf %X "$reader_port")
LIBPATH $(find_library /usr/lib/pcsc/drivers/serial/libifdvpcd.so)
CHANNELID 0x$(printf %X "$reader_port")
END
  start pcscd pcscd --foreground --config "$dir/readers"
  wait_until "the virtual reader" listens "$reader_port"
  wait_until "pcscd's socket" test -S /run/pcscd/pcscd.comm
  cat >"$dir/opensc.conf" <<'END'
app default {
  card_drivers = PIV-II;
  framework pkcs15 { use_file_caching = no; }
}
app opensc-pkcs11 {
  pkcs11 { user_pin_unblock_style = init_pin_in_so_session; }
}
END
  export OPENSC_CONF=$dir/opensc.conf
  opensc=$(find_library "$multiarch/opensc-pkcs11.so")
}

# start_card NAME SLOT OPTION...: starts a card for a slot of the reader (0 or 1). It is not inserted.
start_card() {
  local name=$1 slot=$2
  shift 2
  start "$name" "$emulated_card" --port $((reader_port + slot)) --control "$dir/$name" "$@"
  wait_until "the card $name" test -S "$dir/$name"
}

# tell_card NAME COMMAND ANSWER: sends a command to a card and fails if the answer is another one.
tell_card() {
  local answer
  answer=$("$emulated_card" --send "$dir/$1" "$2") || fail "the card $1 does not answer"
  [ "$answer" = "$3" ] || fail "card $1, command $2: '$answer' instead of '$3'"
}

# piv_options NAME: prints the options of a PIV card with four keys, one word on each line.
piv_options() {
  printf '%s\n' --state "$dir/$1.state" --pin 123456 --puk 12345678 \
    --key 9A "$keys/anna.key" "$keys/anna.pem" --key 9C "$keys/carl.key" "$keys/carl.pem" \
    --key 9D "$keys/ben.key" "$keys/ben.pem" --key 9E "$keys/dora.key" "$keys/dora.pem"
}

# insert_piv_card: inserts a card into the first slot and describes it for behaviours.sh.
insert_piv_card() {
  local options
  mapfile -t options < <(piv_options card)
  start_card card 0 "${options[@]}"
  tell_card card insert inserted
  pin=123456 so_pin=12345678 new_pin=654321
  certificates=(anna ben carl dora)
  signers=(anna ben dora)
}

# The commands for remove_token_with and restore_token_with.
remove_card="'$emulated_card' --send '$dir/card' remove; sleep 0.1"
insert_card="'$emulated_card' --send '$dir/card' insert; sleep 0.1"
