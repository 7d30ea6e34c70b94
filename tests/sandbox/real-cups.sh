# Real CUPS mode of the sandbox: filled in by real_cups_start/real_cups_stop.
real_cups_start() { echo "run-in-sandbox: real CUPS mode is not available yet" >&2; exit 77; }
real_cups_stop() { :; }
