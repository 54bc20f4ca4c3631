/*
 * How launches of one application find their master, and what the locks of a session add.
 *
 *   spin -a -DN=3 docs/arbitration.pml && cc -O2 -DSAFETY -o pan pan.c && ./pan
 *
 * N processes start at any moment, each with a list to hand over. A master shows what it got, and
 * quits at some time. At most one process is killed, at any moment, and a stranger may then listen
 * on the port that it left. Checked: there is never more than one master, no launch fails, no launch
 * that began after the kill hands over to the stranger, and every list is shown unless its receiver
 * was killed.
 *
 * -DBARE leaves out the session's two locks, the kill and the quits: two masters remain possible,
 * and the checker has to find them.
 */

#ifndef N
#define N 3
#endif

byte port;            /* the slot in the settings: 0, or the process that listens */
bool serving[N + 1];  /* the process accepts connections */
byte inbox[N + 1];    /* lists handed over to it and not yet shown */
byte launches;        /* who holds launch.lock */
byte life;            /* who holds master.lock */
byte masters;
byte handed, shown, lost, ended;
byte killed = 255;    /* nobody, until it is decided */

inline acquireLaunches() {
#ifdef BARE
    skip
#else
    atomic { launches == 0 -> launches = _pid }
#endif
}

inline releaseLaunches() {
#ifdef BARE
    skip
#else
    launches = 0
#endif
}

/* The kernel of a living listener takes the connection and the bytes. */
inline notifyMaster() {
    seen = port;
    atomic {
        if
        :: seen != 0 && serving[seen] -> inbox[seen]++; handed++; isSecondary = true
        :: else -> assert(seen == 0 || sawMaster) /* or a stranger may have accepted */
        fi
    }
}

/* Read, listen, read, write, read back; give back what is still one's own after a failure. */
inline startMaster() {
    seen = port;
    serving[_pid] = true;
    if
    :: port == seen ->
        port = _pid;
        if
        :: port == _pid ->
            atomic { isMaster = true; masters++; assert(masters == 1) }
        :: else
        fi
    :: else
    fi;
    if
    :: !isMaster -> atomic { serving[_pid] = false; if :: port == _pid -> port = 0 :: else fi }
    :: else
    fi
}

proctype Launch() {
    byte seen;
    bool isSecondary, isMaster;
    bool sawMaster = true; /* alive, when this launch began */
    {
        acquireLaunches();
#ifndef BARE
        atomic { /* whoever holds launch.lock and gets master.lock knows that no master lives */
            if
            :: life == 0 -> life = _pid; port = 0; sawMaster = false
            :: else
            fi
        }
#endif
        notifyMaster();
        if :: !isSecondary -> startMaster() :: else fi;
        if :: !isSecondary && !isMaster -> notifyMaster() :: else fi;
        if :: !isSecondary && !isMaster -> startMaster() :: else fi;
#ifndef BARE
        assert(isSecondary || isMaster);
        atomic {
            if
            :: !isMaster && life == _pid -> life = 0
            :: isMaster && life == 0 -> life = _pid /* the one it saw was killed meanwhile */
            :: else
            fi
        };
#endif
        releaseLaunches();
#ifdef BARE
        false /* masters stay */
#else
        do
        :: !isMaster -> break
        :: isMaster && inbox[_pid] > 0 -> atomic { shown = shown + inbox[_pid]; inbox[_pid] = 0 }
        :: isMaster -> /* quits: shows what came meanwhile instead, if anything did */
            acquireLaunches();
            if
            :: inbox[_pid] > 0 -> atomic { shown = shown + inbox[_pid]; inbox[_pid] = 0 }
            :: else ->
                skip; /* it has looked, and only then stops */
                atomic { serving[_pid] = false; isMaster = false; masters-- }
            fi;
            if
            :: !isMaster ->
                if :: port == _pid -> port = 0 :: else fi;
                life = 0
            :: else
            fi;
            releaseLaunches()
        od
#endif
    } unless {
        atomic {
            killed == _pid ->
            if :: isMaster -> masters-- :: else fi;
            serving[_pid] = false;
            lost = lost + inbox[_pid];
            inbox[_pid] = 0;
            if :: launches == _pid -> launches = 0 :: else fi;
            if :: life == _pid -> life = 0 :: else fi
        }
    };
    ended++
}

init {
    byte i;
    atomic {
        for (i : 1 .. N) { run Launch() }
    };
#ifndef BARE
    if
    :: killed = 0
    :: killed = 1 /* any of them: they are alike */
    fi;
    ended == N;
    assert(handed == shown + lost);
    assert(masters == 0 && launches == 0 && life == 0)
#endif
}
