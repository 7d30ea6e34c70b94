# Shared by tests/boot/boot-test and bench/boot-cost (and, through kernel-lib.sh, by the
# QEMU test and its bench): a Debian 12 root with systemd and CUPS, booted with
# systemd-nspawn and driven from outside with nsenter. Source it with $project (the
# checkout) and $work (a folder of ours under build/) set.

cache=${PRINTERCONFIG_FRESH_CACHE:-/var/cache/printerconfig-fresh}
root=$work/root
nspawn_pid=
ct=

say() { printf 'boot-test: %s\n' "$*"; }
die() { say "ERROR: $*" >&2; exit 1; }
# Exit status 77 is a skip for CTest (SKIP_RETURN_CODE) and for our callers.
skip() { say "SKIPPED: $*"; exit 77; }

step_start=$SECONDS
step() { say "--- $* (at $((SECONDS - step_start)) s)"; }

# equal GOT WANTED: true when the two are the same, both shown otherwise.
equal() { [ "$1" = "$2" ] || { printf 'expected: %s\n     got: %s\n' "$2" "$1"; return 1; }; }

# rated_at_most MAX: reads "systemd-analyze security UNIT" and is true when the unit's
# overall exposure is at most MAX; the exposure found is shown.
rated_at_most() {
    awk -v max="$1" '/Overall exposure level for/ { sub(/.*Overall exposure level for [^:]*: /, ""); got = $1 }
        END { print "exposure " got; exit !(got != "" && got <= max) }'
}

# For the benches: microseconds in whole milliseconds, and the median of the numbers
# read, one a line.
ms() { awk -v us="$1" 'BEGIN { printf "%.0f", us / 1000 }'; }
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# Why nspawn cannot boot a root on this machine, or nothing.
cannot_boot() {
    [ "$(id -u)" = 0 ] || { echo "systemd-nspawn and nsenter need root"; return; }
    local tool
    for tool in systemd-nspawn nsenter mmdebstrap zstd; do
        command -v "$tool" >/dev/null || { echo "$tool is not installed (scripts/setup --fresh installs it)"; return; }
    done
    [ -d /sys/fs/cgroup ] || echo "no control group file system at /sys/fs/cgroup"
}

# The .deb to test: the given one, or one built by "bash scripts/package" in a clean
# clone of HEAD under $work.
package_deb() {
    local given=${1:-}
    if [ -n "$given" ]; then
        [ -f "$given" ] || die "no package at $given"
        deb=$(realpath "$given")
        return
    fi
    rm -rf "$work/clone"
    git clone --quiet --no-hardlinks "$project" "$work/clone"
    git -C "$work/clone" checkout --quiet --detach "$(git -C "$project" rev-parse HEAD)"
    (cd "$work/clone" && bash scripts/package) >"$work/package.log" 2>&1 \
        || { tail -n 30 "$work/package.log" >&2; die "bash scripts/package failed (log: $work/package.log)"; }
    deb=$(ls "$work"/clone/build/package/printerconfig_*.deb)
}

# The cached root: a minimal Debian 12 with systemd, CUPS (the package cups: its scheduler,
# tools, backends and cups-deviced, which "lpinfo -v" needs) and the libraries the
# package needs, so that installing it downloads nothing. Remade when the
# package list changes.
root_tarball() {
    local pkgs deps
    deps=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/|.*//; s/(.*)//; s/ //g' | grep -v '^$')
    pkgs=$(printf '%s\n' systemd systemd-sysv dbus cups $deps | sort -u | paste -sd, -)
    tarball=$cache/bookworm-boot.tar.zst
    mkdir -p "$cache"
    if [ -s "$tarball" ] && [ "$(cat "$tarball.packages" 2>/dev/null)" = "$pkgs" ]; then
        return
    fi
    say "mmdebstrap a Debian 12 root with $pkgs"
    # Debian 12's own archive, whatever release this machine runs.
    mmdebstrap --variant=minbase --include="$pkgs" bookworm "$tarball.part.tar.zst" \
        "deb http://deb.debian.org/debian bookworm main" \
        "deb http://deb.debian.org/debian bookworm-updates main" \
        "deb http://deb.debian.org/debian-security bookworm-security main" >"$work/mmdebstrap.log" 2>&1 \
        || { tail -n 20 "$work/mmdebstrap.log" >&2; die "mmdebstrap failed (log: $work/mmdebstrap.log)"; }
    mv "$tarball.part.tar.zst" "$tarball"
    echo "$pkgs" >"$tarball.packages"
}

# Runs a command in the root while it is not booted (nspawn's own mounts, no network).
in_root() {
    systemd-nspawn -q -D "$root" --register=no --keep-unit --private-network \
        env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 "$@" </dev/null
}

# A fresh root from the tarball with the package installed by apt, the fixture printer
# and the device stand-in.
fresh_root() {
    local fixture=$project/tests/boot/fixture
    rm -rf --one-file-system "$root"
    mkdir -p "$root"
    tar -C "$root" --zstd --numeric-owner -xpf "$tarball"
    mkdir -p "$root/var/log/journal"
    cp "$deb" "$root/root/"
    if [ "${install_package:-yes}" = yes ]; then
        in_root apt-get install -y -q --no-install-recommends "/root/${deb##*/}" >"$work/install.log" 2>&1 \
            || { tail -n 20 "$work/install.log" >&2; die "apt-get install of the package failed (log: $work/install.log)"; }
    fi
    # The fixture printer's backend takes the place of Debian's usb backend.
    in_root dpkg-divert --quiet --local --rename --add /usr/lib/cups/backend/usb
    install -m 755 "$fixture/usb-backend" "$root/usr/lib/cups/backend/usb"
    install -D -m 755 "$fixture/acme-label-filter" "$root/usr/lib/cups/filter/acme-label"
    install -D -m 644 "$fixture/acme-label.ppd" "$root/usr/share/ppd/acme/label.ppd"
    install -m 644 "$fixture/device-restore.service" "$root/etc/systemd/system/fixture-device-restore.service"
    mkdir -p "$root/etc/systemd/system/sysinit.target.wants" "$root/var/lib/fixture-printer"
    ln -sf ../fixture-device-restore.service "$root/etc/systemd/system/sysinit.target.wants/"
    install -d -m 755 "$root/var/lib/fixture-device/config/registry/hardware/printer" \
        "$root/var/lib/fixture-device/config/files/cups"
    in_root install -d -o lp -g lp -m 755 /var/spool/fixture-printer
}

# attach URI (or nothing): which printer the fixture usb backend reports.
attach() { printf '%s' "${1:-}" >"$root/var/lib/fixture-printer/attached"; }

# store_printer NAME CLASS URI: the record in persistent storage, as the tool commits it,
# and for a USB printer the driver description staged with its paper size, as the tool
# stages it after installing the queue.
store_printer() {
    local name=$1 class=$2 uri=$3 persist=$root/var/lib/fixture-device/config
    printf '%s\n' "name=$name" "class=$class" "model=Acme Label" "device_uri=$uri" \
        "ppd=/usr/share/ppd/acme/label.ppd" "win_driver=Generic / Text Only" \
        "paper_size=Label62" "default_vdi_printer=false" \
        >"$persist/registry/hardware/printer/$name.pr"
    sed 's/^\*DefaultPageSize: .*/*DefaultPageSize: Label62/' "$project/tests/boot/fixture/acme-label.ppd" \
        >"$persist/files/cups/$name.ppd"
}
unstore_printer() {
    rm -f "$root/var/lib/fixture-device/config/registry/hardware/printer/$1.pr" \
        "$root/var/lib/fixture-device/config/files/cups/$1.ppd"
}

# Runs a command inside the booted root.
in_ct() {
    nsenter -t "$ct" -a env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 "$@" </dev/null
}

# Boots the root and waits until systemd has finished starting it. Prints the state
# systemd reports ("running" or "degraded").
boot() {
    local name=$1 i
    systemd-nspawn -q -D "$root" -b --console=pipe --private-network --register=no \
        --keep-unit </dev/null >"$work/$name.console" 2>&1 &
    nspawn_pid=$!
    ct=
    for i in $(seq 200); do
        ct=$(ps -o pid=,comm= --ppid "$nspawn_pid" | awk '$2 == "systemd" { print $1 }' || true)
        [ -z "$ct" ] || break
        kill -0 "$nspawn_pid" 2>/dev/null || break
        sleep 0.1
    done
    if [ -z "$ct" ]; then
        wait "$nspawn_pid" || true
        nspawn_pid=
        skip "systemd-nspawn cannot boot a root here: $(tail -n 3 "$work/$name.console" | tr '\n' ' ')"
    fi
    # systemctl answers once PID 1 has made its socket.
    for i in $(seq 300); do
        [ -S "/proc/$ct/root/run/systemd/private" ] && break
        sleep 0.1
    done
    # "nowait": the caller watches the boot itself (a boot that is meant not to finish).
    [ "${2:-}" = nowait ] && { state=; return; }
    state=$(timeout 180 nsenter -t "$ct" -a systemctl is-system-running --wait 2>&1) || true
}

# await_end PID SECONDS MESSAGE: waits up to SECONDS for the child PID to end; when it
# does not, says MESSAGE and ends it. Either way it is reaped.
await_end() {
    local _
    for _ in $(seq $(($2 * 10))); do
        kill -0 "$1" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$1" 2>/dev/null; then
        say "$3"
        kill "$1" 2>/dev/null || true
    fi
    wait "$1" 2>/dev/null || true
}

# Powers the booted root off and waits for nspawn to end.
shutdown_root() {
    [ -n "$nspawn_pid" ] || return 0
    in_ct systemctl poweroff >/dev/null 2>&1 || true
    await_end "$nspawn_pid" 30 "the root did not power off in 30 s; ending its systemd-nspawn"
    nspawn_pid=
    ct=
}

# A unit's property as a number (microseconds for timestamps).
unit_prop() { in_ct systemctl show -P "$2" "$1"; }
