# Summarises the JUnit file that ctest writes: what the tests counted, which tests failed, which were
# skipped and why. The last line is "N passed, N failed, N skipped". Fails if no test ran.
#
# Tests report counts by printing "counted: NUMBER TEXT", which is summed over all tests with the same
# TEXT, or "counted: TEXT", which is shown unchanged.

function attribute(name, line) {
  line = $0
  if (!sub(".* " name "=\"", "", line)) return ""
  sub(/".*/, "", line)
  return unescape(line)
}

function unescape(text) {
  gsub(/&lt;/, "<", text)
  gsub(/&gt;/, ">", text)
  gsub(/&quot;/, "\"", text)
  gsub(/&amp;/, "\\&", text)
  return text
}

/^\t<testcase / {
  test = attribute("name")
  status = attribute("status")
  message = reason = last = ""
  in_reason = 0
}

# The status "notrun" means that a test skipped itself or could not be started; the message tells which.
/^\t\t<skipped / { message = attribute("message") }

/^\t\t<system-out>/ { sub(/^\t\t<system-out>/, "") }

/^counted: [0-9]/ {
  words = unescape($0)
  sub(/^counted: [0-9]+ /, "", words)
  if (!(words in total)) order[++num_totals] = words
  total[words] += $2
  next
}
sub(/^counted: /, "") {
  print unescape($0)
  next
}

# GoogleTest prints "FILE:LINE: Skipped", the reason, and an empty line.
/: Skipped$/ { in_reason = 1; next }
in_reason && (/^$/ || /^\[/) { in_reason = 0 }
in_reason { reason = reason (reason == "" ? "" : " ") $0 }
!/^$/ && !/^<\/system-out>/ && !/^\t/ { last = $0; sub(/<\/system-out>$/, "", last) }

/^\t<\/testcase>/ {
  if (status == "run") {
    passed++
  } else if (status == "disabled" || (status == "notrun" && message ~ /^SKIP_/)) {
    skipped++
    print "skipped: " test ": " unescape(reason != "" ? reason : last)
  } else {
    failed++
    print "failed: " test
  }
}

END {
  for (i = 1; i <= num_totals; i++) print total[order[i]] " " order[i]
  print passed + 0 " passed, " failed + 0 " failed, " skipped + 0 " skipped"
  exit passed + failed == 0
}
