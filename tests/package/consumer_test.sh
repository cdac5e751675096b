#!/usr/bin/env bash
# Installs kora from a build tree into a fresh prefix, builds the consumer
# example against it and checks what it prints.
#   consumer_test.sh BUILD_DIR SOURCE_DIR cmake|pkg-config
set -euo pipefail
build_dir=$1
source_dir=$2
mode=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build_dir" --prefix "$prefix" >/dev/null

case "$mode" in
  cmake)
    cmake -S "$source_dir/examples/consumer" -B "$work/build" -G Ninja \
      -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    cmake --build "$work/build" >/dev/null
    exe=$work/build/consumer
    ;;
  pkg-config)
    pcdir=$(dirname "$(find "$prefix" -name kora.pc | head -n 1)")
    flags=$(PKG_CONFIG_PATH=$pcdir pkg-config --cflags --libs kora)
    # shellcheck disable=SC2086
    c++ "$source_dir/examples/consumer/main.cpp" $flags -o "$work/consumer"
    exe=$work/consumer
    ;;
  *)
    echo "unknown mode $mode" >&2
    exit 2
    ;;
esac

out=$("$exe")
if [ "$out" != "(= x #x9c)" ]; then
  echo "consumer printed '$out', expected '(= x #x9c)'" >&2
  exit 1
fi

# Only the documented files are installed: headers, library, tool, package
# and pkg-config files; nothing of the tests, benchmarks or fuzzers.
unexpected=$(cd "$prefix" && find . -type f | grep -v -E \
  '^\./include/kora/.*\.h$|^\./lib[^/]*/(.*/)?libkora\.a$|^\./bin/kora-(adhoc|solve)$|^\./lib[^/]*/(.*/)?cmake/kora/kora[A-Za-z-]*\.cmake$|^\./lib[^/]*/(.*/)?pkgconfig/kora\.pc$' || true)
if [ -n "$unexpected" ]; then
  echo "unexpected installed files:" >&2
  echo "$unexpected" >&2
  exit 1
fi
echo "consumer ($mode): ok"
