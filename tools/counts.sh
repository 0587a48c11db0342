# Shared by the scripts of this tree; to be sourced by bash.

# counts GOOD BAD [OFF]: the line that tells them
counts()
{
    printf '%d passed, %d failed' "$1" "$2"
    ((${3:-0} == 0)) || printf ', %d skipped' "$3"
    echo
}
