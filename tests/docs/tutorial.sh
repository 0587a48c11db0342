#!/usr/bin/env bash
# tutorial.sh: does what docs/tutorial.md says, in an empty folder, with the installed tree. Of its fenced blocks
# - one that names a file of examples/ is an excerpt of that,
# - one that names another file is that file from then on,
# - "sh" is run, all in one shell, and a "text" behind it is what it prints.
# The environment says what CMakeLists.txt knows.
set -euo pipefail

page=$SOURCE/docs/tutorial.md
rm -rf "$WORK"
mkdir -p "$WORK/folder" "$WORK/blocks"
cd "$WORK/folder"
export TREE=$SOURCE PATH=$PREFIX/bin:$PATH CMAKE_PREFIX_PATH=$PREFIX CMAKE_GENERATOR=Ninja

# Each block becomes a file "NUMBER", and "NUMBER.info" has what stands behind its fence.
awk -v blocks="$WORK/blocks" '
    /^```/ && !inside { inside = 1; name = sprintf("%s/%03d", blocks, ++count); print substr($0, 4) > (name ".info")
                        printf "" > name; next }
    /^```$/ { inside = 0; close(name); close(name ".info"); next }
    inside { print > name }' "$page"

fail()
{
    echo "docs/tutorial.md: $*" >&2
    exit 1
}

# The lines of an excerpt stand in the file as they are, one behind the other.
is_excerpt() # EXCERPT FILE
{
    [[ $(<"$2") == *"$(<"$1")"* ]]
}

ran=0 compared=0 output="" failing=""
trap '[[ -z $failing ]] || echo "docs/tutorial.md: failed: $failing" >&2' EXIT
for info in "$WORK"/blocks/*.info; do
    block=${info%.info}
    read -r kind file <"$info"
    if [[ $file == examples/* ]]; then
        is_excerpt "$block" "$SOURCE/$file" || fail "not in $file: $(head -n 1 "$block") ..."
        compared=$((compared + 1))
    elif [[ -n $file ]]; then
        cp "$block" "$file"
    elif [[ $kind == sh ]]; then
        output=$WORK/output
        failing=$(<"$block")
        # shellcheck disable=SC1090
        source "$block" >"$output" # not within a condition, where "set -e" does not hold
        failing=""
        ran=$((ran + 1))
    elif [[ $kind == text ]]; then
        diff -u --strip-trailing-cr "$block" "$output" || fail "it printed something else: see above"
        compared=$((compared + 1))
    else
        fail "a block that is neither a file nor run: $kind"
    fi
done
echo "$ran commands, $compared outputs and excerpts"
((ran > 5 && compared > 5))
