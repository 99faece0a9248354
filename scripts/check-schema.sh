#!/usr/bin/env bash
# The schema evolution guard.
#   lint      buf lint with the exceptions listed in peripheralconfig/proto/buf.yaml
#   breaking  buf breaking (WIRE_JSON rules) against the locked descriptors,
#             tests/golden/schema-descriptors.binpb
# Usage: scripts/check-schema.sh [lint|breaking|all]    (default: all)
# buf comes from node_modules/ (scripts/setup.sh installs it; BUF=... overrides). Without it the
# check is skipped with exit status 77, except in CI (CI=true), where that is a failure.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
what=${1:-all}
buf=${BUF:-$root/node_modules/.bin/buf}
proto_root=$root/peripheralconfig/proto
lock=$root/tests/golden/schema-descriptors.binpb
case $what in lint | breaking | all) ;; *) echo "usage: $0 [lint|breaking|all]" >&2; exit 2 ;; esac

if [ ! -x "$buf" ]; then
  echo "check-schema: SKIPPED: buf is not installed ($buf); run scripts/setup.sh"
  [ "${CI:-}" = true ] && exit 1
  exit 77
fi

# A Python 3 with the protobuf runtime (Debian: python3-protobuf), for schema_lock_image.py.
find_python() {
  local candidate
  for candidate in ${PERIPHERALCONFIG_PYTHON:-} python3 /usr/bin/python3; do
    if "$candidate" -c 'import google.protobuf' 2>/dev/null; then
      echo "$candidate"
      return 0
    fi
  done
  return 1
}

status=0
if [ "$what" = lint ] || [ "$what" = all ]; then
  if (cd "$proto_root" && "$buf" lint); then
    echo "check-schema: lint: clean"
  else
    echo "check-schema: lint: FAILED (exceptions for the fixed names are in peripheralconfig/proto/buf.yaml)"
    status=1
  fi
fi

if [ "$what" = breaking ] || [ "$what" = all ]; then
  python=$(find_python) || { echo "check-schema: no python3 with google.protobuf (python3-protobuf)" >&2; exit 1; }
  tmp=$(mktemp -d)
  trap 'rm -rf "$tmp"' EXIT
  "$python" "$root/scripts/schema_lock_image.py" "$lock" "$tmp/lock.binpb"
  if (cd "$proto_root" && "$buf" breaking --against "$tmp/lock.binpb"); then
    echo "check-schema: breaking: no wire or JSON break against ${lock#"$root"/}"
  else
    echo "check-schema: breaking: FAILED: the change breaks the wire or JSON form of configurations"
    echo "check-schema: never reuse or renumber a field or value, change a type or rename; add new ones"
    status=1
  fi
fi

exit $status
