#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/attend_agent.sh STATE RUN DESCRIPTOR
# What goes before and with each start of the agent of a state folder, whose run directory is RUN: says on
# a descriptor when the agent may be started, and ends when it has read its users. The supervisor starts
# it, and run.sh has made the folder.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/agent.sh"
source "$REPO/tools/users.sh"
source "$REPO/tools/engine.sh"

(($# == 3)) || usage_error "attend_agent.sh takes a state folder, a run directory and a descriptor."
# Whoever reads its sentences has started that one.
PROGRAM=run.sh
STATE=$1
RUN=$2
TELL=$3

trap 'rm -rf ${LINKS:+"$LINKS"}' EXIT
end_on_signals
umask 077
# Until the agent answers, snmp_user.sh could not tell whether it has read the users.
lock_users "$STATE"
# What a killed agent left behind must not be taken for the new one's.
rm -f "$RUN/snmpd.pid"
restore_engine "$STATE"
forget_users "$STATE"
keep_engine "$STATE" 1
# The word is the supervisor's, see contract/supervisor.h.
printf 'ready\n' >&"$TELL"
exec {TELL}>&-
# Nobody waits longer for an agent that does not answer: run.sh tells of it when it is the first.
next_library "$STATE" $((SECONDS + 20)) >/dev/null
# One that ran for the first time has made up its id.
keep_engine "$STATE" 0
