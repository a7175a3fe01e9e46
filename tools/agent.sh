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
#   users/                   for the owner's own tools; see users.sh
#   run/                     the sockets, and the number of the running agent
#   vswitchd.log, snmpd.log, snmptrapd.log   of this run; *.log.old of the one before

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

# make_state FOLDER: makes or takes over a state folder; everything in it is the owner's only.
make_state() {
    local folder=$1 mask
    mask=$(umask)
    umask 077
    if [[ -e $folder && ! -d $folder ]]; then
        fail "$folder is not a folder"
    fi
    if [[ -d $folder && ! -e $folder/lock && -n $(ls -A "$folder" 2>/dev/null) ]]; then
        fail "$folder holds other things; --state takes a new folder, an empty one, or one that run.sh made"
    fi
    { mkdir -p "$folder" && chmod 700 "$folder" && : >>"$folder/lock"; } 2>/dev/null &&
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
# state folder: who may do what to the objects under ROOT, and the library that serves them.
write_agent_configuration() {
    local agent=$1/agent
    {
        cat <<CONF
# Written by run.sh at every start. Lines of your own go into snmpd.local.conf beside it.
dontLogTCPWrappersConnects yes
dlmod netsnmpagent_oryx $4/libnetsnmpagent_oryx.so

# Everything may be read but the agent's own communities, users and their rights; only the
# VSANs may be changed. The agent has objects of its own that would let a writer run commands.
view everything included .1
view everything excluded .1.3.6.1.6.3.12
view everything excluded .1.3.6.1.6.3.15
view everything excluded .1.3.6.1.6.3.16
view everything excluded .1.3.6.1.6.3.18
view vsans included .$3
access operators "" usm priv exact everything vsans none
access viewers "" usm priv exact everything none none
access readers "" any noauth exact everything none none
access writers "" any noauth exact everything vsans none

# run.sh asks over a socket in this folder whether the agent answers, and snmp_user.sh makes
# it forget users there.
view all included .1
view users included .1.3.6.1.6.3.15.1.2.2.1.13
access probers "" v2c noauth exact all users none
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
    [[ ! -e $stored ]] || sed -i '/^usmUser /d' "$stored"
}
