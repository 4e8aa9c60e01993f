#!/usr/bin/env bash
# Runs inside a terminal emulator for the X11 tests. Prints a word to select, then records in
# REPORT every line typed into the terminal ("line:TEXT") and an interrupt ("SIGINT") if one
# comes: a Ctrl+C reaching the terminal kills it, which the tests must never cause.
# Usage: sigint-sentinel.sh REPORT
report=$1
trap 'echo SIGINT >>"$report"; exit 130' INT
printf 'sentinelword and more\n'
echo ready >>"$report"
while IFS= read -r line; do
    printf 'line:%s\n' "$line" >>"$report"
done
