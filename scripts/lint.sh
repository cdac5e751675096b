#!/usr/bin/env bash
# Static analysis of src/ and tools/: clang-tidy (checks in .clang-tidy) with
# the dev build's compile_commands.json, then cppcheck (suppressions, each
# with its reason, in .cppcheck-suppressions). Any finding fails.
#
#   KORA_LINT_BUILD  build directory whose compile_commands.json is used
#                    (default build/dev; configured with the dev preset when
#                    it has none)
#   JOBS             parallel clang-tidy processes (default: nproc)
set -euo pipefail
cd "$(dirname "$0")/.."

build=${KORA_LINT_BUILD:-build/dev}
jobs=${JOBS:-$(nproc)}
if [ ! -f "$build/compile_commands.json" ]; then
  cmake --preset dev -B "$build" >/dev/null
fi

pick() {
  for tool in "$@"; do
    if command -v "$tool" >/dev/null 2>&1; then
      echo "$tool"
      return
    fi
  done
  echo "kora: none of $* is installed (KORA_WITH_LINT=1 make deps installs them)" >&2
  exit 1
}
tidy=$(pick clang-tidy-14 clang-tidy)
cppcheck=$(pick cppcheck)

mapfile -t sources < <(find src tools -name '*.cpp' | sort)

echo "== clang-tidy (${#sources[@]} files, $jobs at a time)"
# Findings go to standard output; the counts of warnings in system headers
# that the header filter hides go to standard error and are dropped. xargs
# fails when any file has a finding (WarningsAsErrors in .clang-tidy).
if ! printf '%s\n' "${sources[@]}" | xargs -P "$jobs" -n 1 "$tidy" -p "$build" --quiet 2>/dev/null
then
  echo "clang-tidy: findings above" >&2
  exit 1
fi

echo "== cppcheck"
"$cppcheck" --quiet --error-exitcode=1 --inline-suppr \
  --enable=warning,style,performance,portability --std=c++20 --language=c++ \
  --suppressions-list=.cppcheck-suppressions -I src -I tools src tools

echo "lint: clean"
