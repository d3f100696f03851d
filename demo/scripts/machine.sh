# Shell functions of the demo installer. The engine hands every property in
# as a shell variable LI_<name>; a function gives a value back by exporting
# LI_<name>.

# A few facts about this machine, shown on the welcome screen.
detect_machine() {
    export LI_MACHINE_KERNEL="$(uname -sr 2>/dev/null)"
    export LI_MACHINE_CPUS="$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 1)"
    local kb
    kb=$(awk '/^MemTotal:/ { print $2 }' /proc/meminfo 2>/dev/null)
    export LI_MACHINE_MEMORY=$((${kb:-0} / 1024))
}

# The free space, in MiB, of the file system that would hold
# KELM_INSTALL_DIR: its nearest existing directory is measured.
measure_target() {
    local dir="$LI_KELM_INSTALL_DIR"
    while [ -n "$dir" ] && [ ! -d "$dir" ]; do
        dir=$(dirname "$dir")
    done
    export LI_TARGET_FREE_MB="$(df -Pk "${dir:-/}" 2>/dev/null | awk 'NR == 2 { print int($4 / 1024) }')"
}

# The answers of a silent run, from the file named by the property silent:
# NAME=value lines; empty lines and lines starting with # are passed over.
read_answers() {
    local line name value
    if [ ! -r "$LI_silent" ]; then
        export LI_SILENT_ANSWERS=missing
        return 1
    fi
    while IFS= read -r line || [ -n "$line" ]; do
        case $line in '' | '#'*) continue ;; esac
        name=${line%%=*}
        value=${line#*=}
        case $name in '' | *[!A-Za-z0-9_]*) continue ;; esac
        export "LI_$name=$value"
    done <"$LI_silent"
    export LI_SILENT_ANSWERS=read
}
