#!/usr/bin/env bash
# Signs programs and libraries for Windows: CORVANE_SIGN is a command that gets the path of one file as its last argument
# and signs it in place. Files that bear a signature already are left alone.
#
#   sign.sh <file or folder>...
set -euo pipefail

: "${CORVANE_SIGN:?the command that signs a file}"

# The size of the table of certificates, in the file's header.
is_signed() {
    python3 - "$1" <<'PYTHON'
import struct
import sys
content = open(sys.argv[1], "rb").read()
header = struct.unpack_from("<I", content, 0x3c)[0] + 24
directories = header + (112 if struct.unpack_from("<H", content, header)[0] == 0x20b else 96)
sys.exit(0 if struct.unpack_from("<I", content, directories + 4 * 8 + 4)[0] else 1)
PYTHON
}

count=0
while IFS= read -r -d '' file; do
    ! is_signed "$file" || continue
    # shellcheck disable=SC2086 # a command and its arguments
    $CORVANE_SIGN "$file" >/dev/null || { printf 'sign: failed: %s %s\n' "$CORVANE_SIGN" "$file" >&2; exit 1; }
    is_signed "$file" || { printf 'sign: %s has left %s unsigned\n' "$CORVANE_SIGN" "$file" >&2; exit 1; }
    count=$((count + 1))
done < <(find "$@" -type f \( -name '*.exe' -o -name '*.dll' \) -print0 | sort -z)
printf 'signed    %d files\n' "$count"
