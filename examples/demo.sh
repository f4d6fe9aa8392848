#!/usr/bin/env bash
# A tour: zqpool calls a real service, with its state on disk, over HTTP and HTTPS.
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
  # Otherwise the shell reports that its child was killed.
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
    echo "The last messages of the service:" >&2
    tail -n 5 "$lab/service.err" >&2
  fi
  rm -rf "$lab"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# The caller's own settings must not affect the tour.
unset "${!ZQPOOL_@}"
export XDG_CONFIG_HOME=$lab

number=0
step() {
  number=$((number + 1))
  printf '\n%d. %s\n' "$number" "$1"
}

# run ARGUMENT...: shows a call of zqpool and all its output.
run() {
  printf '   $ zqpool'
  printf ' %s' "${@//$lab\//}"
  printf '\n'
  "$bin/zqpool" "$@" 2>&1 | tee "$lab/said" | sed "s|$lab/||; s|^|     |"
  return "${PIPESTATUS[0]}"
}

# said KEY: the value of this key in the output of the last call, which had --output tsv.
said() {
  awk -F'\t' -v key="$1" '$2 == key { print $3; exit }' "$lab/said"
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

# start: starts the service on free ports and waits up to 20 seconds until it is ready.
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
archive=d94c1e6b-27a8-4f3b-b1de-7c0e5a8f4c03
luns=36af74d2-8e19-4a02-9435-6f7081920a09
images=36af74d2-8e19-4aa2-9435-6f708192a309
replica=5c2e9a40-1f6d-4c3b-a7e8-90b1c2d3e4f5

step "A random access key, a certificate of our own, and the service with a small lab in it"
head -c 24 /dev/urandom | base64 >"$lab/key"
head -c 24 /dev/urandom | base64 >"$lab/s3-secret"
"$bin/zqpoold" --make-certificate "$lab/tls"
"$bin/zqpoold" --make-certificate "$lab/stranger"
start --scenario "$here/scenario.json"
export ZQPOOL_ACCESS_KEY_FILE=$lab/key ZQPOOL_CACERT=$lab/tls/certificate.pem ZQPOOL_TIMEOUT=10s
export ZQPOOL_S3_SECRET_FILE=$lab/s3-secret
# This machine acts as a host of the scenario.
mkdir -p "$lab/host/etc/iscsi"
echo 8c1d5a3e2b7f4e609d143a5b6c7d8e9f >"$lab/host/etc/machine-id"
echo InitiatorName=iqn.1993-08.org.debian:01:5f3a9c57b1d2 >"$lab/host/etc/iscsi/initiatorname.iscsi"
export ZQPOOL_HOST_ROOT=$lab/host

step "What the catalog knows: a pool over HTTP, a device over HTTPS with the phases of the exchange"
run pool show "$daily" --endpoint "$http"
run device show --url file:///srv/backup/a --trace
run device located "$vms" /vm/web-1.img --output tsv | grep -E 'zqpool|url|state|type'

step "Pool resolution: how this host reaches a pool's data"
run pool resolve "$daily" --output tsv | grep -E 'zqpool|name|url|address'
run pool resolve "$archive" --output tsv | grep -E 'zqpool|url|key|region|vendor'
run pool resolve --replica "$replica" --output tsv | grep -E 'zqpool|name|url|node'

step "A LUN's backup cycle: the newest LUN, exported to this host and written by a guest"
run pool scsi "$luns" --output tsv | grep -vE "description"
run lun create "$luns" --size 10GiB --newest --output tsv
lun=$(said lun_id)
run lab write "$luns" "$lun" --length 256MiB
run snapshot create "$luns" "$lun" --output tsv
first=$(said snapshot_id)
run lab write "$luns" "$lun" --offset 1GiB --length 128MiB
run snapshot create "$luns" "$lun" --output tsv
second=$(said snapshot_id)

step "The snapshot is shared with this host under its own number; how large is the increment?"
run snapshot share "$luns" "$second" --output tsv
number_of_share=$(said lun_num)
run snapshot previous "$luns" "$second" --output tsv | grep -E 'zqpool|snapshot_id|seq|size'
run snapshot size "$luns" "$second"
run snapshot tree "$luns" "$lun"
run snapshot unshare "$luns" "$second" --lun-num "$number_of_share"

step "Rollback to the newest snapshot, refused while the LUN is exported"
run lab write "$luns" "$lun" --offset 4GiB --length 64MiB
refused 4 lun rollback "$luns" "$lun" --yes
run lun unexport "$luns" "$lun"
run lun rollback "$luns" "$lun" --yes
run lun show "$luns" "$lun" --output tsv | grep -E 'zqpool|rfer_size|snapshot_count'

step "A filesystem of the same pool: mounted, written, moved, its snapshot cloned"
run fs create "$luns" home
run fs mount "$luns" home
run lab write "$luns" --name home --length 64MiB
run fs snapshot create "$luns" home --output tsv
snapshot=$(said snapshot_id)
run fs move "$luns" home /mnt/home
run fs clone "$luns" "$snapshot" home-test
refused 4 fs snapshot delete "$luns" "$snapshot" --yes
run fs delete "$luns" home-test --yes
refused 4 fs delete "$luns" home --yes
run fs umount "$luns" home
run fs rollback "$luns" home --yes

step "The same for a filesystem of an image pool"
run image create "$images" mail
run image mount "$images" mail
run lab write "$images" --name mail --length 32MiB
run image snapshot create "$images" mail
run lab write "$images" --name mail --offset 1GiB --length 16MiB
run image snapshot create "$images" mail --output tsv
run image snapshot size "$images" "$(said snapshot_id)"
run image snapshot tree "$images" mail

step "An NFS export: published, waited for, withdrawn"
run nfs export --path /srv/share --readonly --client 192.0.2.0/24 --wait 5s --output tsv
run nfs unexport "$(said uuid)"

step "The space of the storage server, which is this machine"
run space show --output tsv | grep -E 'zqpool|size|free'

step "A dry run shows the request without sending it"
run lun create "$luns" --size 1TiB --export --dry-run

step "A missing object has its own exit code; a certificate of a stranger is refused"
refused 3 device show --uuid 00000000-0000-0000-0000-000000000000
refused 7 pool show "$daily" --cacert "$lab/stranger/certificate.pem"

step "A service that fails for a moment: the read is repeated, as the trace shows"
run lab fault status --status 503 --times 1 --path /zq/r/storages/pool
run pool url "$daily" --trace
run lab faults --output tsv | grep -E 'zqpool|fired'
run lab clear

step "An answer is lost: the change was made, and zqpool reports that it cannot know"
run lab fault reset_after_commit --times 1 --path /zq/r/scsipool/snapshot --method POST
refused 8 snapshot create "$luns" "$lun"

step "kill -9 and a restart: no change is lost"
kill_service
start
run snapshot tree "$luns" "$lun"
[[ $(grep -c -e "$first" -e "$second" "$lab/said") == 2 ]]

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
   examples/ten_lines.cpp   the library from C++, in ten lines
   README.md                what it is for, and its limits
   docs/README.md           all documents; docs/protocol/ is what goes over the wire
   man -l docs/man/zqpool.1 the command line, its settings and exit codes
   zqpoold --help           a lab of your own: --scenario, --lab, then zqpool lab --help
END
