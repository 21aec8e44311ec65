#!/usr/bin/env bash
# Walks through both browsers by random steps, in turns, with one agent for a given time. Every 30 seconds the agent's private
# dirty memory, descriptors, threads, registrations at the accessibility registry and the log's size are sampled. Prints the
# figures of the walks and a table of the samples; ends with 1 when any of these still grows after the first five minutes.
# What counts as growing: of the samples after those minutes the median of the last third lies above that of the first third by
# more than 1 MiB, 3 descriptors, 2 threads or 4 registrations, or the log gains more than 1.5 times the bytes a step.
# Whether the answers were right is shown as well but decides nothing here (scripts/truth.sh).
#
# Usage: scripts/soak.sh --minutes N [--warm-up-minutes N] [--sample-seconds N] [--browser firefox|chromium]... [--seed S]
#                        [--kinds A,B] [--without A,B] [--build FOLDER] [--session NAME]
#   as in scripts/truth.sh; --build FOLDER builds and installs nothing
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

. scripts/lib/walk_setup.sh
exec /usr/bin/python3 scripts/lib/soak.py "$@"
