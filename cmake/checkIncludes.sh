#!/usr/bin/env bash
# checkIncludes.sh ROOT: fails if a component includes what it must not.
#
#   platform   <-   ravelcore   <-   ravelctl
#      ^                                |
#      +------   mirrorsim   <----------+
#
# What ravelcore's interface is made of, the platform's threads and exceptions, ravelctl may include as well.
set -euo pipefail
root=$1
status=0

# forbid FOLDER PATTERN: no source in FOLDER includes a header that matches PATTERN.
forbid() {
    local found
    found=$(grep -rnE --include='*.[ch]pp' "^[[:space:]]*#[[:space:]]*include[[:space:]]*[<\"]($2)" "$root/$1" || [ $? -eq 1 ])
    if [ -n "$found" ]; then
        printf '%s must not include this:\n%s\n' "$1" "${found//$root\//}" >&2
        status=1
    fi
}

forbid platform 'lumo/'
forbid ravel/ravelcore 'lumo/(mirrorsim|ravelctl)/|.*ravelctl/'
forbid ravel/mirrorsim 'lumo/(ravelcore|ravelctl)/|brisk/|chartkit/|vigil/|log4cplus/|CCfits|fitsio|thread>|mutex>|condition_variable>|pthread\.h>|fstream>|filesystem>|cstdio>'
forbid ravel/ravelctl 'chartkit/|lumo/ravelcore/(blas|plainFile|fitsBinTable)'
# Nobody reaches into another component's private sources.
forbid platform '\.\./\.\./'
forbid ravel '\.\./\.\./'
exit $status
