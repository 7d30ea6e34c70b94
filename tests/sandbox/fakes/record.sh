# Sourced by every fake: appends one line to $SANDBOX_LOG, the program's name and then
# each argument, separated by tabs.
sandbox_record() {
    local name
    name=$(basename "$0")
    { printf '%s' "$name"; for a in "$@"; do printf '\t%s' "$a"; done; printf '\n'; } >> "${SANDBOX_LOG:-/dev/null}"
}
