# Completes with fish as it would at a prompt.
#   complete.fish KELCTL
set kelctl $argv[1]
function kelctl
    $kelctl $argv
end
$kelctl completion fish | source; or exit 1
cd (mktemp -d)
touch 'own table.csv'

# expect LINE COMPLETIONS: descriptions are left out.
function expect
    set got (complete -C"kelctl $argv[1]" | string split -f 1 \t | string join ' ')
    if test "$got" != "$argv[2]"
        echo "kelctl $argv[1]: got \"$got\", expected \"$argv[2]\"" >&2
        exit 1
    end
end

expect 'se' 'send'
expect 'tasks ' 'check find list'
expect 'tasks fi' 'find'
expect 'send --in' '--in --in-flight'
expect 'send TASK_ID_U' 'TASK_ID_UMAC_INIT'
expect 'send TASK_ID_UMAC_INIT --js' '--json'
expect 'send TASK_ID_UMAC_INIT --in own' 'own table.csv'
expect 'tasks check own' 'own table.csv'
expect 'ping --count ' ''
expect 'help sen' 'send'
expect 'completion ' 'bash fish zsh'
rm -r (pwd)
