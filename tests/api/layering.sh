#!/usr/bin/env bash
# Each library folder may include only itself and the folders below it; programs outside the
# library see only the public header. usage: layering.sh path/to/source/root
set -euo pipefail
cd "$1"

allowed() {
    case $1 in
        src/frame) echo "frame" ;;
        src/entropy) echo "frame entropy" ;;
        src/encoder) echo "frame entropy encoder" ;;
        src/decoder) echo "frame entropy decoder" ;;
        src/file) echo "frame entropy encoder decoder file" ;;
        src/bulk) echo "frame entropy encoder decoder bulk" ;;
        src/companion) echo "companion" ;; # over the public headers only
    esac
}

status=0
for folder in src/*/; do
    folder=${folder%/}
    permitted=$(allowed "$folder")
    while IFS= read -r line; do
        file=${line%%:*}
        target=$(sed -E 's/.*#include "([a-z_]+)\/.*/\1/' <<<"$line")
        if [[ " $permitted " != *" $target "* ]]; then
            echo "$file includes $target/, which $folder may not use"
            status=1
        fi
    done < <(grep -rnE '#include "[a-z_]+/' "$folder" || true)
done

# Programs see the public headers and files of their own folder, never the library's insides; the
# tool's commands also use its file formats. The one exception is bench/stages/, which times the
# encoder's and decoder's stages one by one.
for folder in tools examples bench fuzz; do
    [ -d "$folder" ] || continue
    if grep -rnE '#include "' "$folder" | grep -v '^bench/stages/' |
        grep -vE '#include "(zul\.h|zul\.hpp|zul_bulk\.h|zul_companion\.h|zul/companion\.hpp|(formats/)?[a-z_]+\.h)"'; then
        echo "programs in $folder/ may include the public headers only"
        status=1
    fi
done
exit "$status"
