#!/usr/bin/env bash
# What became of a job, in snakemake's words.
state=$(sacct -j "$1" --format=State --noheader --parsable2 2>/dev/null | head -1)
case ${state%% *} in
  COMPLETED) echo success ;;
  # Not in the accounts yet, or at work.
  "" | PENDING | CONFIGURING | RUNNING | COMPLETING | SUSPENDED | REQUEUED | RESIZING) echo running ;;
  *) echo failed ;;
esac
