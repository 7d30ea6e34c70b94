# Real CUPS mode of the sandbox, sourced by run-in-sandbox once the private mounts are
# in place (so /tmp, /etc/cups and /usr/lib/cups/backend are already ours).
#
# real_cups_start
#   - mounts private tmpfs folders over CUPS's spool, cache and log folders (and its
#     run folder when the machine has one) and writes our own cupsd.conf and
#     cups-files.conf into the private /etc/cups: the scheduler listens only on a
#     domain socket in the sandbox, with no browsing, no web interface and no
#     remote access;
#   - puts the real "socket" backend next to our fixture backends;
#   - starts CUPS's own "cupsd -f" in the background and waits until "lpstat -r"
#     says it is running;
#   - starts tests/sandbox/printer-listener, a loopback printer that keeps every job
#     it receives as a file (and answers the backend's SNMP questions at once; the
#     runner gives this mode a private network namespace, so port 161 is ours);
#   - exports CUPS_SERVER (the scheduler's socket, so the real lpadmin, lpstat, lp,
#     cupsaccept and lpinfo talk to our cupsd only), SANDBOX_CUPS_LOG (its error log),
#     SANDBOX_PRINTER_PORT (the listener's port on 127.0.0.1) and SANDBOX_JOBS_DIR
#     (where the listener keeps the jobs: job-1, job-2, ... in order of arrival).
# real_cups_stop
#   stops the listener and cupsd (the PID namespace would end them anyway).
#
# A machine without cupsd, the socket backend or python3 cannot run this mode: the
# runner then exits with a message and status 2.

real_cups_fail() {
    echo "run-in-sandbox --real-cups: $*" >&2
    if [ -n "${REAL_CUPS_LOG:-}" ] && [ -s "$REAL_CUPS_LOG" ]; then
        echo "--- cupsd error log ---" >&2
        tail -n 40 "$REAL_CUPS_LOG" >&2
    fi
    real_cups_stop
    exit 2
}

real_cups_scheduler_runs() {
    lpstat -r 2>/dev/null | grep -q 'is running'
}

# real_cups_wait PID_VARIABLE OUTPUT SECONDS DIED_MESSAGE LATE_MESSAGE COMMAND...
# Tries COMMAND every tenth of a second until it succeeds. Should the process whose id
# PID_VARIABLE holds end first, its OUTPUT is shown, the variable is emptied (nothing
# left to stop) and the run fails with DIED_MESSAGE; after SECONDS it fails with
# LATE_MESSAGE.
real_cups_wait() {
    local pid_variable=$1 output=$2 seconds=$3 died=$4 late=$5 tries=0
    shift 5
    until "$@"; do
        if ! kill -0 "${!pid_variable}" 2>/dev/null; then
            cat "$output" >&2 2>/dev/null || true
            printf -v "$pid_variable" '%s' ''
            real_cups_fail "$died"
        fi
        tries=$((tries + 1))
        [ $tries -lt $((seconds * 10)) ] || real_cups_fail "$late"
        sleep 0.1
    done
}

real_cups_start() {
    REAL_CUPS_PID=
    REAL_CUPS_LISTENER_PID=
    REAL_CUPS_LOG=

    local cupsd socket_backend python
    cupsd=$(command -v cupsd || true)
    [ -n "$cupsd" ] || { [ -x /usr/sbin/cupsd ] && cupsd=/usr/sbin/cupsd; }
    [ -n "$cupsd" ] || real_cups_fail "cupsd was not found (install the cups-daemon package)"
    python=$(command -v python3 || true)
    [ -n "$python" ] || real_cups_fail "python3 was not found; it runs the loopback printer"

    # The sandbox has put a tmpfs over /usr/lib/cups/backend; the real socket backend is
    # still visible through a plain (non-recursive) bind of the root file system, which
    # shows no mounts made on top of it.
    local hostroot=$SANDBOX_DIR/hostroot
    mkdir -p "$hostroot"
    mount --bind -o ro / "$hostroot" 2>/dev/null || mount --bind / "$hostroot" \
        || real_cups_fail "cannot reach the host's CUPS backends"
    socket_backend=$hostroot/usr/lib/cups/backend/socket
    [ -x "$socket_backend" ] || { umount "$hostroot"; real_cups_fail "the CUPS socket backend is missing (install the cups package, which holds the socket, lpd and usb backends)"; }
    # cupsd runs a backend as root only when no one else may run it; 0700 keeps it
    # from dropping to the lp user, which cannot read our private folders.
    install -m 0700 "$socket_backend" /usr/lib/cups/backend/socket
    umount "$hostroot"
    rmdir "$hostroot"

    # run-in-sandbox gave this mode a network namespace of its own; its loopback
    # interface starts down. Python raises it, so the mode needs no further package.
    "$python" - <<'PYTHON' || real_cups_fail "cannot bring up the sandbox's loopback interface"
import fcntl, socket, struct
SIOCGIFFLAGS, SIOCSIFFLAGS, IFF_UP = 0x8913, 0x8914, 0x1
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
    request = struct.pack("16sH14s", b"lo", 0, b"")
    flags = struct.unpack("16sH14s", fcntl.ioctl(s, SIOCGIFFLAGS, request))[1]
    fcntl.ioctl(s, SIOCSIFFLAGS, struct.pack("16sH14s", b"lo", flags | IFF_UP, b""))
PYTHON

    local dir
    for dir in /var/spool/cups /var/cache/cups /var/log/cups /run/cups; do
        [ -d "$dir" ] || continue
        mount -t tmpfs -o mode=755 sandbox-cups "$dir" \
            || real_cups_fail "cannot mount a private $dir"
    done
    # A machine without /run/cups (the scheduler has never run) gets the run folder
    # inside the sandbox's private /tmp instead of creating one on the host.
    local state=/run/cups
    [ -d "$state" ] || state=$SANDBOX_DIR/cups-run
    mkdir -p "$state" /var/spool/cups/tmp /var/cache/cups /var/log/cups

    REAL_CUPS_LOG=/var/log/cups/error_log
    : > "$REAL_CUPS_LOG"
    mkdir -p /etc/cups/ppd
    cat > /etc/cups/cups-files.conf <<EOF
# Private scheduler of the test sandbox.
User lp
Group lp
SystemGroup root
LogFileGroup root
RequestRoot /var/spool/cups
TempDir /var/spool/cups/tmp
CacheDir /var/cache/cups
StateDir $state
ErrorLog $REAL_CUPS_LOG
AccessLog /var/log/cups/access_log
PageLog /var/log/cups/page_log
FileDevice No
EOF
    cat > /etc/cups/cupsd.conf <<EOF
# Private scheduler of the test sandbox: a local socket only, nothing shared,
# no browsing, anyone on the socket may administer it.
LogLevel debug
Listen $state/cups.sock
Browsing No
BrowseLocalProtocols none
DefaultShared No
WebInterface No
DefaultAuthType None
JobRetryInterval 1
MaxJobTime 60
PreserveJobHistory No
<Location />
  Order allow,deny
  Allow localhost
</Location>
<Policy default>
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
EOF

    export CUPS_SERVER=$state/cups.sock
    export SANDBOX_CUPS_LOG=$REAL_CUPS_LOG
    "$cupsd" -f -c /etc/cups/cupsd.conf -s /etc/cups/cups-files.conf \
        >> "$SANDBOX_DIR/cupsd.out" 2>&1 &
    REAL_CUPS_PID=$!

    real_cups_wait REAL_CUPS_PID "$SANDBOX_DIR/cupsd.out" 20 "cupsd did not start" \
        "cupsd did not answer within 20 seconds" real_cups_scheduler_runs

    export SANDBOX_JOBS_DIR=$SANDBOX_DIR/printer-jobs
    local port_file=$SANDBOX_DIR/printer-port
    mkdir -p "$SANDBOX_JOBS_DIR"
    "$python" "$here/printer-listener" --answer-snmp "$SANDBOX_JOBS_DIR" "$port_file" \
        >> "$SANDBOX_DIR/printer-listener.out" 2>&1 &
    REAL_CUPS_LISTENER_PID=$!
    real_cups_wait REAL_CUPS_LISTENER_PID "$SANDBOX_DIR/printer-listener.out" 10 \
        "the loopback printer did not start" \
        "the loopback printer did not start within 10 seconds" test -s "$port_file"
    export SANDBOX_PRINTER_PORT
    SANDBOX_PRINTER_PORT=$(cat "$port_file")
}

real_cups_stop() {
    local pid
    for pid in ${REAL_CUPS_LISTENER_PID:-} ${REAL_CUPS_PID:-}; do
        kill "$pid" 2>/dev/null || continue
        # Give cupsd a moment to write its state; it is ended anyway with the namespace.
        local tries=0
        while kill -0 "$pid" 2>/dev/null && [ $tries -lt 50 ]; do
            sleep 0.1
            tries=$((tries + 1))
        done
        wait "$pid" 2>/dev/null || true
    done
    REAL_CUPS_LISTENER_PID=
    REAL_CUPS_PID=
}
