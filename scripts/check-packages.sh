#!/bin/sh
# CI, after the test suite: builds the amd64 packages, installs them into a fresh Debian 12 root
# (debootstrap minbase, chroot) with g++ and pkg-config, builds the README's short program there
# against libvexlor-dev with pkg-config, and runs it with a target configured in the installed
# /etc/vexlor/vexlor.cfg; checks the copyright files and the system include directory, then that a
# purge removes what the library wrote. Needs root and Debian's mirror; leaves nothing behind.
set -eu
cd "$(dirname "$0")/.."
mirror="${VEXLOR_DEBIAN_MIRROR:-http://deb.debian.org/debian}"
scripts/package.sh >/dev/null
root=$(mktemp -d /var/tmp/vexlor-root.XXXXXX)
trap 'rm -rf "$root"' EXIT
chmod 755 "$root"  # apt's download user must reach it
start=$(date +%s)
debootstrap --variant=minbase bookworm "$root" "$mirror" >"$root.log" 2>&1 || { cat "$root.log"; rm -f "$root.log"; exit 1; }
rm -f "$root.log"
echo "=== debootstrap: $(($(date +%s) - start)) s ==="
mkdir -p "$root/tmp/vexlor"
cp build/packages/*_amd64.deb "$root/tmp/vexlor/"
cp /etc/resolv.conf "$root/etc/resolv.conf"
# The README's program: the first C++ block after its heading.
sed -n '/^## A short program/,/^```$/p' README.md | sed '1,/^```cpp$/d;$d' > "$root/tmp/vexlor/prog.cpp"

cat > "$root/tmp/vexlor/run.sh" <<'INSIDE'
#!/bin/sh
set -eu
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends g++ pkg-config /tmp/vexlor/*.deb >/dev/null
cd /tmp/vexlor
g++ prog.cpp $(pkg-config --cflags --libs vexlor) -o prog
plugins=$(pkg-config --variable=plugindir vexlor)
# The console target on standard output, with every level of net.
target="$plugins/libvexlor-console.so, stream=stdout"
# Written in place over the conffile, as an operator would.
printf 'component = net, 111111111\ntarget = %s\n' "$target" > /etc/vexlor/vexlor.cfg
./prog > output.txt
cat output.txt
for text in "link down on eth0" "entering" "retry 3" "leaving"; do
  grep -q "$text" output.txt || { echo "missing in the output: $text"; exit 1; }
done
# The headers are in the system's include directory, which pkg-config leaves out.
[ -z "$(pkg-config --cflags vexlor)" ] || { echo "pkg-config --cflags: $(pkg-config --cflags vexlor)"; exit 1; }
for package in $(dpkg-query -W -f='${Package}\n' 'libvexlor*' 'vexlor-*'); do
  grep -q '^License: MIT' "/usr/share/doc/$package/copyright" || { echo "$package: no copyright file"; exit 1; }
done
# Purging removes what the library wrote at run time, and the legacy level file the package made.
grep -q '^prog 7' /etc/tarsinlog.cfg || { echo "the program left no line in /etc/tarsinlog.cfg"; exit 1; }
mkdir -p /run/vexlor/recorder && touch /run/vexlor/recorder/prog.1.ring
dpkg --purge $(dpkg-query -W -f='${Package}\n' 'libvexlor*' 'vexlor-*') >/dev/null
for left in /etc/tarsinlog.cfg /run/vexlor /etc/vexlor/vexlor.cfg; do
  [ ! -e "$left" ] || { echo "left after purge: $left"; exit 1; }
done
INSIDE
chmod +x "$root/tmp/vexlor/run.sh"
# A private mount namespace: /proc for the chroot, gone with the namespace whatever happens.
unshare --mount --propagation private sh -c "mount -t proc proc '$root/proc' && mount -t devpts devpts '$root/dev/pts' &&
  chroot '$root' /tmp/vexlor/run.sh"
echo "=== packages installed, README program built and run in a fresh Debian 12: $(($(date +%s) - start)) s ==="
