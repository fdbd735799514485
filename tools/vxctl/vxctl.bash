# bash completion for vxctl: commands, options and their fixed values, asked of vxctl itself so
# that they always match the installed program. Install as
# /usr/share/bash-completion/completions/vxctl, or source it from ~/.bashrc.
_vxctl() {
    local current=${COMP_WORDS[COMP_CWORD]}
    local IFS=$'\n'
    local words
    words=$("${COMP_WORDS[0]}" __complete "${COMP_WORDS[@]:1:COMP_CWORD-1}" 2>/dev/null) || return
    COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -o default -o nospace -F _vxctl vxctl
