#!/usr/bin/env bash
# checkIncludesTest.sh ROOT: the include rules must notice an offence in each component.
set -euo pipefail
root=$1
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT

# expect_offence FILE INCLUDE
expect_offence() {
    rm -rf "${copy:?}"/*
    mkdir -p "$copy"/platform "$copy"/ravel/{ravelcore,mirrorsim,ravelctl} "$copy/$(dirname "$1")"
    printf '#include <vector>\n' >"$copy/$1"
    "$root/cmake/checkIncludes.sh" "$copy" || { echo "refused a harmless $1" >&2; exit 1; }
    printf '#include %s\n' "$2" >"$copy/$1"
    if "$root/cmake/checkIncludes.sh" "$copy" 2>/dev/null; then
        echo "overlooked #include $2 in $1" >&2
        exit 1
    fi
}

expect_offence platform/brisk/a.cpp '<lumo/ravelcore/task.hpp>'
expect_offence ravel/ravelcore/src/a.cpp '<lumo/mirrorsim/mirror.hpp>'
expect_offence ravel/ravelcore/test/a.cpp '"../../ravelctl/src/cycleGate.hpp"'
expect_offence ravel/mirrorsim/src/a.hpp '<lumo/ravelcore/task.hpp>'
for header in thread mutex condition_variable pthread.h fstream filesystem cstdio; do
    expect_offence ravel/mirrorsim/src/a.hpp "<$header>"
done
expect_offence ravel/ravelctl/src/a.cpp '<chartkit/chart.hpp>'
expect_offence ravel/ravelctl/src/a.cpp '"../../ravelcore/src/blas.hpp"'
