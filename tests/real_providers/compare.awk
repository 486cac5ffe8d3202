# Compares what the providers answered with the tables of the documentation, and prints the tables with
# the answers as they were.
#   awk -f compare.awk -v rows="ROW ROW..." -v counts=FILE ANSWERS DOCUMENTATION
# FILE receives how many answers are as documented and how many are not.
# ANSWERS has lines of row, behaviour and answer, with tabs between. A table of the documentation begins
# with a line "| provider | BEHAVIOUR | ... |"; a blank cell means that the behaviour is not tried.

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
  num_wanted = split(rows, list, " ")
  for (i = 1; i <= num_wanted; i++)
    wanted[list[i]] = 1
}

FNR == NR {
  split($0, part, "\t")
  answers[part[1], part[2]] = part[3]
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
  row = trim(expected[2])
  if (!(row in wanted))
    next
  seen[row] = 1
  cell[++num_lines, 2] = row
  for (i = 3; i <= num_columns; i++) {
    key = row SUBSEP title[i]
    found = key in answers ? answers[key] : ""
    delete answers[key]
    cell[num_lines, i] = found
    if (found == trim(expected[i])) {
      if (found != "")
        right++
    } else {
      deviations[++wrong] = row ", " title[i] ": '" trim(expected[i]) "' is documented, '" found "' was found"
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
  for (row in wanted) {
    if (!(row in seen))
      deviations[++wrong] = row ": is not documented"
  }
  for (key in answers) {
    split(key, part, SUBSEP)
    deviations[++wrong] = part[1] ", " part[2] ": '" answers[key] "' was found, nothing is documented"
  }
  for (i = 1; i <= wrong; i++)
    print deviations[i]
  print right + 0, wrong + 0 >counts
}
