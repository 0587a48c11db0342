# Shared by the scripts of this tree; to be sourced by bash.

# count_tests REPORT: counts by ctest's own report (--output-junit). Sets good, bad and off (skipped or disabled).
count_tests()
{
    local suite
    suite=$(sed -n '/<testsuite/,/>/p;/<testcase/q' "$1" | tr '\n\t' '  ')
    bad=$(attribute failures <<<"$suite")
    off=$(($(attribute disabled <<<"$suite") + $(attribute skipped <<<"$suite")))
    good=$(($(attribute tests <<<"$suite") - bad - off))
}

attribute() # NAME: its value in the element read
{
    sed -n "s/.*[[:space:]]$1=\"\([0-9]*\)\".*/\1/p"
}

# counts GOOD BAD [OFF]: the line that tells them
counts()
{
    printf '%d passed, %d failed' "$1" "$2"
    ((${3:-0} == 0)) || printf ', %d skipped' "$3"
    echo
}
