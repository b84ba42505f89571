#!/usr/bin/env bash
# A Slurm cluster inside of namespaces of this machine, for tests: a controller and three nodes, each with a network, a
# name and processes of its own. Nothing is left of it but DIR.
#
#   cluster.sh start DIR         returns once all nodes are idle; DIR is made
#   cluster.sh run DIR COMMAND   as on the controller, in this directory
#   cluster.sh kill DIR NODE     as if its power failed
#   cluster.sh stop DIR
#
# Status 77 where that is not possible here, with the reason: packages (slurmctld, slurmd, slurm-client, munge) or the
# right to namespaces are missing.
set -euo pipefail
self=$(realpath "$0")
PATH=$PATH:/usr/sbin:/sbin
nodes="n1 n2 n3"
longest=600 # seconds that a cluster lives which nobody stops

address() { case $1 in control) echo 10.91.0.1 ;; n*) echo "10.91.0.1${1#n}" ;; esac; }

missing() { echo "skipped: $1" >&2 && exit 77; }

configure() {
    mkdir -p "$1"/state "$1"/spool "$1"/log
    head -c 64 /dev/urandom >"$1/key" && chmod 400 "$1/key"
    {
        echo "127.0.0.1 localhost"
        for name in control $nodes; do echo "$(address $name) $name"; done
    } >"$1/hosts"
    # A node counts as lost after ten seconds; its jobs wait for as long as their credentials live, and begin anew.
    cat >"$1/slurm.conf" <<CONF
ClusterName=trial
SlurmctldHost=control($(address control))
SlurmUser=root
AuthType=auth/munge
AuthInfo=cred_expire=5
SlurmdTimeout=10
ReturnToService=2
MessageTimeout=5
TCPTimeout=2
KillWait=2
SchedulerType=sched/builtin
SchedulerParameters=sched_interval=1,batch_sched_delay=0,sched_min_interval=0
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SlurmdParameters=config_overrides
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
MpiDefault=none
SwitchType=switch/none
JobAcctGatherType=jobacct_gather/none
StateSaveLocation=$1/state
SlurmdSpoolDir=$1/spool/%n
SlurmctldLogFile=$1/log/slurmctld
SlurmdLogFile=$1/log/slurmd.%n
SlurmctldPidFile=/run/slurmctld.pid
SlurmdPidFile=/run/slurmd.pid
PartitionName=all Nodes=ALL Default=YES MaxTime=INFINITE
CONF
    for name in $nodes; do
        echo "NodeName=$name NodeAddr=$(address $name) CPUs=2 RealMemory=8000" >>"$1/slurm.conf"
    done
}

# machine DIR NAME: a new one that runs "cluster.sh boot DIR NAME"; the process in DIR/NAME.pid holds all of it.
machine() {
    unshare --net --uts --mount --pid --mount-proc --kill-child "$self" boot "$1" "$2" </dev/null >>"$1/log/$2" 2>&1 &
    echo $! >"$1/$2.pid"
}

boot() {
    hostname "$2"
    ip link set lo up
    mount -t tmpfs tmpfs /run
    mkdir -m 755 /run/munge
    mount --bind "$1/hosts" /etc/hosts
    munged --key-file="$1/key" --seed-file=/run/munge/seed --log-file="$1/log/munged.$2"
    if [ "$2" = control ]; then
        ip address add "$(address control)/32" dev lo
        echo 1 >/proc/sys/net/ipv4/ip_forward
        slurmctld
        for name in $nodes; do connect "$1" "$name"; done
    else
        until ip link set cable up 2>/dev/null; do sleep 0.05; done
        ip address add "$(address "$2")/32" dev cable
        ip route add "$(address control)" dev cable
        ip route add default via "$(address control)"
        slurmd
    fi
    sleep "$longest" &
    wait
}

# From the controller: a node, and a cable to it.
connect() {
    machine "$1" "$2"
    local holder
    holder=$(<"$1/$2.pid")
    until [ ! "/proc/$holder/ns/net" -ef /proc/self/ns/net ]; do sleep 0.02; done
    ip link add "to-$2" type veth peer name cable netns "$holder"
    ip link set "to-$2" up
    ip route add "$(address "$2")" dev "to-$2" src "$(address control)"
}

enter() {
    local holder
    holder=$(<"$1/control.pid")
    shift
    exec nsenter --target "$holder" --net --uts --mount --pid="/proc/$holder/ns/pid_for_children" --wdns="$PWD" -- "$@"
}

case ${1-} in
    start)
        for program in slurmctld slurmd sbatch squeue munged ip unshare nsenter; do
            command -v $program >/dev/null || missing "$program is not installed (packaging/setup.sh test)"
        done
        unshare --net --uts --mount --pid --mount-proc --fork true 2>/dev/null || missing "no right to namespaces"
        configure "$2"
        machine "$2" control
        for _ in $(seq 200); do
            idle=$("$self" run "$2" timeout 2 sinfo --noheader --Node --states=idle 2>/dev/null | wc -l || true)
            [ "$idle" != 3 ] || exit 0
            sleep 0.1
        done
        tail -n 5 "$2"/log/* >&2
        "$self" stop "$2"
        exit 1
        ;;
    run)
        export SLURM_CONF=$2/slurm.conf
        enter "${@:2}"
        ;;
    kill) enter "$2" kill -9 "$(<"$2/$3.pid")" ;;
    stop)
        holder=$(<"$2/control.pid")
        kill -9 "$holder" 2>/dev/null || true
        while [ -e "/proc/$holder" ]; do sleep 0.05; done
        ;;
    boot)
        export SLURM_CONF=$2/slurm.conf
        boot "$2" "$3"
        ;;
    *) sed -n '2,/^set/p' "$0" | sed -n 's/^# \{0,1\}//p' && exit 64 ;;
esac
