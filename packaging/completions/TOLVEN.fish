# fish completion for TOLVEN

set -g __tolven_long -X -backup -lower -flat -xnopvalid -V -v -e -g -h -j -n -T -P -p -C -f -A -R -H -key -L -pwd -y \
    -manifest -crl -F -tsaurl -proxy

# The command letter so far.
function __tolven_command
    set -l found
    for word in (commandline -opc)[2..]
        string match -q -- '-*' $word; and not contains -- $word $__tolven_long; or continue
        set -l letters (string replace -ra '[^cdxtamlMS]' '' -- $word)
        # S and M are commands only without another one.
        if string match -qr '[cdxtaml]' -- $letters
            set letters (string replace -ra '[MS]' '' -- $letters)
        end
        test -n "$letters"; and set found (string sub -s -1 -- $letters)
    end
    echo $found
end

function __tolven_option
    set -l word (commandline -opc)[-1]
    if string match -qr -- '^-.*f' $word; and not contains -- $word $__tolven_long
        echo -- -f
    else
        echo -- $word
    end
end

# What the archive holds.
function __tolven_names
    set -l words (commandline -opc)
    set -l archive DEFAULT.VRA
    for i in (seq 2 (math (count $words) - 1))
        if test "$words[$i]" = -f
            set archive $words[(math $i + 1)]
        else if string match -qr -- '^-.*f' $words[$i]; and not contains -- $words[$i] $__tolven_long
            set archive $words[(math $i + 1)]
        end
    end
    set archive (string replace -r -- '^~/' $HOME/ (string unescape -- $archive))
    test -f $archive; or return
    LC_ALL=C TOLVEN -tf $archive 2>/dev/null |
        string replace -rf -- '^\S+ +\d+ +(?:\d\d \w{3} \d+ \d\d:\d\d|\w{3} \d\d \d\d:\d\d  ) ' '' |
        string replace -r '\|.*' ''
end

function __tolven_complete
    set -l sign -key -pwd -H -y -crl -manifest -tsaurl -proxy -L
    set -l verify -V -key -pwd -crl -manifest -L
    set -l typed (commandline -ct)
    switch (__tolven_option)
        case -f
            __fish_complete_suffix .vra
            __fish_complete_suffix .VRA
            return
        case -C -R
            __fish_complete_directories $typed
            return
        case -A -X -T -manifest -crl -L
            __fish_complete_path $typed
            return
        case -key
            set -l directory $HOME/.tolven/sec
            set -q SECUDIR; and set directory $SECUDIR
            for file in $directory/*.pse
                string replace -r '.*/(.*)\.pse$' '$1' -- $file
            end
            return
        case -H -y
            printf '%s\n' SHA256 SHA384 SHA512
            return
        case -p -pwd -tsaurl -proxy -F
            return
    end
    set -l command (__tolven_command)
    if string match -q -- '-*' $typed
        switch "$command"
            case ''
                printf '%s\n' -cf -crf -crSf -af -tf -tVf -xf -xVf -df -dVf -mf -l -Sf -M
            case c
                printf '%s\n' -v -n -e -A -X -T -C -P -p -V $sign
            case a
                printf '%s\n' -v -n -e -A -X -T -P -p -V $sign
            case t
                printf '%s\n' -v -n -e -g -A -R -flat $verify
            case x
                printf '%s\n' -v -n -e -g -h -j -A -R -flat -lower -xnopvalid $verify
            case d
                printf '%s\n' -v -n -e -g -A -flat $verify
            case m
                printf '%s\n' -v -n -e
            case l
                printf '%s\n' -e -A -X
            case S
                printf '%s\n' -v -e $sign
            case M
                printf '%s\n' -v -e $verify
        end
        return
    end
    switch "$command"
        case t x d
            __tolven_names
        case c a l
            __fish_complete_path $typed
    end
end

complete -c TOLVEN -f -a '(__tolven_complete)'
