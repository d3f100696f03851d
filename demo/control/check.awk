# Checks a silent answers file of the demo before the engine reads it:
# NAME=value lines with known names; comments and empty lines pass.
BEGIN { FS = "="; status = 0 }
/^#/ || /^[ \t]*$/ { next }
$1 !~ /^(ACCEPT_LICENSE|COMPONENTS|KELM_INSTALL_DIR|LANG|lang)$/ || NF < 2 {
    printf "Error: line %d of %s is not a known answer: %s\n", FNR, FILENAME, $0
    status = 1
}
END { exit status }
