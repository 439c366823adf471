# Completion of veldrane-polarize for bash. The options are those of the program's own help, so that
# the two cannot differ.

_veldrane_polarize() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' word
    local commands='process live inspect report view simulate calibrate'
    COMPREPLY=()
    for word in "${COMP_WORDS[@]:1:COMP_CWORD - 1}"; do
        if [[ " $commands " == *" $word "* ]]; then
            command=$word
            break
        fi
    done

    local values=''
    case $previous in
        --phase) values='0 1 2 3' ;;
        --layout) values='0,135,45,90 45,90,0,135 90,45,135,0 135,0,90,45' ;;
        --format) values='tiff png raw npy' ;;
        --drop) values='newest oldest none' ;;
        --mode) values='fast calibrated' ;;
        --model) values='position gain pixel' ;;
        --units) values='scaled degrees radians' ;;
        --planes) values='all s0 s1 s2 azimuth dolp normalized_stokes azimuth,dolp validity uncertainty' ;;
        --bit-depth) values='8 10 12 14 16' ;;
        --pixel-format)
            values='Mono8 Mono10 Mono12 Mono14 Mono16 Mono10p Mono12p Mono10Packed Mono12Packed'
            ;;
    esac
    if [[ -n $values ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
    elif [[ $current == -* ]]; then
        # shellcheck disable=SC2086 # no command means no word
        mapfile -t COMPREPLY < <(compgen -W "$(veldrane-polarize $command --help 2>/dev/null |
            grep -oE '(^| |,)--?[a-z][a-z-]*' | tr -d ' ,' | sort -u)" -- "$current")
    elif [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -F _veldrane_polarize veldrane-polarize
