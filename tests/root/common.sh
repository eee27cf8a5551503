# shellcheck shell=bash
# Sourced, in the root of the tree, by the tests that need a bare Debian 12: makes one in a scratch
# directory, and runs the test with a mount and a process namespace of its own, so that no mount and
# no process outlives it. Where this is not permitted, or no mirror can be reached, the test says
# "skipped: ..." and passes.
#
# PTPLIB_MIRROR: the mirror to use, instead of Debian's own. The network is that of the machine.

skip() {
   echo "skipped: $*"
   exit 0
}

fail() {
   echo "$*"
   exit 1
}

# In the first run of the script; the second one has the namespaces.
if [ -z "${PTPLIB_ROOT:-}" ]; then
   if [ "$(id -u)" != 0 ]; then
      sudo -n true 2>/dev/null || skip "needs root, or sudo without a password"
      exec sudo -n PTPLIB_MIRROR="${PTPLIB_MIRROR:-}" http_proxy="${http_proxy:-}" \
         "tests/root/${0##*/}" "$@"
   fi
   command -v mmdebstrap >/dev/null || skip "mmdebstrap is not installed"
   namespaces=(unshare --mount --pid --fork --kill-child)
   "${namespaces[@]}" true 2>/dev/null || skip "may not use namespaces"
   scratch=$(mktemp -d)
   trap 'rm -rf "$scratch"' EXIT
   trap 'exit 130' INT TERM
   mkdir "$scratch/root"
   timeout 600 mmdebstrap --quiet --variant=minbase --include=ca-certificates bookworm \
      "$scratch/root" ${PTPLIB_MIRROR:+"$PTPLIB_MIRROR"} >"$scratch/log" 2>&1 ||
      skip "cannot make a root file system: $(tail -n 1 "$scratch/log")"
   # All processes inside end with this one, which ignores other signals.
   PTPLIB_ROOT=$scratch/root "${namespaces[@]}" "tests/root/${0##*/}" "$@" &
   inner=$!
   trap 'kill -KILL "$inner"; exit 130' INT TERM
   wait "$inner"
   exit
fi

root=$PTPLIB_ROOT
mount --make-rprivate /
mount --bind "$root" "$root"
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mount --rbind /sys "$root/sys"
mount -t tmpfs run "$root/run"
cp -L /etc/resolv.conf /etc/hosts "$root/etc/"
[ -z "${http_proxy:-}" ] ||
   echo "Acquire::http::Proxy \"$http_proxy\";" >"$root/etc/apt/apt.conf.d/90proxy"

# inside COMMAND...: runs it in the root, as root, with nothing of the environment. A process that was
# only moved by chroot could not make namespaces of its own, as the demo does.
inside() {
   unshare --mount bash -c '
      cd "$1" && shift && pivot_root . mnt && umount -l /mnt &&
         exec env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
            HOME=/root DEBIAN_FRONTEND=noninteractive "$@"' inside "$root" "$@"
}

# install PACKAGE...: installs packages of Debian, and package files by their path in the root.
install() {
   inside apt-get -qq update
   inside apt-get -qq -y --no-install-recommends install "$@" >"$root/tmp/apt.log" 2>&1 || {
      cat "$root/tmp/apt.log"
      fail "cannot install $*"
   }
}
