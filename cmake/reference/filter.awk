# What a header says of itself stands ahead of its first namespace; the reference is told that this is the file's.  The
# blank line ahead of that comment gives its place to the word, so that lines keep their numbers.
/^\/\/\// && (blank || block != "") {
    block = block $0 "\n"
    next
}
block != "" {
    # Of the file, if a namespace, a directive or a blank line follows, and the first of them; otherwise of what follows.
    ofFile = !done && $0 ~ /^(namespace|#|extern|$)/
    done = done || ofFile
    printf "%s\n%s", ofFile ? "/// @file" : "", block
    block = ""
    blank = 0
}
blank { print "" }
/^$/ { blank = 1; next }
{ blank = 0; print }
END { if (blank) print "" }
