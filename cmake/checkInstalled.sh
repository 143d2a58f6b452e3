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

echo "== the core, on an installed platform"
cmake -S "$source" -B "$work/site" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DRAVEL_SYSTEM_PLATFORM=ON \
    -DRAVEL_BUILD_TESTS=OFF -DRAVEL_BUILD_BENCHMARKS=OFF -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build "$work/site" --target lumoRavelCore
