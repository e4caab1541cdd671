#!/usr/bin/env bash
# Builds the Debian packages, installs them, uses them from outside the tree, and removes them: what
# was on the machine before must be there after. It happens in a copy-on-write view of the machine,
# which is thrown away; where there is none to be had (in most containers) the machine itself is used,
# but only if CI is "true".
# Usage: deb.sh; QUORIX_BUILD names the build folder, which is configured for the prefix /usr.
set -euo pipefail

build_packages() {
  tools/build.sh "$folder" -DQUORIX_TESTS=OFF -DCMAKE_INSTALL_PREFIX=/usr \
    -DCMAKE_INSTALL_LIBDIR="lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)"
  rm -rf "$folder/packages"
  (cd "$folder" && cpack -G DEB -B packages >cpack.log 2>&1) || { cat "$folder/cpack.log"; return 1; }
  # The packaging tool writes scripts that call ldconfig beside the trigger.
  lintian --fail-on error,warning --suppress-tags maintscript-calls-ldconfig "$folder"/packages/*.deb \
    >"$folder/lintian.log" 2>&1 || { cat "$folder/lintian.log"; return 1; }
}

# Runs in the view, or on the machine; $1 is a folder with the packages and an outside project.
try_packages() {
  set -euo pipefail
  export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
  cd "$1"
  installed() { find /usr /etc /opt -xdev -not -name ld.so.cache | sort; dpkg-query -W; }
  quietly() { "$@" >log 2>&1 || { cat log; return 1; }; }
  installed >before
  # Images for containers often leave documents out.
  quietly apt-get install -y --no-install-recommends -o 'Dpkg::Options::=--path-include=/usr/share/*/quorix*' \
    -o 'Dpkg::Options::=--path-include=/usr/share/man/*' ./*.deb

  quietly quorix map /usr/share/doc/quorix/examples/1ubq.mtz
  grep -q '6224 of 6224' log
  [ -s 1ubq_2mFo-DFc.ccp4 ] && [ -s 1ubq_mFo-DFc.ccp4 ]
  quietly quorix report 1ubq_2mFo-DFc.ccp4
  [ -s 1ubq_2mFo-DFc.html ]
  quietly quorix fcalc /usr/share/doc/quorix/examples/1ubq.pdb --dmin 3 -o fc.mtz
  quietly man quorix-map
  [ -e /usr/share/zsh/vendor-completions/_quorix ]
  grep -q 'quorix maps' /usr/share/doc/quorix/html/maps-from-models.html
  bash -c '. /usr/share/bash-completion/completions/quorix && complete -p quorix' >log

  # shellcheck disable=SC2046
  g++ -std=c++20 outside/main.cpp -o by-pkg-config $(pkg-config --cflags --libs quorix)
  ldd by-pkg-config >log
  grep -q '/lib/.*libquorix.so.0' log
  ./by-pkg-config
  quietly cmake -S outside -B by-cmake -G Ninja
  quietly cmake --build by-cmake
  by-cmake/outside_quorix
  ZENVI_DATA=/usr/share/quorix by-cmake/outside_quorix_static

  quietly /usr/bin/python3 outside/use_module.py /usr/share/doc/quorix/examples/1ubq.mtz

  quietly apt-get purge -y quorix quorix-data libquorix0 libquorix-dev python3-quorix
  installed >after
  diff before after
}

# Lays a view of the machine over it at $1/root, in a name space of its own.
make_view() {
  mount -t tmpfs none "$1" && mkdir "$1/changes" "$1/work" "$1/root" &&
    mount -t overlay overlay -o "lowerdir=/,upperdir=$1/changes,workdir=$1/work" "$1/root"
}

try_in_view() {
  set -euo pipefail
  make_view "$1"
  mount --rbind /dev "$1/root/dev"
  mount -t proc proc "$1/root/proc"
  mount -t tmpfs none "$1/root/tmp"
  cp -r "$2" "$1/root/tmp/packages"
  chroot "$1/root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/tmp \
    bash -c "$(declare -f try_packages); try_packages /tmp/packages"
}

# A function of this script as root, in a name space whose mounts nobody else sees.
apart() { "${as_root[@]}" unshare --mount bash -c "$(declare -f try_packages make_view try_in_view); \"\$@\"" apart "$@"; }

cd "$(dirname "$0")/../.."
folder=${QUORIX_BUILD:-build-deb}
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/view" "$scratch/packages"

build_packages
cp -r tests/package/outside "$folder"/packages/*.deb "$scratch/packages"
if apart make_view "$scratch/view" 2>/dev/null; then
  apart try_in_view "$scratch/view" "$scratch/packages"
elif [ "${CI:-}" = true ]; then
  "${as_root[@]}" bash -c "$(declare -f try_packages); try_packages \"\$1\"" packages "$scratch/packages"
else
  echo "deb.sh: no view of the machine to install into, and CI is not true" >&2
  exit 1
fi
echo "packages: install, work and go without a trace"
