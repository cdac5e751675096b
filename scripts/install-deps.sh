#!/usr/bin/env bash
# Installs the Debian packages that building and testing kora needs, but only
# those that are missing. Does nothing when everything is present; needs root
# (or sudo) only when something has to be installed.
set -euo pipefail

packages=(cmake ninja-build g++ make pkg-config libgmp-dev libgtest-dev libbenchmark-dev)
# The SMT solvers that kora-solve runs as back ends; its tests run each of them.
packages+=(z3 cvc5 boolector)
[ "${KORA_WITH_LINT:-0}" = 1 ] && packages+=(clang-format clang-tidy cppcheck)
[ "${KORA_WITH_VALGRIND:-0}" = 1 ] && packages+=(valgrind)
[ "${KORA_WITH_FUZZ:-0}" = 1 ] && packages+=(clang libclang-rt-dev)
# Optional comparisons of `make bench` (FLINT's fmpq, absl::flat_hash_map) and
# GNU time for kora-adhoc's peak memory; the benchmarks build without them.
[ "${KORA_WITH_BENCH:-0}" = 1 ] && packages+=(libflint-dev libabsl-dev time)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "kora: installing missing packages: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
  sudo=()
elif command -v sudo >/dev/null 2>&1; then
  sudo=(sudo)
else
  echo "kora: missing packages ${missing[*]}; run this as root or install them with apt-get" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
