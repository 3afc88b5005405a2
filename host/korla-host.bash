# Bash completion for korla-host: its own help says what there is.
_korla_host() {
  local host=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command="" i choices
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --library) i=$((i + 1)) ;;
      -*) ;;
      *) command=${COMP_WORDS[i]}; break ;;
    esac
  done
  COMPREPLY=()
  if [[ -z $command && $before != --library ]]; then
    # shellcheck disable=SC2016
    choices=$("$host" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p; s/^  \(-h,\)\{0,1\}\(--[a-z-]*\).*/\2/p')
    [[ $word != -* ]] && choices=$(grep -v '^-' <<<"$choices")
  else
    local help
    help=$("$host" $command --help 2>/dev/null)
    case $before in
      --to | --from | --map) choices=$("$host" layouts 2>/dev/null | sed -n '/^Layouts of mix/,$s/^  *[0-9][0-9]* \([^ ]*\) .*/\1/p') ;;
      --layout) choices="auto $("$host" layouts 2>/dev/null | sed -n '/^Output layouts/,/^$/s/^ *[0-9][0-9]*  \([^ ]*\) .*/\1/p')" ;;
      --plot | --library) ;;
      -*) # one of {a,b,c}
        choices=$(sed -n "s/^  \(.*,\)\{0,1\}$before [A-Z]*:{\(.*\)}.*/\2/p" <<<"$help" | tr , ' ')
        if [[ -z $choices ]] && grep -qE "^  (.*,)?$before [A-Z:]" <<<"$help"; then
          return # a number or a text
        fi
        ;;
    esac
    if [[ -z $choices && $word == -* ]]; then
      choices=$(sed -n 's/^  \(-h,\)\{0,1\}\(--[a-z-]*\)\(,--[a-z-]*\)\{0,1\}.*/\2 \3/p' <<<"$help" | tr , ' ')
    fi
  fi
  if [[ -n $choices ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -o filenames -F _korla_host korla-host
