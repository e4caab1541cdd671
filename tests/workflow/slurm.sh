#!/usr/bin/env bash
# A thousand small data sets as an array of 20 jobs under a real Slurm of one node, started here in a scratch folder: one job is killed and
# submitted again, the node is drained and resumed. The results must be those of one batch on one machine.
# Without Slurm (tools/install_packages.sh slurm), or where it does not start, the reason is told and nothing is tried.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD

skip() { echo "slurm: not tried: $*"; exit 0; }
for program in munged slurmctld slurmd sbatch; do
  PATH=$PATH:/usr/sbin command -v $program >/dev/null || skip "there is no $program"
done
export PATH=$PATH:/usr/sbin

tools/build.sh "${QUORIX_BUILD:-build}" -DQUORIX_TESTS=OFF
export QUORIX=$root/${QUORIX_BUILD:-build}/bin/quorix ZENVI_DATA=$root/data
scratch=$(mktemp -d)
daemons=()
finish() {
  for ((i = ${#daemons[@]} - 1; i >= 0; --i)); do kill "${daemons[i]}" 2>/dev/null && wait "${daemons[i]}" || true; done
  rm -rf "$scratch"
}
trap finish EXIT
cd "$scratch"
mkdir cluster cluster/state cluster/spool
node=$(hostname -s)

free_port() { /usr/bin/python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }
start() {
  local log=$1
  shift
  "$@" >"cluster/$log.log" 2>&1 &
  daemons+=($!)
}
# Whether something comes true within half a minute.
eventually() {
  for _ in $(seq 300); do
    "$@" >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  return 1
}

head -c 1024 /dev/urandom >cluster/munge.key
chmod 400 cluster/munge.key
cat >cluster/slurm.conf <<END
ClusterName=scratch
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=$(free_port)
SlurmdPort=$(free_port)
SlurmUser=$(id -un)
SlurmdUser=$(id -un)
AuthInfo=socket=$scratch/cluster/munge.sock
StateSaveLocation=$scratch/cluster/state
SlurmdSpoolDir=$scratch/cluster/spool
SlurmctldPidFile=$scratch/cluster/slurmctld.pid
SlurmdPidFile=$scratch/cluster/slurmd.pid
ProctrackType=proctrack/pgid
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SlurmdParameters=config_overrides
ReturnToService=2
NodeName=$node NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES MaxTime=INFINITE State=UP
END
export SLURM_CONF=$scratch/cluster/slurm.conf
at=$scratch/cluster/munge
start munged munged --foreground --force --key-file="$at.key" --socket="$at.sock" --pid-file="$at.pid" --log-file="$at.log" \
  --seed-file="$at.seed" --num-threads=2
eventually test -S cluster/munge.sock || skip "munged does not start: $(tail -1 cluster/munged.log)"
start slurmctld slurmctld -D
start slurmd slurmd -D
idle() { sinfo -h -o %T | grep -qx idle; }
eventually idle || skip "its node does not come up: $(cat cluster/slurmctld.log cluster/slurmd.log | grep -i error | tail -1)"

/usr/bin/python3 - "$root/examples/1ubq.mtz" <<'END'
import os, sys, gemmi, numpy
mtz = gemmi.read_mtz_file(sys.argv[1])
rows, d = numpy.array(mtz, copy=True), mtz.make_d_array()
os.mkdir('data')
for i in range(999):
    mtz.set_data(rows[d >= 3.0 + 0.002 * i])
    mtz.write_to_file(f'data/x{i:03}.mtz')
END
echo "nothing" >data/broken.mtz
options=(--grid 24 20 15)
"$QUORIX" batch data -o whole -q -- "${options[@]}" || [ $? -eq 1 ]

# The first time that part 7 runs, it dies as soon as its first data set is done: as one that takes too much memory does.
cat >job <<END
#!/usr/bin/env bash
part() { "$QUORIX" batch data -o maps --range \$SLURM_ARRAY_TASK_ID/20 --resume -j 1 -- ${options[*]}; }
if [ "\$SLURM_ARRAY_TASK_ID" = 7 ] && mkdir once 2>/dev/null; then
  "$QUORIX" batch data -o maps --range 7/20 --resume -j 1 -- ${options[*]} &
  until ls maps/x30[0-9]/result.json 2>/dev/null | grep -q .; do sleep 0.002; done
  kill -9 \$!
  wait \$!
else
  part || [ \$? -eq 1 ]
fi
END
begin=$(date +%s.%N)
job=$(sbatch --parsable --array=1-20 --cpus-per-task=1 --output=part-%a.log --open-mode=append job)
count() { squeue -h -r -j "$job" -t "$1" 2>/dev/null | wc -l; }
tables() { find maps -maxdepth 1 -name 'results.*-of-20.tsv' 2>/dev/null | wc -l; }

some_done() { [ "$(tables)" -ge 3 ]; }
eventually some_done || { cat part-*.log; echo "slurm: no job ends" >&2; exit 1; }
scontrol update nodename="$node" state=drain reason=test
nothing_runs() { [ "$(count R,CG)" -eq 0 ]; }
eventually nothing_runs || { squeue; echo "slurm: the node is not drained" >&2; exit 1; }
waiting=$(count PD)
[ "$waiting" -gt 0 ] && [ "$(tables)" -lt 20 ] || { squeue; echo "slurm: nothing is left for after the drain" >&2; exit 1; }
scontrol update nodename="$node" state=resume

all_ended() { [ "$(count R,CG,PD,CF)" -eq 0 ]; }
for _ in 1 2 3 4 5 6; do eventually all_ended && break; done
all_ended || { squeue; exit 1; }
[ "$(tables)" -eq 19 ] && [ ! -e maps/results.7-of-20.tsv ] || { ls maps | grep results; echo "slurm: nobody was killed" >&2; exit 1; }
if "$QUORIX" batch data -o maps --gather -q -- "${options[@]}"; then echo "slurm: nobody noticed the kill" >&2; exit 1; fi
grep -q 'not done' <(cut -f 2 maps/results.tsv)  # no pipe: it would break before cut is done

sbatch --parsable --array=7 --output=part-%a.log --open-mode=append job >/dev/null
complete() { [ "$(tables)" -eq 20 ]; }
eventually complete || { cat part-7.log; squeue; exit 1; }
seconds=$(/usr/bin/python3 -c "import time; print(f'{time.time() - $begin:.0f}')")
grep -qE " [1-9][0-9]* of them taken over" part-7.log || { cat part-7.log; exit 1; }
"$QUORIX" batch data -o maps --gather -q -- "${options[@]}" || [ $? -eq 1 ]

column=$(head -1 whole/results.tsv | tr '\t' '\n' | grep -nx seconds | cut -d: -f1)
cmp <(cut --complement -f "$column" whole/results.tsv) <(cut --complement -f "$column" maps/results.tsv)
[ "$(find maps -name '*.ccp4' | wc -l)" -eq 1998 ]
(cd whole && find . -name '*.ccp4') | while read -r map; do cmp "whole/$map" "maps/$map"; done
[ -z "$(find maps -name .work)" ]
echo "slurm: 1000 data sets in 20 jobs of a real Slurm, one killed, its node drained with $waiting jobs waiting: as of one batch ($seconds s)"
