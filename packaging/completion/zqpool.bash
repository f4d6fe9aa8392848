# Completion of zqpool for bash.

_zqpool() {
  local nouns="pool device metadata lun snapshot fs image nfs space uri module config lab"
  local of_filesystems="create clone show list-mounted mount move umount rollback delete snapshot"
  local of_their_snapshots="create list show previous size delete tree"
  local -A verbs=(
    [pool]="show resolve url scsi"
    [device]="show located info offer bind"
    [metadata]="add remove"
    [lun]="create create-from list show number serial export unexport allow rollback delete"
    [snapshot]="create list show share unshare allow previous size delete tree"
    [fs]=$of_filesystems
    [image]=$of_filesystems
    [fs snapshot]=$of_their_snapshots
    [image snapshot]=$of_their_snapshots
    [nfs]="export update unexport"
    [space]="show"
    [uri]="parse adjust"
    [module]="parse is-cd"
    [config]="show"
    [lab]="scenario fault faults clear write visible"
  )
  local record="--path --pool --sub-dir --pseudo --fsal --squash --nfsv3 --readonly --client"
  local -A options=(
    [pool resolve]="--device --host-uuid --restore --backupd --replica --show-secrets"
    [pool url]="--device --host-uuid --restore --backupd"
    [device show]="--url --uuid"
    [device located]="--grouping"
    [device info]="--pool"
    [device bind]="--host-uuid --sysname"
    [metadata add]="--type --size --grouping"
    [metadata remove]="--grouping --yes"
    [lun create]="--size --block-size --retention --export --nobody --newest --initiator"
    [lun create-from]="--export"
    [lun export]="--type --target --initiator"
    [lun unexport]="--force"
    [lun allow]="--type --initiator"
    [lun rollback]="--force --yes"
    [lun delete]="--force --yes"
    [snapshot create]="--recyclable"
    [snapshot show]="--lun-num"
    [snapshot share]="--type --target --initiator"
    [snapshot unshare]="--lun-num"
    [snapshot allow]="--lun-num --initiator"
    [snapshot delete]="--delete-empty-lun --yes"
    [FS create]="--mount-point"
    [FS clone]="--mount-point"
    [FS rollback]="--yes"
    [FS delete]="--yes"
    [FS snapshot create]="--recyclable"
    [FS snapshot delete]="--delete-empty-fs --yes"
    [nfs export]="$record --wait"
    [nfs update]=$record
    [nfs unexport]="--wait"
    [uri parse]="--lanfree"
    [uri adjust]="--host --port --ssl"
    [module is-cd]="--catalog"
    [lab scenario]="--merge"
    [lab fault]="--path --method --query --times --skip --every --probability --seed --status --body
      --delay --delay-after-commit --bytes --interval --whole-answer --member --type"
    [lab write]="--name --initiator --target --lun-num --offset --length --discard"
  )
  # Options that take a value, so that the value is not mistaken for a noun or verb.
  local common="--help --version --dry-run --insecure --trace --verbose --quiet"
  local flags="$common --merge --delay-after-commit --whole-answer --restore --replica --show-secrets
    --yes --lanfree --export --nobody --newest --force --recyclable --delete-empty-lun
    --delete-empty-fs --discard --nfsv3 --readonly"
  local common_with_value="--endpoint --access-key-file --cacert --s3-secret-file --host-root --timeout
    --retry --jobs --output"

  local word=${COMP_WORDS[COMP_CWORD]} before="" noun="" verb="" arguments=0 i
  for ((i = 1; i < COMP_CWORD; i++)); do
    before=${COMP_WORDS[i]}
    if [[ $before == -o || " ${common_with_value//$'\n'/ } " == *" $before "* ]]; then
      ((i + 1 < COMP_CWORD)) && { ((i++)); before=""; }
    elif [[ $before == -* ]]; then
      :
    elif [[ -z $noun ]]; then
      noun=$before
    elif [[ -z $verb && -n ${verbs[$noun $before]:-} ]]; then
      noun+=" $before"
    elif [[ -z $verb ]]; then
      verb=$before
    else
      ((++arguments))
    fi
  done

  COMPREPLY=()
  case $before in
    -o | --output)
      mapfile -t COMPREPLY < <(compgen -W "table json tsv" -- "$word")
      return
      ;;
    --access-key-file | --cacert | --s3-secret-file | --catalog)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --method)
      mapfile -t COMPREPLY < <(compgen -W "GET POST PUT DELETE" -- "$word")
      return
      ;;
    --host-root)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      return
      ;;
    --retention)
      mapfile -t COMPREPLY < <(compgen -W "normal newest" -- "$word")
      return
      ;;
    --squash)
      mapfile -t COMPREPLY < <(compgen -W "root_squash no_root_squash all_squash" -- "$word")
      return
      ;;
    --ssl)
      mapfile -t COMPREPLY < <(compgen -W "true false" -- "$word")
      return
      ;;
    --type)
      local types="string number boolean null array object"
      [[ $noun != metadata ]] || types="file dir"
      [[ $noun != lun && $noun != snapshot ]] || types="iSCSI FC"
      mapfile -t COMPREPLY < <(compgen -W "$types" -- "$word")
      return
      ;;
    --*)
      # A value that only the user knows.
      [[ " ${flags//$'\n'/ } " == *" $before "* ]] || return 0
      ;;
  esac

  if [[ $word == -* ]]; then
    local call="$noun $verb"
    [[ $call != fs\ * && $call != image\ * ]] || call="FS ${call#* }"
    mapfile -t COMPREPLY < <(
      compgen -W "$common $common_with_value ${options[$call]:-}" -- "$word")
  elif [[ -z $noun ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$nouns" -- "$word")
  elif [[ -z $verb ]]; then
    mapfile -t COMPREPLY < <(compgen -W "${verbs[$noun]:-}" -- "$word")
  elif [[ "$noun $verb" == "lab scenario" ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  elif [[ "$noun $verb" == "lab fault" ]] && ((arguments == 0)); then
    mapfile -t COMPREPLY < <(compgen -W "status delay reset_before_commit reset_after_commit cut drip
      garbage huge wrong_type" -- "$word")
  fi
}

complete -F _zqpool zqpool
