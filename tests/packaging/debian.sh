#!/usr/bin/env bash
# debian.sh CHECK: whether what the Debian packages are made of agrees with the rest of the tree. The environment says
# what CMakeLists.txt knows.
set -euo pipefail
export LC_ALL=C
cd "$SOURCE"

rules=debian/tavdevice-common.udev
rooms=(base AccDevice DriverId Gpio GpsDevice I2C Modem Sensors Serial SerialProtocol Testing)

status=0
complain()
{
    echo "debian: $*" >&2
    status=1
}

check_version()
{
    local changelog
    changelog=$(sed -n '1s/^tavdevice (\([^)]*\)) .*/\1/p' debian/changelog)
    [[ $changelog == "$VERSION" ]] || complain "debian/changelog has version '$changelog', CMakeLists.txt $VERSION"
}

# The licence is text for text that of LICENSE.
check_copyright()
{
    diff LICENSE <(sed -n '/^License: all-rights-reserved$/,$p' debian/copyright | sed '1,/^$/d' |
        sed -n '/^License: /,$p' | sed -e 1d -e 's/^ \.$//' -e 's/^ //') ||
        complain "debian/copyright says something else than LICENSE"
    diff <(sed -n 's/^Copyright: //p' debian/copyright) \
        <(sed -n '1s/^Copyright (C) \(.*\)\. All rights reserved\.$/\1/p' LICENSE) ||
        complain "debian/copyright names another owner than LICENSE"
}

opened() # the device files that the libraries name in their sources
{
    grep -rhoE --include=*.cpp --include=*.h '= *"/dev/[^"]+"|^ *"/dev/[^"]+"' "${rooms[@]}" | sed 's/.*"\(.*\)"/\1/' |
        sort -u
}

# What the libraries open belongs to the group, and each rule is there for something that they open.
check_udev()
{
    local path pattern line count=0
    local -a used=()
    while read -r path; do
        path=${path#/dev/}
        [[ $path != *- ]] || path+=1 # its number follows
        line=$(grep -nE '(KERNEL|SYMLINK)=="[^"]+".*GROUP="tavdevice", MODE="0660"' $rules |
            while IFS= read -r line; do
                pattern=$(sed -E 's/.*(KERNEL|SYMLINK)=="([^"]+)".*/\2/' <<<"$line")
                # shellcheck disable=SC2053
                [[ $path != $pattern ]] || echo "${line%%:*}"
            done)
        [[ -n $line ]] || complain "$rules gives nobody /dev/$path"
        used+=("$line")
        count=$((count + 1))
    done < <(opened)
    ((count >= 8)) || complain "no more than $count device files were found in the sources"
    while IFS=: read -r line _; do
        [[ " ${used[*]//$'\n'/ } " == *" $line "* ]] || complain "$rules:$line is for nothing that the libraries open"
    done < <(grep -n 'GROUP=' $rules)

    # What a rule looks like: KEY operator "value", separated by commas.
    local one='[A-Z]+(\{[A-Za-z_]+\})?(==|!=|=|\+=)"[^"]*"'
    grep -nvE -e "^(#.*)?$" -e "^$one(, $one)*$" $rules >&2 && complain "$rules: these are no rules"
    grep -oE '(GROUP|OWNER)="[^"]*"' $rules | grep -vx 'GROUP="tavdevice"' >&2 && complain "$rules: other owners"
    grep -qE '^g +tavdevice +-$' debian/tavdevice-common.sysusers || complain "no group tavdevice is made"
    return $status
}

# The folder of the driver's record is where the library has it.
check_tmpfiles()
{
    local directory
    directory=$(sed -n 's/.*RECORD_DIRECTORY = "\(.*\)\/";/\1/p' DriverId/DriverId.cpp)
    [[ -n $directory ]] || complain "the library's folder was not found"
    grep -qE "^d- +$directory 2775 root tavdevice -$" debian/tavdevice-common.tmpfiles ||
        complain "debian/tavdevice-common.tmpfiles does not make $directory"
}

# The sample units are understood by systemd, where it is there to ask, and name what the rules give.
check_service()
{
    local folder=$WORK/scratch/service name
    for name in $(sed -nE 's/.*KERNEL=="(tav_event|ttymxc[0-9])".*/\1/p' $rules); do
        grep -q "^After=.*\bdev-$name\.device\b" debian/examples/application.service || complain "it does not wait for $name"
    done
    grep -q '^SupplementaryGroups=tavdevice$' debian/examples/application.service || complain "it is not in the group"
    command -v systemd-analyze >/dev/null || { echo "skipped: no systemd-analyze"; exit 77; }
    rm -rf "$folder"
    mkdir -p "$folder/application.service.d"
    sed 's|^ExecStart=.*|ExecStart=/bin/true|' debian/examples/application.service >"$folder/application.service"
    for name in alone with-power; do
        [[ $name == alone ]] || cp debian/examples/application-power.conf "$folder/application.service.d/power.conf"
        SYSTEMD_UNIT_PATH=$folder: systemd-analyze verify --man=no "$folder/application.service" >"$folder/$name.log" 2>&1 ||
            complain "$name: $(<"$folder/$name.log")"
        [[ ! -s $folder/$name.log ]] || complain "$name: $(<"$folder/$name.log")"
    done
}

mkdir -p "$WORK/scratch"
"check_$1"
exit $status
