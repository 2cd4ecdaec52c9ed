# SPDX-License-Identifier: Apache-2.0
#
# Completion of systemeventctl for bash. What there is to offer the tool itself says.

# Sets "plain" to a word as it is without its quotes; nothing is expanded.
_systemeventctl_unquote() {
    local typed=$1 quote='' char
    plain=''
    while [ -n "$typed" ]; do
        char=${typed:0:1} typed=${typed:1}
        if [ "$char" = "$quote" ]; then
            quote=''
        elif [ "$char" = \\ ] && [ "$quote" != \' ]; then
            plain+=${typed:0:1} typed=${typed:1}
        elif [ -z "$quote" ] && [[ $char == [\"\'] ]]; then
            quote=$char
        else
            plain+=$char
        fi
    done
}

_systemeventctl() {
    # bash also takes words apart at characters such as "=" and ":"; put them together again.
    local line=${COMP_LINE:0:COMP_POINT} words=() word rest i
    for ((i = 0; i <= COMP_CWORD; ++i)); do
        rest=${line#"${line%%[![:space:]]*}"}
        word=${COMP_WORDS[i]}
        ((i < COMP_CWORD)) || word=$rest # up to the cursor
        if ((i > 0)) && [ "$rest" = "$line" ]; then
            words[${#words[@]} - 1]+=$word
        else
            words+=("$word")
        fi
        line=${rest#"$word"}
    done

    # Only what stands behind such a character is replaced.
    local own=$rest plain kept arguments=()
    [[ $own != [=:]* ]] || own=''
    word=${words[${#words[@]} - 1]}
    _systemeventctl_unquote "${word%"$own"}"
    kept=${#plain}
    for word in "${words[@]:1}"; do
        _systemeventctl_unquote "$word"
        arguments+=("${plain/#'~/'/$HOME/}")
    done

    local said kind skipped candidate list=-f
    COMPREPLY=()
    said=$("${words[0]}" --complete "${arguments[@]}" 2>/dev/null) || return 0
    while IFS=$'\t' read -r candidate _; do
        if [ -z "$kind" ]; then
            kind=${candidate% *} skipped=${candidate#* }
            continue
        fi
        candidate=${candidate:kept}
        [[ $own == [\"\']* ]] || printf -v candidate %q "$candidate"
        COMPREPLY+=("$candidate")
    done <<<"$said"
    [ "$kind" != words ] || return 0

    compopt -o filenames 2>/dev/null # readline quotes them, and adds slashes
    [ "$kind" = files ] || list=-d
    word=${plain:0:skipped}
    while IFS= read -r candidate; do
        candidate=$word$candidate
        COMPREPLY+=("${candidate:kept}")
    done < <(compgen "$list" -- "${plain:skipped}")
}

complete -F _systemeventctl systemeventctl
