# shellcheck shell=bash
# Shared by tests/boot/kernel-boot-test and bench/kernel-boot-cost: the image of
# tests/boot/kernel-image booted under QEMU with Debian's kernel, and driven from outside
# through the machine's control agent (kernel-fixture/fixture-agent). Source it with
# $project (the checkout) and $work (a folder of ours under build/) set.
#
# QEMU runs with software emulation (-accel tcg, one processor, 1 GiB) unless
# PRINTERCONFIG_QEMU_ACCEL says otherwise ("kvm" where /dev/kvm runs Debian's kernel).
# The machine has no network. Three channels to it, all under $work/vm:
#   console.log   its serial console (kernel and systemd messages), for a look afterwards
#   control.in/.out  the control agent's virtio-serial port (two FIFOs)
#   printer.bin   everything the USB printer gadget received, passed on by the printer's
#                 side over a second virtio-serial port (8-bit clean): the test finds a
#                 job's bytes there by their offset
# and the folder $work/vm/jobs, shared read-only (9p) as /mnt/jobs: the jobs to print.

# shellcheck source=lib.sh
. "$project/tests/boot/lib.sh"
tool_name=${tool_name:-kernel-boot-test}
say() { printf '%s: %s\n' "$tool_name" "$*"; }

accel=${PRINTERCONFIG_QEMU_ACCEL:-tcg}
vm=$work/vm
image=$work/image
qemu_pid=
boot_id=

# Why the machine cannot be booted here, or nothing.
qemu_cannot_run() {
    [ "$(id -u)" = 0 ] || { echo "making the image (chroot, file owners) needs root"; return; }
    local tool
    for tool in qemu-system-x86_64 mmdebstrap mkfs.ext4 zstd dpkg-deb unshare; do
        command -v "$tool" >/dev/null || { echo "$tool is not installed (scripts/setup --fresh installs it)"; return; }
    done
    if [ "$accel" = kvm ] && [ ! -w /dev/kvm ]; then echo "PRINTERCONFIG_QEMU_ACCEL=kvm but /dev/kvm cannot be used"; fi
}

# vm_start [KERNEL ARGUMENTS...]: powers the machine on (a fresh console log and printer
# output) and waits for the control agent.
vm_start() {
    vm_args=$*
    mkdir -p "$vm/jobs"
    : >"$vm/printer.bin"
    : >"$vm/console.log"
    : >"$vm/qemu.log"
    boot_id=
    vm_launch
}

# Starts QEMU on the image. -no-reboot: when the machine reboots itself, QEMU ends and
# vm_reboot starts it again. (A reset inside one QEMU process made every other boot some
# 40 s slower under emulation, before the kernel's first line.)
vm_launch() {
    local cpu=max
    [ "$accel" = kvm ] && cpu=${PRINTERCONFIG_QEMU_CPU:-host}
    rm -f "$vm/control.in" "$vm/control.out"
    mkfifo "$vm/control.in" "$vm/control.out"
    # shellcheck disable=SC2086 # the kernel arguments are words
    qemu-system-x86_64 -name printerconfig-test -machine q35 -accel "$accel" -cpu "$cpu" -smp 1 -m 1024 \
        -nodefaults -display none -no-user-config -nic none -no-reboot \
        -kernel "$image/vmlinuz" -initrd "$image/initrd.img" \
        -append "root=/dev/vda rw console=ttyS0 mitigations=off quiet systemd.show_status=1 $vm_args" \
        -drive "file=$image/root.ext4,format=raw,if=virtio,cache=unsafe" \
        -virtfs "local,path=$vm/jobs,mount_tag=jobs,security_model=none,readonly=on" \
        -chardev "file,id=console,path=$vm/console.log,append=on" -serial chardev:console \
        -device virtio-serial-pci \
        -chardev "pipe,id=control,path=$vm/control" -device virtserialport,chardev=control,name=org.printerconfig.control \
        -chardev "file,id=printer,path=$vm/printer.bin,append=on" -device virtserialport,chardev=printer,name=org.printerconfig.printer \
        </dev/null >>"$vm/qemu.log" 2>&1 &
    qemu_pid=$!
    exec 5>"$vm/control.in" 6<"$vm/control.out"
    vm_wait_ready 300
}

# Waits up to SECONDS for the control agent of a boot other than the last one seen.
vm_wait_ready() {
    local line deadline=$((SECONDS + $1))
    while [ $SECONDS -lt $deadline ]; do
        kill -0 "$qemu_pid" 2>/dev/null || die "QEMU ended: $(tail -n 5 "$vm/qemu.log" "$vm/console.log" | tr '\n' ' ')"
        IFS= read -r -t 5 -u 6 line || continue
        case $line in
        "@@READY "*)
            [ "${line#@@READY }" != "$boot_id" ] || continue
            boot_id=${line#@@READY }
            return 0
            ;;
        esac
    done
    die "the machine did not come up within $1 s (console: $vm/console.log)"
}

# g COMMAND...: runs the shell command in the machine (as root); its output on standard
# output, its exit status returned. 120 s at most.
g() {
    local line status
    printf '%s\n' "$(printf '%s' "$*" | base64 -w0)" >&5
    while IFS= read -r -t 120 -u 6 line; do
        case $line in
        "@@OUT "*)
            line=${line#@@OUT }
            status=${line%% *}
            line=${line#"$status"}
            printf '%s' "${line# }" | base64 -d
            [ -z "${line# }" ] || echo
            return "$status"
            ;;
        esac
    done
    echo "no answer from the machine within 120 s: $*"
    return 124
}

# Waits until systemd has finished starting the machine; prints its state.
vm_booted() { g 'timeout 300 systemctl is-system-running --wait' || true; }

# The machine reboots itself (systemctl reboot: the system goes down and the kernel
# restarts the machine); QEMU ends there and is started again on the same image.
vm_reboot() {
    local lines
    lines=$(wc -l <"$vm/console.log")
    g 'systemctl reboot --no-block' >/dev/null || true
    vm_wait_exit 120
    tail -n +"$((lines + 1))" "$vm/console.log" | grep -q 'reboot: Restarting system' ||
        die "the machine did not reboot (console: $vm/console.log)"
    vm_launch
}

# Waits up to SECONDS for QEMU to end; ends it if it does not.
vm_wait_exit() {
    await_end "$qemu_pid" "$1" "the machine did not go down in $1 s; ending QEMU"
    exec 5>&- 6<&-
    qemu_pid=
}

# Powers the machine off and waits for QEMU to end.
vm_poweroff() {
    [ -n "$qemu_pid" ] || return 0
    g 'systemctl poweroff --no-block' >/dev/null 2>&1 || true
    vm_wait_exit 60
}

# Bytes the printer has received so far, over all boots since vm_start.
printer_received() { stat -c %s "$vm/printer.bin"; }
