"""What the Tab key offers in bash and zsh after a command line, asked of the shells themselves."""
import os
import pty
import select
import subprocess
import time

BASH = r'''
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
compopt() { :; }  # exists only while the shell completes by itself
_quorix
printf '%s\n' "${COMPREPLY[@]}"
'''

ZSHRC = r'''
fpath=($FUNCTIONS $fpath)
autoload -Uz compinit && compinit -u -D
bindkey '^I' complete-word
# What is offered goes to a file; options that only measure stay as they are.
compadd() {
  if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then builtin compadd "$@"; return; fi
  local -a hits
  builtin compadd -A hits "$@"
  print -rl -- $hits >>$OFFERED
  builtin compadd "$@"
}
finish() { print END >>$OFFERED }
comppostfuncs=(finish)
print READY >$OFFERED
'''


def bash_offers(script, words, folder):
    run = subprocess.run(['bash', '--norc', '-c', BASH, 'bash', script, *words], cwd=folder, text=True,
                         capture_output=True, check=True)
    assert not run.stderr, run.stderr
    return sorted(set(run.stdout.split('\n')) - {''})


def wait_for(path, word, terminal):
    end = time.monotonic() + 20
    while time.monotonic() < end:
        if select.select([terminal], [], [], 0.05)[0]:
            os.read(terminal, 65536)
        if os.path.exists(path) and word in open(path).read().split('\n'):
            return
    raise TimeoutError(f'zsh did not say {word}')


def zsh_offers(functions, words, folder, scratch):
    with open(f'{scratch}/.zshrc', 'w') as rc:
        rc.write(ZSHRC)
    offered = f'{scratch}/offered'
    if os.path.exists(offered):
        os.remove(offered)
    pid, terminal = pty.fork()
    if pid == 0:
        os.chdir(folder)
        os.environ.update(ZDOTDIR=str(scratch), FUNCTIONS=str(functions), OFFERED=offered, TERM='dumb')
        os.execvp('zsh', ['zsh', '-d', '-i'])
    try:
        wait_for(offered, 'READY', terminal)
        os.write(terminal, (' '.join(words) + '\t').encode())
        wait_for(offered, 'END', terminal)
    finally:
        os.kill(pid, 9)
        os.waitpid(pid, 0)
        os.close(terminal)
    return sorted({line.rstrip() for line in open(offered)} - {'READY', 'END', ''})
