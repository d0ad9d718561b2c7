#!/usr/bin/zsh -f
# SPDX-License-Identifier: MIT
#
# completion.zsh DIRECTORY LINE...: prints what zsh offers for the end of each command line, with the
# completion functions of DIRECTORY: the words of a line sorted, on one line. A zsh in a terminal of its
# own is asked, as by a user who presses the tab key.
zmodload zsh/zpty
zpty terminal zsh -f -i

# In place of the offer itself, the terminal gets each word of it between markers.
zpty -w terminal "PS1= PS2=; stty -echo; fpath=(${(q)1} \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w terminal 'compadd() {
    if [[ " ${@[1,(i)(-|--)]} " == *" -"[OAD]" "* ]]; then builtin compadd "$@"; return; fi
    local -a offered; builtin compadd -A offered "$@"
    [[ $#offered -eq 0 ]] || print -rn -- "<<${(j:>><<:)offered}>>"; builtin compadd "$@" }'
zpty -w terminal 'offer() { zle complete-word; BUFFER=; print -rn -- "DON""E" }'
zpty -w terminal 'zle -N offer; bindkey "^I" offer; print -r REA"DY"'
zpty -r terminal output '*READY*'
shift

for line; do
    zpty -w -n terminal $line$'\t'
    zpty -r terminal output '*DONE*'
    words=()
    while [[ $output =~ '<<([^<>]*)>>' ]]; do
        words+=($match[1])
        output=${output#*"<<$match[1]>>"}
    done
    print -r -- ${(ou)words}
done
zpty -d terminal
