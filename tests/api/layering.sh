#!/usr/bin/env bash
# Each folder may include only the folders it is built on: a library folder of src/ itself and
# the folders below it; a folder of convert/ the public headers, itself and the convert/ folders
# below it; the programs (the command line, the Python module, the benchmarks, the fuzz targets,
# the examples) the public headers, the files of their own folder and, some of them, convert/.
# usage: layering.sh path/to/source/root
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
        convert/base) echo "base" ;;
        convert/formats) echo "base formats" ;;
        convert/crs) echo "base formats crs" ;; # the module PROJ is loaded in (formats/crs_module.h)
        convert/planner) echo "base planner" ;;
        convert/synthetic) echo "synthetic" ;;
        convert/ros) echo "ros" ;;
        convert/commands) echo "base formats planner synthetic ros commands" ;;
        tools/zul | python/src | bench) echo "base formats planner synthetic ros commands" ;;
        fuzz) echo "formats ros" ;; # the format readers' and the ROS messages' targets
        *) echo "" ;;
    esac
}

status=0
# The library: "folder/file.h" of the folders permitted.
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

# Everything else: a public header (a file of include/), a file of the own folder, or
# "folder/file.h" of a convert/ folder permitted. bench/stages/, which times the encoder's and
# decoder's stages one by one, is the one program that reaches inside the library.
check_folder() {
    local folder=$1 permitted
    permitted=$(allowed "$folder")
    while IFS= read -r line; do
        file=${line%%:*}
        header=$(sed -E 's/.*#include "([^"]+)".*/\1/' <<<"$line")
        [ -f "include/$header" ] && continue
        [[ $header != */* && -f "$(dirname "$file")/$header" ]] && continue
        sub=${header%%/*}
        if [[ $header == */* && " $permitted " == *" $sub "* && -f "convert/$header" ]]; then
            continue
        fi
        echo "$file includes \"$header\", which $folder may not use"
        status=1
    done < <(grep -rnE '#include "' "$folder" --include='*.h' --include='*.hpp' --include='*.c' \
        --include='*.cpp' | grep -v '^bench/stages/' || true)
}
for folder in convert/*/ tools/zul python/src bench fuzz examples; do
    folder=${folder%/}
    [ -d "$folder" ] || continue
    check_folder "$folder"
done
exit "$status"
