#!/usr/bin/env bash
# Inside the fresh system of scripts/check-packages.sh: Tab completion of qor as an
# interactive bash has it, through bash-completion loading the packaged script on demand.
set -euo pipefail
source /usr/share/bash-completion/bash_completion
# Nothing is loaded until qor is first completed, as in a shell.
complete -p qor > /dev/null 2>&1 && { echo "qor's completion is loaded too early" >&2; exit 1; }
# The loader answers 124 when it has found and loaded a completion ("try again").
_completion_loader qor || [ $? -eq 124 ]
complete -p qor

expect() {  # expected-words command-line...
  local expected="$1" line="$2"
  read -r -a COMP_WORDS <<< "$line"
  [[ "$line" == *" " ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMP_LINE="$line" COMP_POINT=${#line}
  COMPREPLY=()
  local function
  function=$(complete -p qor | sed -E 's/.* -F ([^ ]+) .*/\1/')
  "$function" qor "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  local got
  got=$(printf '%s\n' "${COMPREPLY[@]}" | sort | xargs)
  if [[ "$got" != "$expected" ]]; then
    echo "completion of '$line': got '$got', expected '$expected'" >&2
    exit 1
  fi
  echo "qor completes '$line' -> $got"
}
expect "reg rsa" "qor r"
expect "clear-stale" "qor lock c"
expect "--force" "qor pack --fo"
expect "--output" "qor rsa keygen --out"
