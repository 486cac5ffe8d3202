# shellcheck shell=bash
# `cardcert watch` reports each of 30 insertions and 30 removals.
. "$here/common/checks.sh"
times=30

events() { grep --count "^{\"certificate\".*\"event\":\"$1\"\|^{\"event\":\"$1\"" "$dir/watch.log" || true; }
has_events() { [ "$(events "$1")" -ge "$2" ]; }

tell_card card remove removed
start watch "$build/cardcert" watch --module "$module" --json --interval 0.1
watch=$started
sleep 1
slowest=0
for ((i = 1; i <= times; i++)); do
  began=${EPOCHREALTIME/./}
  tell_card card insert inserted
  wait_until "insertion $i" has_events added $((i * ${#certificates[@]}))
  took=$(((${EPOCHREALTIME/./} - began) / 1000))
  slowest=$((took > slowest ? took : slowest))
  tell_card card remove removed
  wait_until "removal $i" has_events removed $((i * ${#certificates[@]}))
done
status=0
kill -TERM "$watch"
wait "$watch" || status=$?
check "watch ends when it is asked to" test $status -eq 0
check "it reported $times insertions of ${#certificates[@]} certificates, each once; the slowest took $slowest ms" \
  test "$(events added)" -eq $((times * ${#certificates[@]}))
check "it reported $times removals, each once" \
  test "$(events removed)" -eq $((times * ${#certificates[@]}))
check "it printed nothing else" test "$(grep --count --invert-match '^{' "$dir/watch.log")" -le 1
