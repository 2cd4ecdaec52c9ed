#compdef systemeventctl
# SPDX-License-Identifier: Apache-2.0
#
# Completion of systemeventctl for zsh. What there is to offer the tool itself says.

local -a typed said values shown
local word line

# As the tool gets them: without quotes, up to the cursor.
for word in "${(@)words[2,CURRENT-1]}" "$PREFIX"; do
    typed+=("${(Q)word/#\~\//$HOME/}")
done
said=("${(@f)$(_call_program candidates ${words[1]} --complete "${(@qq)typed}" 2>/dev/null)}")

case ${said[1]} in
files\ * | directories\ *)
    compset -p ${said[1]##* }
    if [[ ${said[1]} == files* ]]; then
        _files
    else
        _files -/
    fi
    ;;
*)
    for line in "${(@)said[2,-1]}"; do
        values+=("${line%%$'\t'*}")
        shown+=("${line/$'\t'/  -- }")
    done
    (( $#values )) && compadd -l -d shown -a values
    ;;
esac
