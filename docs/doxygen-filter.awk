# Doxygen input filter: the public headers keep the project's plain `//` comments, and this turns
# them into documentation as Doxygen reads them.
#   - The comment block that opens a header documents the class, struct or enum named like the
#     file (IKVSListener.h: IKVSListener); without one it documents the file.
#   - A comment on its own line documents what follows; a comment after a member or an
#     enumerator (a line ending in ";" or ",") documents that member.
#   - `//@{` ... `//@}` make a member group: the comment on its first member documents them all.
# Lines already written for Doxygen (`///`, `/**`) pass as they are.
{ line[NR] = $0 }

END {
    base = FILENAME
    sub(/.*\//, "", base)
    sub(/\.[^.]*$/, "", base)

    header_end = 0
    while (header_end < NR && line[header_end + 1] ~ /^\/\/([^\/@]|$)/) header_end++

    primary = 0
    for (i = header_end + 1; i <= NR && !primary; i++) {
        if (line[i] ~ "^(class|struct|enum|enum class)[ \t]+(QEL_OSF_EXPORT[ \t]+)?" base "([ \t:{]|$)" &&
            line[i] !~ /;[ \t]*$/) primary = i
    }

    if (!primary && header_end > 0) print "/// \\file"
    for (i = 1; i <= NR; i++) {
        if (i <= header_end) {
            if (primary) print ""
            else print as_doc(line[i])
            continue
        }
        if (i == primary)
            for (j = 1; j <= header_end; j++) print as_doc(line[j])
        print convert(line[i])
    }
}

function as_doc(text) {
    sub(/^\/\//, "///", text)
    return text
}

function convert(text,    code) {
    if (text ~ /^[ \t]*\/\/@[{}]/) {
        sub(/\/\/@/, "///@", text)
        return text
    }
    if (text ~ /^[ \t]*\/\/([^\/@]|$)/) {
        sub(/\/\//, "///", text)
        return text
    }
    if (text ~ /[;,][ \t]+\/\/ / && text !~ /\/\/\// && text !~ /"/) {
        code = text
        sub(/[ \t]+\/\/ .*$/, "", code)
        if (code ~ /[;,]$/) {
            sub(/[ \t]+\/\/ /, " ///< ", text)
        }
    }
    return text
}
