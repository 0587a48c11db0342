# Shared by the scripts of this tree; to be sourced by bash.

# need_packages PACKAGE...: sees to it that these Debian packages are installed. Ends the script when they
# cannot be had.
need_packages()
{
    local package
    local -a missing=() as_root=()

    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -x installed >/dev/null ||
            missing+=("$package")
    done
    if ((${#missing[@]} == 0)); then
        return 0
    fi

    if ((EUID != 0)); then
        if sudo -n true 2>/dev/null; then
            as_root=(sudo -n)
        elif [[ -t 0 ]] && command -v sudo >/dev/null; then
            as_root=(sudo)
        else
            echo "These packages are missing and this user cannot install them. As root, type:" >&2
            echo "    apt-get update; apt-get install --no-install-recommends ${missing[*]}" >&2
            exit 1
        fi
    fi

    echo "installing: ${missing[*]}"
    # One index that cannot be had does not mean that the packages cannot: apt-get install decides.
    "${as_root[@]}" apt-get -qq update </dev/null ||
        echo "apt-get update reported errors; going on with what there is" >&2
    if ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends \
        -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 install "${missing[@]}" </dev/null; then
        echo "could not install: ${missing[*]}" >&2
        exit 1
    fi
}
