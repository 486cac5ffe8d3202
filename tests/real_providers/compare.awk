# Compares the results of the behaviours with the tables in the documentation. Prints the tables with
# the results that were found, and then the differences.
#   awk -f compare.awk -v providers="PROVIDER PROVIDER..." -v counts=FILE RESULTS DOCUMENTATION
# Writes the number of results that are as documented, and of those that are not, to FILE. RESULTS has
# lines of provider, behaviour and result, separated by tabs. A table in the documentation begins with a
# line "| provider | BEHAVIOUR | ... |". A blank cell means that the behaviour is not tried.

function trim(text) {
  gsub(/^ +| +$/, "", text)
  return text
}

function print_table(  row, column, i, line, width) {
  for (column = 2; column <= num_columns; column++) {
    width[column] = length(title[column])
    for (i = 1; i <= num_lines; i++) {
      if (length(cell[i, column]) > width[column])
        width[column] = length(cell[i, column])
    }
  }
  for (i = 0; i <= num_lines; i++) {
    line = ""
    for (column = 2; column <= num_columns; column++)
      line = line sprintf("| %-" width[column] "s ", i == 0 ? title[column] : cell[i, column])
    print line "|"
    if (i == 0) {
      line = ""
      for (column = 2; column <= num_columns; column++)
        line = line "|" sprintf("%" (width[column] + 2) "s", "")
      gsub(/ /, "-", line)
      print line "|"
    }
  }
  print ""
}

BEGIN {
  num_wanted = split(providers, list, " ")
  for (i = 1; i <= num_wanted; i++)
    wanted[list[i]] = 1
}

FILENAME == ARGV[1] {
  split($0, part, "\t")
  results[part[1], part[2]] = part[3]
  next
}

/^\| *provider *\|/ {
  num_columns = split($0, title, "|") - 1
  for (i = 2; i <= num_columns; i++)
    title[i] = trim(title[i])
  num_lines = 0
  in_table = 1
  next
}

in_table && /^\|-/ {
  next
}

in_table && /^\|/ {
  split($0, expected, "|")
  provider = trim(expected[2])
  if (!(provider in wanted))
    next
  seen[provider] = 1
  cell[++num_lines, 2] = provider
  for (i = 3; i <= num_columns; i++) {
    key = provider SUBSEP title[i]
    found = key in results ? results[key] : ""
    delete results[key]
    cell[num_lines, i] = found
    if (found == trim(expected[i])) {
      if (found != "")
        right++
    } else {
      differences[++wrong] = provider ", " title[i] ": expected '" trim(expected[i]) "', found '" found "'"
    }
  }
  next
}

in_table {
  if (num_lines > 0)
    print_table()
  in_table = 0
}

END {
  if (in_table && num_lines > 0)
    print_table()
  for (provider in wanted) {
    if (!(provider in seen))
      differences[++wrong] = provider ": not documented"
  }
  for (key in results) {
    split(key, part, SUBSEP)
    differences[++wrong] = part[1] ", " part[2] ": found '" results[key] "', not documented"
  }
  for (i = 1; i <= wrong; i++)
    print differences[i]
  print right + 0, wrong + 0 >counts
}
