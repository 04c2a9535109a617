# Shows Doxygen a header's plain comments as documentation.
#
# A block of comments documents what stands right below it, a trailing comment what stands before it,
# and the first block the file and the class of the file's name. The accessors of one setting, such
# as hasX, getX and setX, share the comment of the first. "--- X ---" heads a group of members. What is
# defaulted or deleted needs no comment.

function text(comment) {
    sub(/^ *\/\/ ?/, "", comment)
    gsub(/</, "\\&lt;", comment)
    return comment
}

# hasApnName(, getApnName( -> ApnName; empty for what is no accessor.
function setting(line) {
    if (!match(line, /[ &](has|get|set|add|remove|rem|is)[A-Z][A-Za-z0-9]*\(/)) return ""
    line = substr(line, RSTART + 1, RLENGTH - 2)
    sub(/^(has|get|set|add|remove|rem|is)/, "", line)
    return line
}

FNR == 1 {
    class = FILENAME
    gsub(/.*\/|\.h$/, "", class)
}

/^ *\/\/ --- .* ---$/ {
    gsub(/^ *\/\/ --- | ---$/, "")
    if (grouped) print "/// @}"
    grouped = opening = 1
    print "/// @name " $0
    next
}

/^ *\/\// {
    block = block "/// " text($0) "\n"
    next
}

/^ *(private:|};)/ && grouped {
    grouped = 0
    print "/// @}"
}

opening {
    if (!NF) printf "%s", block
    print "/// @{"
    opening = 0
}

/= (default|delete);$/ {
    block = ""
    next
}

{
    if (block && !about) {
        about = block
        printf "/// @file\n%s", about
    } else if (block && NF) {
        comment = block
        of = setting($0)
        printf "%s", comment
    } else if ($0 ~ "^(class|struct) ([^:{]* )?" class " [:{]") {
        printf "%s", about
    } else if (!of || setting($0) != of) {
        of = ""
    } else if ($0 !~ /\/\/ /) {
        printf "%s", comment
    }
    block = ""
    if (match($0, /[^ ] +\/\/ /)) {
        $0 = substr($0, 1, RSTART) " ///< " text(substr($0, RSTART + RLENGTH - 3))
    }
    print
}
