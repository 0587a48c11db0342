#!/usr/bin/env bash
# integration.sh: whether docs/integration.md names what there is: the files of this tree, the options of the build, the
# device files that the libraries open, and the version. The environment says what CMakeLists.txt knows.
set -euo pipefail
export LC_ALL=C
cd "$SOURCE"

page=docs/integration.md
status=0
complain()
{
    echo "$page: $*" >&2
    status=1
}

while read -r file; do
    [[ -e $file ]] || complain "there is no $file"
done < <(grep -oE '\bdebian/[A-Za-z./-]*[a-z]' $page | sort -u)

while read -r option; do
    grep -qE "^$option:" "$BUILD/CMakeCache.txt" || complain "there is no option $option"
done < <(grep -oE '\-DTAVDEVICE_[A-Z_]+' $page | sed 's/^-D//' | sort -u)

while read -r path; do
    case $path in
        /dev/i2c-) path=/dev/i2c-N ;;
        *-if0?-port0) path=${path##*/} path=${path/#*Module/...} ;;
    esac
    grep -qF -- "$path" $page || complain "it does not tell of $path"
done < <(grep -rhoE --include=*.cpp --include=*.h '= *"/(dev|sys|mnt)/[^"]+"|^ *"/dev/[^"]+"' \
    base AccDevice DriverId Gpio GpsDevice I2C Modem Sensors Serial SerialProtocol Testing | sed 's/.*"\(.*[^/]\)\/*"/\1/' | sort -u)

for version in $(sed -nE 's/.*(PV = "|TAVDEVICE_VERSION = )([0-9.]+).*/\2/p' $page); do
    [[ $version == "$VERSION" ]] || complain "it has version $version"
done
exit $status
