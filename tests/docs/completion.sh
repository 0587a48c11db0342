#!/usr/bin/env bash
# completion.sh: what bash completes after the command lines below, with the installed program. The environment says what
# CMakeLists.txt knows.
set -euo pipefail

PATH=$PREFIX/bin:$PATH
source "$PREFIX/share/bash-completion/completions/virtual-unit"
complete -p virtual-unit | grep -q _virtual_unit

status=0

complete_line() # WORD...: sets COMPREPLY; the last word is the one that is being typed
{
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _virtual_unit || true # as in a shell that a user types in
}

gives() # EXPECTED WORD...: all that it may be, in the order of the alphabet
{
    local expected=$1 all
    shift
    complete_line "$@"
    all=$(printf '%s\n' "${COMPREPLY[@]}" | sort | paste -s -d ' ' -)
    [[ $all == "$expected" ]] || { echo "after \"$*\": \"$all\" in place of \"$expected\"" >&2; status=1; }
}

gives '--help --version check devices do help replay run' virtual-unit ''
gives 'devices do' virtual-unit d
gives '--help --version' virtual-unit --
gives '--script --sdcard --seed --strict' virtual-unit run --s
gives '--sdcard' virtual-unit replay recording --s
gives '--json' virtual-unit devices --j
gives 'l26 skm53' virtual-unit run --gps ''
gives 'l26 skm53' virtual-unit run --gps =
gives 'skm53' virtual-unit run --gps = s
gives 'absent no-sim present' virtual-unit run --modem ''
gives 'preload' virtual-unit run --by p
gives '' virtual-unit run --gps-fix-after ''
gives 'run' virtual-unit help ru
gives 'in out' virtual-unit do modem sim ''
gives 'registration report' virtual-unit do modem re
gives 'gps' virtual-unit do gp
gives 'none' virtual-unit do key ''
gives '' virtual-unit do reader late ''
gives '--control --help' virtual-unit do --

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"
touch 'a drive.script' other.txt
mkdir recording
gives 'a drive.script' virtual-unit run --script 'a d'
complete_line virtual-unit run --script ''
[[ " ${COMPREPLY[*]} " == *"/scripts/crash.script "* && " ${COMPREPLY[*]} " == *" a drive.script "* ]] ||
    { echo "no ready scripts: ${COMPREPLY[*]}" >&2; status=1; }
gives 'recording' virtual-unit replay ''
gives 'other.txt' virtual-unit run -- cat ot
complete_line virtual-unit run --fast -- ca
[[ " ${COMPREPLY[*]} " == *" cat "* ]] || { echo "no program: ${COMPREPLY[*]}" >&2; status=1; }
exit $status
