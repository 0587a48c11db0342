# Completion of virtual-unit for bash: commands, options and their values, steps, ready scripts. What there is, the
# program tells by its own help.

_virtual_unit()
{
    local program=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} i text scripts
    local -a given=()
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        text=$("$program" --help 2>/dev/null | sed -nE 's/^(usage:|      ) virtual-unit ([a-z]+) .*/\2/p')
        mapfile -t COMPREPLY < <(compgen -W "$text --help --version" -- "$word")
        return
    fi
    for ((i = 2; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} == -- ]]; then # the program and its arguments
            if declare -F _command_offset >/dev/null; then
                _command_offset $((i + 1))
            elif ((i + 1 == COMP_CWORD)); then
                mapfile -t COMPREPLY < <(compgen -c -- "$word")
            else
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
            fi
            return
        fi
        given+=("${COMP_WORDS[i]}")
    done
    # "=" is a word of its own for bash.
    if [[ $word == = ]]; then
        word=""
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $before in
        --script)
            scripts=$(readlink -f -- "$(type -P -- "$program")")
            scripts=${scripts%/bin/*}/share/tavdevice/virtual-unit/scripts
            mapfile -t COMPREPLY < <(compgen -f -X '!*.script' -- "$scripts/$word")
            mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        --nmea | --track | --motion | --log | --journal | --junit | --control)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        --record | --sdcard)
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
            return
            ;;
        --by)
            mapfile -t COMPREPLY < <(compgen -W "kernel preload" -- "$word")
            return
            ;;
        --*)
            # The alternatives that the help tells; any other value is the user's to know.
            text=$("$program" help "$command" 2>/dev/null | sed -nE "s/^  $before ([^ ]+).*/\1/p")
            if [[ $text == *'|'* ]]; then
                mapfile -t COMPREPLY < <(compgen -W "${text//|/ }" -- "$word")
                return
            elif [[ -n $text ]]; then
                return
            fi
            ;;
    esac
    if [[ $command == help ]]; then
        text=$("$program" --help 2>/dev/null | sed -nE 's/^(usage:|      ) virtual-unit ([a-z]+) .*/\2/p')
    elif [[ $command == do && $word != -* ]]; then
        # The next word of each step that begins as the line does; "sim in|out" are two.
        text=$("$program" help do 2>/dev/null | sed '1,/^Steps,/d' | awk -v given="${given[*]}" '
            BEGIN { count = split(given, words) }
            {
                sub(/^  /, "")
                sub(/  .*/, "")
                for (i = 1; i <= count && $i == words[i]; ++i)
                    ;
                if (i > count && i <= NF && $i !~ /^[[A-Z]+[].]*$/)
                {
                    gsub(/\|/, "\n", $i)
                    print $i
                }
            }' | grep -vxE '[A-Z]+' | sort -u)
    elif [[ $command == replay && $word != -* && ${#given[@]} == 0 ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
    else
        text=$("$program" help "$command" 2>/dev/null | sed -nE 's/^  (--[a-z0-9-]+).*/\1/p')
    fi
    mapfile -t COMPREPLY < <(compgen -W "$text" -- "$word")
}

complete -o filenames -o default -F _virtual_unit virtual-unit
