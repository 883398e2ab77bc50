#compdef orncli
# SPDX-License-Identifier: Apache-2.0
# Completion for orncli in bash and zsh: one file, installed as
# share/bash-completion/completions/orncli (sourced by bash) and as
# share/zsh/site-functions/_orncli (autoloaded by zsh's compinit).
# The tables follow `orncli --help`; tests/shell/completion_test.sh holds them to it.

_orncli_subcommands() { echo devices power brightness color colortemp state dfi qfi subscribe; }
_orncli_global_flags() { echo --sync --timeout --connect-timeout --help; }

# The actions of subcommand $1; nothing when it takes none.
_orncli_actions() {
  case $1 in
    power) echo turnOn turnOff get ;;
    brightness) echo set adjust get ;;
    color | colortemp) echo set ;;
    state) echo get report ;;
    subscribe) echo create delete list listen ;;
  esac
}

# The options of subcommand $1 with action $2. Every one of them takes a value.
_orncli_flags() {
  case "$1 $2" in
    "power turnOn" | "power turnOff") echo --endpoints ;;
    "power get" | "brightness get") echo --endpoint ;;
    "brightness set") echo --endpoints --value ;;
    "brightness adjust") echo --endpoints --delta ;;
    "color set") echo --endpoints --hue --saturation --brightness ;;
    "colortemp set") echo --endpoints --kelvin ;;
    "state get") echo --endpoint --feature --latency ;;
    "state report") echo --entity --endpoint --friendly-name ;;
    "dfi "*) echo --entity --endpoint --namespace --name --payload ;;
    "qfi "*) echo --path --method --body ;;
    "subscribe create" | "subscribe delete") echo --endpoint --events ;;
    "subscribe listen") echo --create --timeout ;;
  esac
}

_orncli_event_pairs() {
  echo Corva.Endpoint.Feature.Power:Property.PowerState.Change \
    Corva.Endpoint.Feature.Brightness:Property.Brightness.Change \
    Corva.Endpoint.Feature.Color:Property.Color.Change \
    Corva.Endpoint.Feature.ColorTemperature:Property.ColorTemperature.Change
}

# Member $2 ("id" or "externallyReportedId") of each reachable device, asked of the
# service by orncli $1 itself. Bounded: no service, or a silent one, costs at most 2 s
# and never holds up the shell.
_orncli_devices() {
  command -v timeout > /dev/null 2>&1 || return 0
  timeout -k 1 2 "$1" --connect-timeout 1 --timeout 1 devices < /dev/null 2> /dev/null |
    grep -o "\"$2\":\"[^\"]*\"" | sed 's/^[^:]*:"//; s/"$//'
}

# Prints, one per line, the words that may replace the last argument; the arguments are
# the command line's words up to it (the command first). Matching the typed prefix is
# left to the shell, but comma lists and "entity:event" keep what was typed before.
_orncli_candidates() {
  if [ -n "${ZSH_VERSION-}" ]; then emulate -L sh; fi
  local cmd=$1 sub='' action='' prev='' cur='' word='' flagValue='' pos=0 subPos=0 item head given
  shift
  given=" $* "
  # Find the subcommand as orncli does: dash words before it are flags, and --timeout
  # and --connect-timeout take the next word. The action is the word after it.
  while [ $# -gt 1 ]; do
    word=$1
    shift
    pos=$((pos + 1))
    if [ -n "$flagValue" ]; then
      flagValue=
    elif [ -z "$sub" ]; then
      case $word in
        --timeout | --connect-timeout) flagValue=1 ;;
        -*) ;;
        *) sub=$word subPos=$pos ;;
      esac
    elif [ "$pos" -eq $((subPos + 1)) ]; then
      action=$word
    fi
    prev=$word
  done
  cur=$1
  pos=$((pos + 1))

  case $prev in
    --timeout | --connect-timeout | --value | --delta | --hue | --saturation | --brightness | \
      --kelvin | --friendly-name | --name | --payload | --path | --body)
      return 0 ;;
    --method) echo GET; echo POST; return 0 ;;
    --latency) echo HIGH; echo LOW; return 0 ;;
    --feature) for item in power brightness color colorTemperature connectivity; do echo "$item"; done; return 0 ;;
    --namespace)
      for item in Corva.PowerController Corva.BrightnessController Corva.ColorController \
        Corva.ColorTemperatureController Corva Tessel.DeviceManager; do echo "$item"; done
      return 0 ;;
    --endpoints | --events)
      head=
      case $cur in *,*) head=${cur%,*}, ;; esac
      if [ "$prev" = --events ]; then
        for item in $(_orncli_event_pairs); do echo "$head$item"; done
      else
        for item in $(_orncli_devices "$cmd" externallyReportedId); do echo "$head$item"; done
      fi
      return 0 ;;
    --endpoint | --entity)
      if [ "$prev" = --entity ] || [ "$sub" = subscribe ]; then
        _orncli_devices "$cmd" id
      else
        _orncli_devices "$cmd" externallyReportedId
      fi
      return 0 ;;
    --create)
      case $cur in
        *:*) for item in $(_orncli_event_pairs); do echo "${cur%%:*}:$item"; done ;;
        *) for item in $(_orncli_devices "$cmd" id); do echo "$item:"; done ;;
      esac
      return 0 ;;
  esac

  if [ -z "$sub" ]; then
    case $cur in
      -*) for item in $(_orncli_global_flags); do echo "$item"; done ;;
      *) for item in $(_orncli_subcommands); do echo "$item"; done ;;
    esac
    return 0
  fi
  if [ "$pos" -eq $((subPos + 1)) ] && [ -n "$(_orncli_actions "$sub")" ]; then
    for item in $(_orncli_actions "$sub"); do echo "$item"; done
    return 0
  fi
  # The action's options not given yet; the global flags too once a dash is typed.
  for item in $(_orncli_flags "$sub" "$action"); do
    case $given in *" $item "*) ;; *) echo "$item" ;; esac
  done
  case $cur in
    -*) for item in $(_orncli_global_flags); do echo "$item"; done ;;
  esac
}

if [ -n "${ZSH_VERSION-}" ]; then
  _orncli() {
    local item
    local -a spaced unspaced
    while IFS= read -r item; do
      case $item in
        *:) unspaced+=("$item") ;;
        *) spaced+=("$item") ;;
      esac
    done < <(_orncli_candidates "${words[@]:0:$CURRENT}")
    compadd -- "${spaced[@]}"
    compadd -S '' -- "${unspaced[@]}"
  }
  # Autoloaded, this file is _orncli's first run: complete now. Sourced, only define.
  case ${ZSH_EVAL_CONTEXT-} in
    *:file) ;;
    *) _orncli "$@" ;;
  esac
else
  _orncli_bash() {
    local line=${COMP_LINE:0:COMP_POINT} cur item strip
    local -a words
    read -r -a words <<< "$line"
    [[ -z $line || $line == *[[:space:]] ]] && words+=("")
    cur=${words[${#words[@]}-1]}
    COMPREPLY=()
    while IFS= read -r item; do
      [[ $item == "$cur"* ]] || continue
      COMPREPLY+=("$item")
      [[ $item == *: ]] && compopt -o nospace 2> /dev/null
    done < <(_orncli_candidates "${words[@]}")
    # bash splits words at ":" and replaces only the text after the last one.
    if [[ $cur == *:* && $COMP_WORDBREAKS == *:* ]]; then
      strip=${cur%"${cur##*:}"}
      COMPREPLY=("${COMPREPLY[@]#"$strip"}")
    fi
  }
  complete -F _orncli_bash orncli
fi
