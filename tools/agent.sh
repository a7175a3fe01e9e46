# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The state folder of run.sh, and the agent's configuration in it. Sourced after common.sh.
#
#   lock                     held while a run.sh uses the folder, or snmp_user.sh changes its users
#   switch/                  the switch's configuration, as vswitchd keeps it
#   agent/snmpd.conf         written anew at every start
#   agent/snmpd.local.conf   the operator's own lines; never touched once it is there
#   agent/users.conf         the users that snmp_user.sh made; see users.sh
#   agent/snmptrapd.conf     for the receiver of notifications, written anew at every start
#   agent/persistent/        what snmpd remembers: its engine id, its users' keys
#   agent/engine             the engine id once more; see engine.sh
#   users/                   for the owner's own tools; see users.sh
#   run/                     the sockets, and the number of the running agent
#   vswitchd.log, snmpd.log, snmptrapd.log   of this run; *.log.old of what came before

# What readers get beside the objects of the VSANs: the system group, the interfaces, the counts of
# SNMP messages, IF-MIB's later objects, and snmpMIB, whose one value says who changed what last.
READABLE=(.1.3.6.1.2.1.1 .1.3.6.1.2.1.2 .1.3.6.1.2.1.11 .1.3.6.1.2.1.31 .1.3.6.1.6.3.1)

# What writers get beside them: sysContact, sysName, sysLocation, ifAdminStatus,
# ifLinkUpDownTrapEnable and ifAlias.
WRITABLE=(
    .1.3.6.1.2.1.1.4 .1.3.6.1.2.1.1.5 .1.3.6.1.2.1.1.6
    .1.3.6.1.2.1.2.2.1.7 .1.3.6.1.2.1.31.1.1.1.14 .1.3.6.1.2.1.31.1.1.1.18
)

# The modules of its own that the agent starts: who may do what, users and engine, what counts SNMP
# messages, the library loader, sysORTable, and where notifications go. All others are the machine's
# (its processes, packages, disks, its interfaces instead of the switch's) or run its commands.
# shellcheck disable=SC2034 # for run.sh
AGENT_MODULES=(
    vacm_conf vacm_context vacm_vars usmConf usmStats usmUser snmpEngine snmpMPDStats snmp_mib setSerialNo dlmod
    sysORTable snmpNotifyTable snmpNotifyFilterTable snmpNotifyFilterProfileTable snmpTargetAddrEntry
    snmpTargetParamsEntry target_counters
)

# Objects that the scripts themselves ask for: the number that the agent gives to the library that
# it loads next, usmUserStatus of RFC 3414, and, under the root of the MIB, vsanNumber.0.
NEXT_LIBRARY=.1.3.6.1.4.1.2021.13.14.1.0
USM_USER_STATUS=.1.3.6.1.6.3.15.1.2.2.1.13
VSAN_NUMBER=1.1.1.0

# A folder for links with plain names, made when something needs one; gone at the end.
LINKS=

# plain_path FOLDER NAME LONGEST: sets PLAIN to a path of the folder that has no more than
# LONGEST characters and none that splits a line of the agent's configuration or a search
# path: the folder's own path where that will do, else a link of that name.
plain_path() {
    PLAIN=$1
    [[ $1 =~ ^[A-Za-z0-9_./+@%=,~-]+$ ]] && ((${#1} <= $3)) && return
    [[ -n $LINKS ]] || LINKS=$(mktemp -d /tmp/vsan.XXXXXX) || fail "cannot make a folder under /tmp"
    PLAIN=$LINKS/$2
    ln -sfn "$1" "$PLAIN" || fail "cannot make the link $PLAIN"
}

# choose_state PATH: sets STATE to the folder that a path leads to, or ends with 2. The path goes
# into lines of configuration and of advice.
choose_state() {
    [[ $1 == /* ]] && STATE=$1 || STATE=$CALLED_FROM/$1
    STATE=$(realpath -m -- "$STATE")
    [[ $1$STATE != *[[:cntrl:]]* ]] || usage_error "--state takes a path without control characters."
}

# check_state FOLDER: ends the script unless nobody else can have put anything into a state folder.
check_state() {
    local problem
    problem=$(perl "$REPO/tools/state_folder.pl" "$1") || fail "${problem:-cannot check the state folder $1}"
}

# make_state FOLDER: makes or takes over a state folder; everything in it is the owner's only. The
# folders above it are as open as the user's other folders: by default the build's, whose MIB others
# read.
make_state() {
    local folder=$1 mask
    mkdir -p "$(dirname "$folder")" 2>/dev/null || fail "cannot write to the state folder $folder"
    mask=$(umask)
    umask 077
    if [[ -e $folder && ! -d $folder ]]; then
        fail "$folder is not a folder"
    fi
    mkdir -p "$folder" 2>/dev/null || fail "cannot write to the state folder $folder"
    check_state "$folder"
    { : >>"$folder/lock"; } 2>/dev/null &&
        mkdir -p "$folder"/{switch,agent/persistent/cert_indexes,users,run} ||
        fail "cannot write to the state folder $folder"
    umask "$mask"
}

# open_state FOLDER: makes or takes over a state folder for one run.sh. The lock is inherited by
# all that is started, so the folder is free when the last is gone.
open_state() {
    local folder=$1 name
    make_state "$folder"
    { exec 9>>"$folder/lock"; } 2>/dev/null || fail "cannot write to the state folder $folder"
    flock -n 9 || fail "the state folder $folder is in use by another $PROGRAM or by snmp_user.sh"
    chmod -R go= "$folder"
    # What a killed agent left behind must not be taken for this one's.
    rm -f "$folder/run/snmpd.pid"
    for name in vswitchd snmpd snmptrapd; do
        [[ ! -e $folder/$name.log ]] || mv -f "$folder/$name.log" "$folder/$name.log.old"
    done
}

# The programs that keep the logs, each by the name of its log.
declare -A LOG_PIDS

# open_log FOLDER NAME: sets LOG to a descriptor; what is written there goes to FOLDER/NAME.log, and
# does not fill the disk. Who keeps the log goes on to the end of what is said, so Ctrl-C must not
# reach it first; another log that is open must not be held open meanwhile.
open_log() {
    # shellcheck disable=SC2034 # for the caller
    exec {LOG}> >(trap '' HUP INT TERM && { [[ -z ${LOG-} ]] || exec {LOG}>&-; } && exec "$BUILD/bin/boundlog" "$1/$2.log")
    LOG_PIDS[$2]=$!
}

# end_log NAME: returns when the log has all that was said, its writers having ended.
end_log() {
    [[ -z ${LOG_PIDS[$1]-} ]] || end_reader "${LOG_PIDS[$1]}"
    unset "LOG_PIDS[$1]"
}

# is_loopback ADDRESS: true when only this machine can reach it.
is_loopback() {
    [[ $1 == 127.* || $1 == ::1 ]]
}

# endpoint ADDRESS PORT: prints it the way SNMP tools take it.
endpoint() {
    if [[ $1 == *:* ]]; then
        printf 'udp6:[%s]:%s' "$1" "$2"
    else
        printf 'udp:%s:%s' "$1" "$2"
    fi
}

# address_problem ADDRESS PORT: prints why an agent could not listen there, or nothing when
# it could. Returns 2 when the address is not one.
address_problem() {
    perl -MSocket=:all -e '
        my ($address, $port) = @ARGV;
        my $v6 = inet_pton(AF_INET6, $address);
        my $v4 = $v6 ? undef : inet_pton(AF_INET, $address);
        $v6 || $v4 or exit 2;
        my $probe;
        socket($probe, $v6 ? AF_INET6 : AF_INET, SOCK_DGRAM, 0)
            and bind($probe, $v6 ? pack_sockaddr_in6($port, $v6) : pack_sockaddr_in($port, $v4))
            or print lcfirst("$!");
    ' "$1" "$2"
}

# write_agent_configuration FOLDER ADDRESS ROOT LIBRARIES: the agent's configuration for a
# state folder: who may do what to the objects under ROOT and to the switch's other ones, and the
# libraries that serve them.
write_agent_configuration() {
    local agent=$1/agent
    {
        cat <<CONF
# Written by run.sh at every start. Lines of your own go into snmpd.local.conf beside it.
dontLogTCPWrappersConnects yes
# The most that a UDP datagram carries. What does not fit is answered with tooBig; without this line
# the agent tries to send it all the same, answers nothing, and logs every name in it.
[snmp] sendMessageMaxSize 65507
dlmod netsnmpagent_oryx $4/libnetsnmpagent_oryx.so
dlmod switchmib $4/libswitchmib.so

# Only the trees of a switch may be read, and only what is a switch's own changed: other modules of
# the agent have objects that would let a writer run commands. Its targets, users, communities and
# rights are nobody's to read, whatever else is.
$(printf 'view switch included %s\n' "${READABLE[@]}" ".$3")
view switch excluded .1.3.6.1.6.3.12
view switch excluded .1.3.6.1.6.3.15
view switch excluded .1.3.6.1.6.3.16
view switch excluded .1.3.6.1.6.3.18
$(printf 'view settings included %s\n' "${WRITABLE[@]}" ".$3")
access operators "" usm priv exact switch settings none
access viewers "" usm priv exact switch none none
access readers "" any noauth exact switch none none
access writers "" any noauth exact switch settings none

# run.sh asks over a socket in this folder whether the agent answers, and snmp_user.sh makes
# it forget users there.
$(printf 'view probe included %s\n' "$NEXT_LIBRARY" "$USM_USER_STATUS" ".$3.$VSAN_NUMBER")
view users included $USM_USER_STATUS
access probers "" v2c noauth exact probe users none
com2secunix probe default probe
group probers v2c probe

# The users that snmp_user.sh made.
includeFile users.conf
CONF
        if is_loopback "$2"; then
            cat <<'CONF'

# The agent listens on loopback only.
com2sec public default public
com2sec private default private
com2sec6 public default public
com2sec6 private default private
group readers v1 public
group readers v2c public
group writers v1 private
group writers v2c private
CONF
        fi
    } >"$agent/snmpd.conf"
    make_users_file "$1"
    [[ -e $agent/snmpd.local.conf ]] ||
        printf '# Your own lines for the agent; run.sh never changes this file.\n' >"$agent/snmpd.local.conf"
}

# directives SNMPD FOLDER [OPTION...]: prints each directive of snmpd.conf that an agent with these
# options knows, in small letters, and the module that was started before it was known.
directives() {
    SNMPCONFPATH=/nonexistent SNMP_PERSISTENT_DIR=$2/agent/persistent MIBS='' MIBDIRS='' \
        "$1" -H -Lo -D9:read_config:register_handler,mib_init "${@:3}" 2>&1 </dev/null |
        awk '/^mib_init: initializing: / { module = $NF } / registering snmpd / { print tolower($NF), module }'
}

# unstarted_lines SNMPD FOLDER MODULES: names each of the operator's own lines that is for a module
# of the agent which MODULES does not start. The agent would say in its log only that it does not
# know them.
unstarted_lines() {
    local file=$2/agent/snmpd.local.conf
    # Where there are no lines nobody needs to ask.
    grep -qsv '^[[:space:]]*\(#\|$\)' "$file" || return 0
    awk -v file="$file" '
        FILENAME == ARGV[1] { if (!($1 in of)) of[$1] = $2; next }
        FILENAME == ARGV[2] { started[$1]; next }
        /^[ \t]*(#|$)/ { next }
        # [snmp] and the like: alone in a line it is for all that follow.
        /^[ \t]*\[/ { if (NF == 1) foreign = tolower($1) != "[snmpd]"; next }
        !foreign && !(tolower($1) in started) && tolower($1) in of {
            printf "line %d of %s is not used: %s is of the module %s, which --agent-modules %s starts\n",
                FNR, file, $1, of[tolower($1)], of[tolower($1)]
        }' <(directives "$1" "$2") <(directives "$1" "$2" -I "$3") "$file"
}

# unknown_modules SNMPD FOLDER LIST: prints those of a list, with commas between, that the agent does
# not have.
unknown_modules() {
    comm -13 <(SNMPCONFPATH=/nonexistent SNMP_PERSISTENT_DIR=$2/agent/persistent MIBS='' MIBDIRS='' \
        "$1" -H -Lo -Dmib_init 2>&1 </dev/null | sed -n 's/^mib_init: initializing: *//p' | sort -u) \
        <(tr , '\n' <<<"$3" | sort -u)
}

# make_users_file FOLDER: where there is no file of users yet, makes one without any. Not all who
# call it hold users.lock, and who holds that may put a file there at any moment: none is replaced.
make_users_file() {
    local file=$1/agent/users.conf
    (
        set -o noclobber
        printf '# Written by snmp_user.sh: the keys of each user, and the group that says what they may do.\n' >"$file"
    ) 2>/dev/null || [[ -e $file ]] || fail "cannot write to $file"
}

# forget_users FOLDER: makes users.conf and snmpd.local.conf the places that say which users
# there are: the agent would go on with the keys that it has stored, or with a user who was
# removed.
forget_users() {
    local stored=$1/agent/persistent/snmpd.conf
    grep -qs '^usmUser ' "$stored" || return 0
    sed '/^usmUser /d' "$stored" | replace_file "$stored" || exit 1
}
