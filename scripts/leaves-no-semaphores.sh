#!/usr/bin/env bash
# Runs a command that must leave no System V semaphore sets behind: scripts/leaves-no-semaphores.sh COMMAND...
# Ends as the command does, and with 1 when sets are left. Where an IPC namespace can be had the command
# has one of its own, so that all sets in it are its own. Elsewhere those count that this user has made
# meanwhile and that no process which still runs has used last.
set -euo pipefail

if [ "${1:-}" != --alone ]; then
  for alone in "unshare --ipc" "unshare --user --map-current-user --ipc"; do
    if $alone true 2>/dev/null; then
      exec $alone "$0" --alone "$@"
    fi
  done
else
  shift
fi

semaphore_sets() { awk -v user="$(id -u)" '$7 == user { print $2 }' /proc/sysvipc/sem | sort; }

# is_used SET: whether a process that used it last still runs.
is_used() {
  local process
  for process in $(ipcs -s -i "$1" 2>/dev/null | awk 'found { print $5 } $1 == "semnum" { found = 1 }' | sort -u); do
    [ ! -d "/proc/$process" ] || [ "$process" = 0 ] || return 0
  done
  return 1
}

sets=$(semaphore_sets)
"$@"
left=()
for set in $(comm -13 <(echo "$sets") <(semaphore_sets)); do
  is_used "$set" || left+=("$set")
done
if [ ${#left[@]} -gt 0 ]; then
  echo "$0: semaphore sets were left behind: ${left[*]}" >&2
  exit 1
fi
