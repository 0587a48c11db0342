#!/bin/sh
# usage: settings.sh LINE SETTINGS PROGRAM [ARGUMENT...]: what a program makes of a line that has had other settings, as
# words of stty in one line. The kernel's drivers keep what a line was set to last.
line=$1
# shellcheck disable=SC2086 # words
stty -F "$line" $2
shift 2
"$@" >/dev/null 2>&1
echo " $(stty -F "$line" -a 2>/dev/null | tr -s '; \n' ' ') "
