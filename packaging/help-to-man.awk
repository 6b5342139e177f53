# Turns the help of one tvrctl command into a part of its manual page.
function escaped(text) {
    gsub(/\\/, "\\e", text)
    gsub(/-/, "\\-", text)
    if (text ~ /^[.']/)
        text = "\\&" text
    return text
}
# The name of an option or argument in bold, what goes with it behind.
function item(name, rest, place) {
    place = index(name, " ")
    rest = place ? substr(name, place) : ""
    if (place)
        name = substr(name, 1, place - 1)
    sub(/,/, ", ", name)
    return "\\fB" escaped(name) "\\fR" escaped(rest)
}
NR == 1 { title = $0; next }
/^Usage: / {
    usage = substr($0, 8)
    print ".SS " escaped(usage)
    print escaped(title) "."
    next
}
/^(Positionals|Options|Subcommands):$/ { part = "items"; next }
part == "items" && /^  -h,--help / { skipped = 1; next }
part == "items" && /^  [^ ]/ {
    skipped = 0
    name = substr($0, 3)
    text = ""
    if (match(name, /   *[^ ]/)) {
        text = substr(name, RSTART)
        sub(/^ +/, "", text)
        name = substr(name, 1, RSTART - 1)
    }
    print ".TP"
    print item(name)
    if (text != "")
        print escaped(text)
    next
}
part == "items" && /^ +[^ ]/ { if (!skipped) { sub(/^ +/, ""); print escaped($0) } next }
/^$/ { if (part == "example") print ".EE"; part = ""; next }
/^Examples?:$/ { print ".PP"; print escaped($0); print ".PP"; print ".EX"; part = "example"; next }
part == "example" { print escaped($0); next }
{ if (part != "text") print ".PP"; part = "text"; print escaped($0) }
END { if (part == "example") print ".EE" }
