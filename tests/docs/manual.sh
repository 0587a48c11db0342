#!/usr/bin/env bash
# manual.sh: whether the manual pages tell the options and steps that the virtual unit tells by its own help, and no
# other ones. The environment says what CMakeLists.txt knows.
set -euo pipefail
export LC_ALL=C

pages=$SOURCE/docs/man
status=0

same() # WHAT: the lines of the two files that are given by descriptor
{
    diff "$2" "$3" || { echo "docs/man: $1 differ: <: the help, >: the page" >&2; status=1; }
    [[ -s $2 ]] || { echo "docs/man: the help tells no $1" >&2; status=1; }
}

plain() # PAGE: without the marks of the formatter
{
    sed -e 's/\\f[A-Z]//g' -e 's/\\-/-/g' -e 's/\\e/\\/g' "$pages/$1"
}

heads() # PAGE: what stands before the texts of its lists
{
    plain "$1" | sed -n '/^\.TP$/{n;p}'
}

mkdir -p "$WORK"
"$PROGRAM" help >"$WORK/help"

sed -nE 's/^  (--[a-z0-9-]+).*/\1/p' "$WORK/help" | sort >"$WORK/options.help"
heads virtual-unit.1 | sed -nE '/^--help/d; s/^(--[a-z0-9-]+).*/\1/p' | sort >"$WORK/options.page"
same options "$WORK/options.help" "$WORK/options.page"

sed -nE 's/^(usage:|      ) virtual-unit ([a-z]+) .*/\2/p' "$WORK/help" | sort >"$WORK/commands.help"
heads virtual-unit.1 | sed -nE 's/^virtual-unit ([a-z]+).*/\1/p' | sort >"$WORK/commands.page"
same commands "$WORK/commands.help" "$WORK/commands.page"

# Of a step what does not change: "modem late MS" is "modem late", "modem sim in|out" two of them.
sed '1,/^Steps,/d' "$WORK/help" | sed -nE 's/^  (.*[^ ])  .*/\1/p' | sed -E 's/  .*//; s/^(.* )([a-z]+)\|([a-z]+)$/\1\2\n\1\3/' |
    sed -E 's/^(.*) [A-Z]+\|([a-z]+)$/\1\n\1 \2/; s/ \[?[A-Z].*//' | sort -u >"$WORK/steps.help"
heads virtual-unit-script.5 | sed 's/, /\n/g' | sed -E 's/ \[?[A-Z].*//' | sort -u >"$WORK/steps.page"
same steps "$WORK/steps.help" "$WORK/steps.page"

ls "$SOURCE/virtual-unit/scripts" | sed 's/\.script$//' | sort >"$WORK/scripts.tree"
heads virtual-unit.1 | grep -xf "$WORK/scripts.tree" | sort >"$WORK/scripts.page" || true
same "ready scripts" "$WORK/scripts.tree" "$WORK/scripts.page"

for page in "$pages"/*; do
    head -n 1 "$page" | grep -q "\"Tavdevice $VERSION\"" || { echo "$page: another version" >&2; status=1; }
done
exit $status
