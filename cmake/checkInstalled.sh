#!/usr/bin/env bash
# checkInstalled.sh SOURCE BUILD: installs what BUILD holds and uses the copy as others would: the installed program with
# its manual page and completion, the example through CMake and through pkg-config, and the core built against the
# installed platform.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
"$prefix/bin/ravelctl" --version

echo "== the shared library: a version in its name, and nothing private among its symbols"
library=$(find "$prefix" -name 'liblumoRavelCore.so')
readelf -d "$library" | grep -F 'soname: [liblumoRavelCore.so.0]'
# The whole list first: grep leaves a pipe at its first find.
symbols=$(nm -DC --defined-only "$library")
grep -F 'lumo::ravelcore::TaskEdc::Execute(' <<<"$symbols"
if grep -F 'lumo::ravelcore::blas::' <<<"$symbols"; then
    echo "expected the functions of blas.hpp to be hidden but the library exports them" >&2
    exit 1
fi

echo "== manual page and completion"
"$prefix/bin/ravelctl" --man-page | cmp - "$prefix/share/man/man1/ravelctl.1"
"$prefix/bin/ravelctl" --bash-completion | cmp - "$prefix/share/bash-completion/completions/ravelctl"

echo "== the example, through CMake"
cmake -S "$source/examples" -B "$work/example" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/example"
"$work/example/lockstep"

echo "== the example, through pkg-config"
# The installed file names the configured prefix; pkg-config puts the real one in its place.
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name lumoRavelCore.pc)")
# shellcheck disable=SC2046
c++ -std=c++20 "$source/examples/lockstep.cpp" -o "$work/lockstep" \
    $(pkg-config --define-variable=prefix="$prefix" --cflags --libs lumoRavelCore) -pthread
LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name liblumoRavelCore.so)") "$work/lockstep"

echo "== the core, on an installed platform, in the preset for the debugger"
cmake --preset debug -S "$source" -B "$work/site" -DCMAKE_PREFIX_PATH="$prefix" -DRAVEL_SYSTEM_PLATFORM=ON \
    -DRAVEL_BUILD_TESTS=OFF -DRAVEL_BUILD_BENCHMARKS=OFF -DRAVEL_NPM=OFF >/dev/null
cmake --build "$work/site" --target lumoRavelCore
