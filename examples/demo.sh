#!/usr/bin/env bash
# The tour: a real service with its state on disk, and zqpool asking it over HTTP and HTTPS.
# usage: examples/demo.sh BIN_DIRECTORY     (./dev demo builds and calls it)
set -euo pipefail

if (($# != 1)) || [[ ! -x $1/zqpool || ! -x $1/zqpoold ]]; then
  echo "usage: examples/demo.sh DIRECTORY_OF_ZQPOOL_AND_ZQPOOLD" >&2
  exit 2
fi
bin=$(cd "$1" && pwd)
here=$(cd "$(dirname "$(readlink -f "$0")")" && pwd)
umask 077
lab=$(mktemp -d "${TMPDIR:-/tmp}/zqpool-demo.XXXXXX")
service=""

kill_service() {
  # The shell would announce the death of its child.
  {
    kill -KILL "$service" || true
    wait "$service" || true
  } 2>/dev/null
}

clean_up() {
  local status=$?
  trap - EXIT
  exec 3<&- || true
  if [[ -n $service ]]; then kill_service; fi
  if ((status != 0)) && [[ -s $lab/service.err ]]; then
    echo "The service's last words:" >&2
    tail -n 5 "$lab/service.err" >&2
  fi
  rm -rf "$lab"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# The caller's own settings are none of the tour's.
unset "${!ZQPOOL_@}"
export XDG_CONFIG_HOME=$lab

number=0
step() {
  number=$((number + 1))
  printf '\n%d. %s\n' "$number" "$1"
}

# run ARGUMENT...: shows the call, makes it, and shows all that it says.
run() {
  printf '   $ zqpool'
  printf ' %s' "${@//$lab\//}"
  printf '\n'
  "$bin/zqpool" "$@" 2>&1 | sed "s|$lab/||; s|^|     |"
  return "${PIPESTATUS[0]}"
}

# refused CODE ARGUMENT...: the same for a call that must end with this exit code.
refused() {
  local expected=$1 code=0
  shift
  run "$@" || code=$?
  printf '     exit code %d\n' "$code"
  if ((code != expected)); then
    echo "The demo expected exit code $expected." >&2
    exit 1
  fi
}

# start: starts the service on free ports and waits until it is ready, twenty seconds at most.
start() {
  local line
  rm -f "$lab/ready"
  mkfifo "$lab/ready"
  "$bin/zqpoold" --listen 127.0.0.1:0 --tls-listen 127.0.0.1:0 \
    --certificate "$lab/tls/certificate.pem" --private-key "$lab/tls/key.pem" \
    --state "$lab/state" --access-key-file "$lab/key" --s3-secret-file "$lab/s3-secret" \
    --access-log "$lab/access.log" --lab "$@" \
    >"$lab/ready" 2>>"$lab/service.err" &
  service=$!
  exec 3<"$lab/ready"
  if ! IFS= read -r -t 20 line <&3 || [[ $line != "zqpoold ready http://"*" https://"* ]]; then
    echo "The service did not become ready." >&2
    exit 1
  fi
  read -r _ _ http https <<<"$line"
  export ZQPOOL_ENDPOINT=$https
  echo "     $line (process $service)"
}

daily=6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a01
vms=b3a0a7c4-8f5e-4d2a-8a64-2f5d1c9e7b02
device=1e7d9b52-6a40-4c1f-8f0a-3b9c2d5e6f11

step "A random access key, a certificate of our own, and the service with a small lab in it"
head -c 24 /dev/urandom | base64 >"$lab/key"
head -c 24 /dev/urandom | base64 >"$lab/s3-secret"
"$bin/zqpoold" --make-certificate "$lab/tls"
"$bin/zqpoold" --make-certificate "$lab/stranger"
start --scenario "$here/scenario.json"
export ZQPOOL_ACCESS_KEY_FILE=$lab/key ZQPOOL_CACERT=$lab/tls/certificate.pem ZQPOOL_TIMEOUT=10s

step "A pool's record, over HTTP"
run pool show "$daily" --endpoint "$http"

step "A device by its URL, over HTTPS, with the phases of the exchange"
run device show --url file:///srv/backup/a --trace

step "The same device by its UUID, as the library's own record"
run device show --uuid "$device" --output json

step "Several pools at once, for a script"
printf '%s\n' "$daily" "$vms" | run pool show - --output tsv --jobs 2 | grep -E 'zqpool|name|used'

step "On which devices does a path lie? The nearest recorded folder above it knows"
run device located "$vms" /vm/web-1.img --output tsv | grep -E 'zqpool|url|state|type'

step "What device is behind a URL that no catalog entry names?"
run device info file:///srv/backup/b/jobs/mail --pool "$daily"

step "What is not there is told by an exit code of its own"
refused 3 device show --uuid 00000000-0000-0000-0000-000000000000

step "A certificate of somebody else is refused, and the access key stays here"
refused 7 pool show "$daily" --cacert "$lab/stranger/certificate.pem"

step "A service that fails for a moment: the read is repeated, the trace says so"
run lab fault status --status 503 --times 1 --path /zq/r/storage/catalog/pool
run pool show "$vms" --output json --trace
run lab faults --output tsv | grep -E 'zqpool|fired'
run lab clear

step "A new pool, kill -9 right after the answer, a new start: what was answered is there"
cat >"$lab/more.json" <<'END'
{"pools": [{"uuid": "e05d2f7c-38b9-4a4c-8ef1-8d1f6b905d04", "name": "weekly", "type": "file"}]}
END
run lab scenario --merge "$lab/more.json"
kill_service
start
run pool show e05d2f7c-38b9-4a4c-8ef1-8d1f6b905d04 "$daily" --output tsv | grep -E 'zqpool|name|state'

step "A clean stop"
kill -TERM "$service"
status=0
wait "$service" || status=$?
service=""
echo "     the service ended with $status; its access log has $(wc -l <"$lab/access.log") lines, the last:"
echo "     $(tail -n 1 "$lab/access.log")"
((status == 0))

cat <<'END'

Where to go next
   examples/ten_lines.cpp   the same from C++, in ten lines
   README.md                what the library is for, and its limits
   docs/README.md           all documents; docs/protocol/ is what goes over the wire
   man -l docs/man/zqpool.1 the command line, its settings and exit codes
   zqpoold --help           a lab of your own: --scenario, --lab, then zqpool lab --help
END
