#!/usr/bin/env bash
# Installs the Debian packages that a task needs and that are missing.
# Usage: tools/install_packages.sh build|demo|test|ci|slurm ...
set -euo pipefail

build=(g++ cmake ninja-build pkg-config libcli11-dev gemmi-dev tao-pegtl-dev zlib1g-dev nlohmann-json3-dev
       python3-dev pybind11-dev python3-numpy python3-markdown)
demo=("${build[@]}" python3 python3-numpy python3-matplotlib)
tests=("${build[@]}" libgtest-dev python3 python3-numpy python3-gemmi python3-mrcfile gemmi man-db mandoc zsh python3-pandas)
ci=("${demo[@]}" "${tests[@]}" ccache clang clang-format clang-tidy libclang-rt-14-dev libbenchmark-dev libfftw3-dev dpkg-dev file lintian
    libclipper-dev pymol snakemake python3-pip python3-setuptools python3-wheel python3-venv
    chromium chromium-driver python3-selenium python3-pil)
# A Slurm of one node for tests/workflow/slurm.sh.
slurm=(slurm-wlm munge python3-gemmi python3-numpy)

wanted=()
for task in "$@"; do
  case $task in
    build) wanted+=("${build[@]}") ;;
    demo) wanted+=("${demo[@]}") ;;
    test) wanted+=("${tests[@]}") ;;
    ci) wanted+=("${ci[@]}") ;;
    slurm) wanted+=("${slurm[@]}") ;;
    *) echo "install_packages.sh: unknown task '$task'" >&2; exit 2 ;;
  esac
done

missing=()
for package in $(printf '%s\n' "${wanted[@]}" | sort -u); do
  dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "Packages are missing and there is no sudo: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
"${as_root[@]}" apt-get update -qq >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
  >"$log" 2>&1 || { tail -30 "$log" >&2; exit 1; }
