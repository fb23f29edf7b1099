# Sourced by the scripts about the Debian package, after common.sh. Makes roots of Debian releases
# by debootstrap, keeps them in build/roots, and builds the package in them. Each command works in
# an overlay of a root, which is gone when the command ends.

readonly kTop=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
readonly kRoots=$kTop/build/roots kMirror=${IDSHIFT_MIRROR:-http://deb.debian.org/debian}

# Makes kRoots/RELEASE if it is missing. The packages for it are kept beside it.
base_root() { # RELEASE
  local root=$kRoots/$1 new=$kRoots/$1.new tool
  ((EUID == 0)) || skip "needs root, for debootstrap and namespaces"
  [[ ! -d $root ]] || return 0
  mkdir -p "$kRoots/tool" "$kRoots/debs-$1/partial"
  if [[ ! -d $kRoots/tool/usr ]]; then # unpacked only: this machine stays as it is
    (cd "$kRoots/tool" && { apt-get download -qq debootstrap || { apt-get update -qq && apt-get download -qq debootstrap; }; } &&
      dpkg-deb -x debootstrap_*.deb .) >/dev/null 2>&1 || { rm -rf "$kRoots/tool"; skip "debootstrap cannot be had"; }
  fi
  heading "debootstrap of $1"
  rm -rf "$new"
  tool=$kRoots/tool/usr
  DEBOOTSTRAP_DIR=$tool/share/debootstrap "$tool/sbin/debootstrap" --variant=minbase \
    --cache-dir="$kRoots/debs-$1" "$1" "$new" "$kMirror" >"$kRoots/$1.out" 2>&1 ||
    { tail -n 3 "$kRoots/$1.out"; rm -rf "$new"; skip "debootstrap of $1 from $kMirror fails"; }
  rm -f "$new"/var/cache/apt/archives/*.deb
  mv "$new" "$root"
}

# Runs this script again with the words given, as root of an overlay over the root of a release,
# with a network.
in_root() { # RELEASE WORD...
  local scratch status=0
  scratch=$(mktemp -d)
  IDSHIFT_BEGIN=$kBegin unshare --mount --pid --fork --kill-child -- \
    bash -c 'source "$1/common.sh" && source "$1/root.sh" && enter_root "${@:2}"' - \
    "$kTop/tests/real" "$scratch" "$@" || status=$?
  rmdir "$scratch"
  return "$status"
}
enter_root() { # SCRATCH RELEASE SCRIPT WORD...
  local scratch=$1 release=$2 root=$1/root
  shift 2
  mount_root "$kRoots/$release" "$scratch"
  mkdir -p "$root"/run/lock "$root"/opt/{top,debs} "$kRoots/out-$release" "$kRoots/ccache-$release"
  bind_read_only "$kTop" "$root/opt/top"
  mount --bind "$kRoots/debs-$release" "$root/opt/debs"
  mkdir -p "$root"/opt/{out,ccache}
  mount --bind "$kRoots/out-$release" "$root/opt/out"
  mount --bind "$kRoots/ccache-$release" "$root/opt/ccache"
  cd "$root"
  exec chroot . /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C TERM=dumb \
    http_proxy="${http_proxy-}" https_proxy="${https_proxy-}" IDSHIFT_BEGIN="$kBegin" \
    "/opt/top/tests/real/${1##*/}" "${@:2}"
}

# --- Inside a root

# Installs packages, which start no daemons, and keeps the downloads for the next run.
set_up_apt() {
  export DEBIAN_FRONTEND=noninteractive
  printf '%s "%s";\n' Dir::Cache::archives /opt/debs APT::Keep-Downloaded-Packages true \
    APT::Sandbox::User root APT::Install-Recommends false DPkg::Use-Pty 0 >/etc/apt/apt.conf.d/99real
  printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d
  chmod +x /usr/sbin/policy-rc.d
  apt-get update -qq >/tmp/apt.log 2>&1 || { tail -n 3 /tmp/apt.log; skip "no Debian archive within reach"; }
}
install_here() { # PACKAGE-OR-FILE...
  apt-get install -y -qq "$@" >/tmp/apt.log 2>&1 || { tail -n 20 /tmp/apt.log; fail "cannot install $*"; }
}

# Runs ./package in a copy of the tree, and leaves the packages in /opt/out.
build_here() {
  install_here ccache
  mkdir -p /build/tree /opt/out
  (cd /opt/top && tar --create --null --files-from="/opt/out/files") | tar --extract --directory=/build/tree
  export PATH=/usr/lib/ccache:$PATH CCACHE_DIR=/opt/ccache
  (cd /build/tree && ./package) >/opt/out/build.log 2>&1 || { tail -n 40 /opt/out/build.log; fail "./package"; }
  expect "tests of the build that failed" "0 tests failed" \
    "$(grep -oE '[0-9]+ tests? failed out of' /opt/out/build.log | sed 's/ out of//')"
  grep -E 'tests passed' /opt/out/build.log
  rm -f /opt/out/*.*deb
  cp /build/tree/build/package/*.* /opt/out/
}

# --- Outside of the roots

# Makes build/roots/out-RELEASE/idshift_*.deb, unless one of the same sources is there.
package_for() { # RELEASE SCRIPT
  local out=$kRoots/out-$1 sources
  base_root "$1"
  mkdir -p "$out"
  "$kTop/scripts/source-files" >"$out/files"
  sources=$(cd "$kTop" && grep -zv '^tests/real/' "$out/files" | xargs -0 sha256sum | sha256sum)
  [[ $(cat "$out/stamp" 2>/dev/null) != "$sources" ]] || { echo "ok: the package of these sources is there"; return 0; }
  rm -f "$out/stamp"
  in_root "$1" "$2" build
  echo "$sources" >"$out/stamp"
}
