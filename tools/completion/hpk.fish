# Completion of hpk and vexreg in fish. The tools themselves report what may come next.
function __vantry_complete
    set -l words (commandline -opc)
    set -l word (commandline -ct)
    for offer in ($words[1] __complete $words[2..-1] $word 2>/dev/null)
        switch $offer
            case :file
                __fish_complete_path $word
            case :folder
                __fish_complete_directories $word
            case :package
                set -l found
                for path in (__fish_complete_path $word)
                    set -l file (string split -m 1 \t $path)[1]
                    set -l magic
                    test -f $file; and set magic (head -c 3 -- $file 2>/dev/null)
                    if string match -q '*/' -- $file; or test "$magic" = 'J[l'
                        set -a found $path
                    end
                end
                test -n "$found"; or set found (__fish_complete_path $word)
                printf '%s\n' $found
            case '=*'
                string sub -s 2 -- $offer
        end
    end
end
complete -c hpk -f -a '(__vantry_complete)'
complete -c vexreg -f -a '(__vantry_complete)'
