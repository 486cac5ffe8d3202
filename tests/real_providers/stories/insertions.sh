# shellcheck shell=bash
# 30 insertions and 30 removals, and `cardcert watch` sees every one.
. "$here/parts/checks.sh"
times=30

events() { grep --count "^{\"certificate\".*\"event\":\"$1\"\|^{\"event\":\"$1\"" "$dir/watched" || true; }
has_seen() { [ "$(events "$1")" -ge "$2" ]; }

card card remove removed
start watch "$build/cardcert" watch --module "$module" --json --interval 0.1
watch=$started
ln -s watch.log "$dir/watched"
sleep 1
slowest=0
for ((i = 1; i <= times; i++)); do
  began=${EPOCHREALTIME/./}
  card card insert inserted
  wait_until "insertion $i" has_seen added $((i * ${#certificates[@]}))
  took=$(((${EPOCHREALTIME/./} - began) / 1000))
  slowest=$((took > slowest ? took : slowest))
  card card remove removed
  wait_until "removal $i" has_seen removed $((i * ${#certificates[@]}))
done
status=0
kill -TERM "$watch"
wait "$watch" || status=$?
check "the watcher ends when it is told to" test $status -eq 0
check "$times insertions of ${#certificates[@]} certificates, none lost and none twice; the slowest took $slowest ms" \
  test "$(events added)" -eq $((times * ${#certificates[@]}))
check "$times removals, none lost and none twice" \
  test "$(events removed)" -eq $((times * ${#certificates[@]}))
check "nothing else was said" test "$(grep --count --invert-match '^{' "$dir/watched")" -le 1
