# shellcheck shell=bash
# A virtual reader with two slots, and our cards in them. To be sourced.
emulated_card=$build/emulated_card

# start_readers: pcscd with one virtual reader. The port of its first slot is in $reader_port.
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

# start_card NAME SLOT OPTION...: a card that lies beside the reader's slot (0 or 1).
start_card() {
  local name=$1 slot=$2
  shift 2
  start "$name" "$emulated_card" --port $((reader_port + slot)) --control "$dir/$name" "$@"
  wait_until "the card $name" test -S "$dir/$name"
}

# card NAME ORDER ANSWER: the answer must be this one.
card() {
  local answer
  answer=$("$emulated_card" --tell "$dir/$1" "$2") || fail "the card $1 does not answer"
  [ "$answer" = "$3" ] || fail "$1, $2: '$answer' instead of '$3'"
}

piv_options() {
  printf '%s\n' --state "$dir/$1.state" --pin 123456 --puk 12345678 \
    --key 9A "$keys/anna.key" "$keys/anna.pem" --key 9C "$keys/carl.key" "$keys/carl.pem" \
    --key 9D "$keys/ben.key" "$keys/ben.pem" --key 9E "$keys/dora.key" "$keys/dora.pem"
}

insert_piv_card() {
  local options
  mapfile -t options < <(piv_options card)
  start_card card 0 "${options[@]}"
  card card insert inserted
  pin=123456 so_pin=12345678 new_pin=654321
  certificates=(anna ben carl dora)
  signers=(anna ben dora)
}

# What pulls the card out and puts it in again, for take_away and bring_back.
pull_out="'$emulated_card' --tell '$dir/card' remove; sleep 0.1"
put_in="'$emulated_card' --tell '$dir/card' insert; sleep 0.1"
