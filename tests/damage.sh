#!/bin/sh
# A tenth of what damage.py does by hand (500 damages, 100 healthy copies).
# damage.sh [DAMAGES [HEALTHY [SEED]]]; the program is ZEV_BIN.
set -e
command -v python3 >/dev/null || exit 77
exec python3 "$(dirname "$0")/damage.py" "${ZEV_BIN:?}" "${1:-50}" "${2:-10}" "${3:-1}"
