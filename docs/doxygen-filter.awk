# Gives Doxygen the headers' ordinary comments as its own: what stands above a declaration, above a group
# of declarations without an empty line between them (each gets it), and behind a declaration. The comment
# at the top is the file's. What is deleted or a macro of the library is left out.

BEGIN { top = 1 }

# The lines of a comment above something.
/^ *\/\// || /^ *\/\*/ || inBlock {
  if (NR == 1) print "/** \\file */"
  if (!comment) above = ""
  comment = 1
  line = $0
  if (line ~ /^ *\/\*/) { inBlock = 1; sub(/\/\*/, "/**", line) }
  else if (!inBlock) sub(/\/\//, "///", line)
  if (line ~ /\*\//) inBlock = 0
  if (!top) above = above line "\n"
  print line
  next
}

{
  if (top) { top = 0; above = "" }
  if (/= delete;/) next
  line = $0
  gsub(/GIIVELA_API /, "", line)
  declares = line ~ /^ *[A-Za-z_:]/ && (line !~ /[{}:]$/ || line ~ /{.*}$/)
  behind = line ~ /[;,] +\/\/ /
  if (!declares) above = ""
  else if (complete && !comment && !behind) printf "%s", above
  if (behind) sub(/\/\/ /, "///< ", line)
  complete = line ~ /[;}]/
  comment = 0
  print line
}
