#!/usr/bin/env bash
# The workflow on a few data sets, in two jobs of which one is killed: on this machine, and with
# stand-ins for the clusters. The results must be those of one batch that nobody disturbed.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD

tools/build.sh "${QUORIX_BUILD:-build}" -DQUORIX_TESTS=OFF
export QUORIX=$root/${QUORIX_BUILD:-build}/bin/quorix ZENVI_DATA=$root/data
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

/usr/bin/python3 - "$root/examples/1ubq.mtz" <<'END'
import sys, gemmi, numpy
mtz = gemmi.read_mtz_file(sys.argv[1])
rows, d = numpy.array(mtz, copy=True), mtz.make_d_array()
for i in range(10):
    mtz.set_data(rows[d >= 1.8 + 0.2 * i])
    mtz.write_to_file(f'x{i}.mtz')
END
mkdir data
mv x*.mtz data
echo "nothing" >data/broken.mtz

# The first time that part 1 runs, it dies as soon as its first good data set is done.
cat >killed <<'END'
#!/usr/bin/env bash
case " $* " in *" --range 1/2 "*) ;; *) exec "$QUORIX" "$@" ;; esac
mkdir once 2>/dev/null || exec "$QUORIX" "$@"
"$QUORIX" "$@" &
until [ -e maps/x0/result.json ]; do sleep 0.002; done
kill -9 $!
wait $!
END
chmod +x killed

options=(--spacing 0.3)
"$QUORIX" batch data -o whole -q -- "${options[@]}" || [ $? -eq 1 ]

run() {
  local profile=$1
  shift
  snakemake --snakefile "$root/workflow/Snakefile" --profile "$root/workflow/profiles/$profile" --quiet \
    --config input=data output=maps parts=2 quorix="$PWD/killed" "map_options=[\"${options[0]}\", \"${options[1]}\"]" \
    "$@" >>log 2>&1
}

# Maps byte for byte, tables but for the seconds.
same_as_whole() {
  local column
  column=$(head -1 whole/results.tsv | tr '\t' '\n' | grep -nx seconds | cut -d: -f1)
  cmp <(cut --complement -f "$column" whole/results.tsv) <(cut --complement -f "$column" maps/results.tsv)
  [ "$(find maps -name '*.ccp4' | wc -l)" -eq 20 ]
  local map
  (cd whole && find . -name '*.ccp4') | while read -r map; do cmp "whole/$map" "maps/$map"; done
  [ -z "$(find maps -name .work)" ]
}

check() {
  local name=$1
  same_as_whole || { cat log; echo "workflow: $name: not the results of an undisturbed run" >&2; exit 1; }
  grep -qE " [1-9][0-9]* of them taken over" maps/logs/part-1.log || { cat log maps/logs/part-1.log; exit 1; }
  echo "workflow: $name: a killed job is resumed, and the results are those of one batch"
  rm -rf maps once .snakemake log
}

if run local --restart-times 0; then echo "workflow: nobody noticed the kill" >&2; exit 1; fi
[ ! -e maps/results.tsv ] && [ -s maps/results.2-of-2.tsv ]
run local || { cat log; exit 1; }
check "by hand"

# Maps of amplitudes and models: one model for all, the results as of one batch.
mkdir model
cp "$root/examples/1ubq.pdb" model
"$QUORIX" batch data -o whole-maps -q --maps --model model/1ubq.pdb -- --dmin 3.4 || [ $? -eq 1 ]
snakemake --snakefile "$root/workflow/Snakefile" --profile "$root/workflow/profiles/local" --quiet \
  --config input=data output=model-maps parts=2 quorix="$QUORIX" maps=true model=model/1ubq.pdb 'map_options=["--dmin", "3.4"]' \
  >>log 2>&1 || { cat log; exit 1; }
for name in r_work r_free status; do
  column=$(head -1 whole-maps/results.tsv | tr '\t' '\n' | grep -nx $name | cut -d: -f1)
  cmp <(cut -f "$column" whole-maps/results.tsv) <(cut -f "$column" model-maps/results.tsv)
done
[ "$(cut -f 2 model-maps/results.tsv | grep -c done)" -eq 10 ]
for map in whole-maps/*/*.ccp4; do cmp "$map" "model-maps${map#whole-maps}"; done
echo "workflow: maps of models are those of one batch"

export STAND_IN=$scratch/stand-in PATH=$root/tests/workflow/stand-in:$PATH
export QUORIX_IMAGE=registry.example/quorix QUORIX_CLAIM=crystals QUORIX_MOUNT=$scratch
mkdir "$STAND_IN"
for profile in local slurm kubernetes; do
  run "$profile" || { cat log "$STAND_IN"/*.log; exit 1; }
  check "$profile"
done
