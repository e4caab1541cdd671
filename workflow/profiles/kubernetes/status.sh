#!/usr/bin/env bash
# What became of a job, in snakemake's words.
path='{.status.succeeded} {.status.conditions[?(@.status=="True")].type}'
if ! state=$(kubectl get "$1" -o "jsonpath=$path" 2>&1); then
  # The server may be out of reach for a while; a job that is gone stays so.
  case $state in *NotFound*) echo failed ;; *) echo running ;; esac
  exit 0
fi
case $state in
  "1 "*) echo success ;;
  *Failed*) echo failed ;;
  *) echo running ;;
esac
