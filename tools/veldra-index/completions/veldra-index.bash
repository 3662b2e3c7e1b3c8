# Completion of veldra-index for bash.
_veldra_index() {
  local commands="rebuild update stats search symbols refs health errors check compact clear sql"
  local options="--db --json --quiet --verbose --color --jobs --help"
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command="" word
  COMPREPLY=()
  case $previous in
  --db) mapfile -t COMPREPLY < <(compgen -f -- "$current") && return ;;
  --color) mapfile -t COMPREPLY < <(compgen -W "auto always never" -- "$current") && return ;;
  --path | --kind | --limit | -n | --context | -C | --jobs | -j) return ;;
  esac
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case " $commands " in
    *" $word "*) command=$word && break ;;
    esac
  done
  case $command in
  "") mapfile -t COMPREPLY < <(compgen -W "$commands $options --version" -- "$current") && return ;;
  search) options+=" --fts --path --limit --context" ;;
  symbols) options+=" --kind --path --limit" ;;
  clear) options+=" --yes" ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  elif [[ $command == errors ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
  fi
}
complete -o filenames -F _veldra_index veldra-index
