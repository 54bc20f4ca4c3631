/*
 * How launches of one application find their master, what the locks of a session add, and what happens
 * to lists when a master quits.
 *
 *   spin -a -DN=3 docs/arbitration.pml && cc -O2 -DSAFETY -o pan pan.c && ./pan
 *
 * N processes start at any moment, each with a list to hand over. A master shows its lists, one at a
 * time, and quits at any moment. It puts the lists that it has not shown into the spool, and starts
 * another process for them. These happen once at most, at any moment:
 * - A process is killed, perhaps while it holds the launch lock. Then another application may listen on
 *   its port.
 * - A master can no longer be reached.
 * - A launch gives up waiting for the launch lock, because its holder is slow. It hands over to a master
 *   that answers, or leaves its list in the spool.
 *
 * Checked:
 * - There is never more than one master that can be reached.
 * - No launch fails.
 * - No launch that began after the kill hands over to the other application.
 * - Every list is shown once, unless its receiver was killed, or it waits in the spool for a launch that
 *   does not come. It waits only if a process was started for the spool and showed none, or was killed.
 *
 * Each definition removes something, and the checker must find the error.
 * -DBARE: no locks, and also no kill and no quits. Two masters.
 * -DFORGETFUL: no spool. A lost list.
 * -DWITHOUT_LOCK: a launch that gives up waiting acts as if it had the lock. Two masters.
 * -DWITHOUT_MASTER_LOCK: a master does not hold master.lock. Two masters.
 */

#ifndef N
#define N 3
#endif
#define MOST 10 /* processes, with those that others start */

byte port;           /* the slot in the settings: 0, or the process that listens */
bool serving[MOST];  /* the process accepts connections */
bool cutOff[MOST];     /* and nobody reaches it */
byte inbox[MOST];    /* lists handed over to it and not yet shown */
byte waiting;        /* lists in the spool */
byte launches;       /* who holds launch.lock */
byte living;         /* masters who hold master.lock, which they share */
byte masters;        /* that can be reached */
byte handed, shown, lost, running;
bool mayWait;        /* in the spool, until the end */
byte killed = 255;   /* nobody, until it is decided */
byte unreachable = 255;
byte givesUp = 255;

inline acquireLaunches() {
#ifdef BARE
    skip
#else
    atomic { launches == 0 -> launches = _pid }
#endif
}

/* A launch gives up waiting only while another process holds the lock. */
inline awaitLaunches() {
#ifdef BARE
    hasLock = true
#else
    if
    :: atomic { launches == 0 -> launches = _pid; hasLock = true }
    :: launches != 0 && givesUp == _pid
    fi
#endif
}

/*
 * Without the lock. Its holder may have become master, and emptied the spool, just before the list came
 * into it. So look again.
 */
inline leaveForNext() {
    seen = port;
    atomic {
        if
        :: seen != 0 && serving[seen] && !cutOff[seen] ->
            inbox[seen]++; handed++; isSecondary = true
        :: else
        fi
    };
    if
    :: !isSecondary ->
        atomic { waiting++; handed++ };
        atomic {
            if
            :: launches == 0 && waiting > 0 -> launches = _pid; hasLock = true; waiting--; handed--
            :: else
            fi
        };
        seen = port;
        atomic {
            if
            :: !hasLock && waiting > 0 && seen != 0 && serving[seen] && !cutOff[seen] ->
                waiting--; inbox[seen]++
            :: else
            fi
        }
    :: else
    fi
}

inline releaseLaunches() {
#ifdef BARE
    skip
#else
    launches = 0
#endif
}

/* If master.lock is free, no master lives. Otherwise look at its port. */
inline findWayToMaster() {
    if
    :: atomic { living == 0 -> sawMaster = false }; port = 0
    :: living > 0 ->
       atomic {
           if
           :: port != 0 && serving[port] && !cutOff[port]
           :: else -> port = 0 /* it was killed meanwhile, or cannot be reached */
           fi
       }
    fi
}

/* The kernel accepts the connection and the bytes for a listener that lives. */
inline notifyMaster() {
    seen = port;
    atomic {
        if
        :: seen != 0 && serving[seen] -> inbox[seen]++; handed++; isSecondary = true
        :: else -> assert(seen == 0 || sawMaster) /* or another application may have accepted */
        fi
    }
}

/* Read, listen, read, write, read back. After a failure, give the slot back if it is still one's own. */
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

/*
 * To another master, which took the place of this one when it could not be reached. Otherwise into the
 * spool.
 */
inline leaveLists() {
#ifdef FORGETFUL
    inbox[_pid] = 0
#else
    atomic {
        if
        :: living > 0 && port != 0 && serving[port] && !cutOff[port] ->
            inbox[port] = inbox[port] + inbox[_pid]
        :: else ->
            waiting = waiting + inbox[_pid]
        fi;
        inbox[_pid] = 0
    }
#endif
}

inline quitMaster() {
    acquireLaunches();
    atomic { /* the flush: no launch hands over from here on */
        serving[_pid] = false;
        isMaster = false;
        if :: !cutOff[_pid] -> masters-- :: else fi
    };
    if :: port == _pid -> port = 0 :: else fi;
    atomic { if :: isLocked -> living--; isLocked = false :: else fi };
    leaveLists();
    releaseLaunches();
    atomic { /* also what a launch without the lock left meanwhile */
        if
        :: waiting > 0 && isSuccessor && !hasShown -> mayWait = true
        :: waiting > 0 && !(isSuccessor && !hasShown) -> running++; run Launch(true)
        :: else
        fi
    }
}

proctype Launch(bool startedForSpool) {
    byte seen;
    bool isSecondary, isMaster, isLocked, isSuccessor, hasShown, hasLock;
    bool sawMaster = true; /* that lived when this launch began */
    {
        awaitLaunches();
#ifdef WITHOUT_LOCK
        hasLock = true;
#endif
        if
        :: !hasLock && !startedForSpool -> leaveForNext()
        :: else
        fi;
        if
        :: !hasLock
        :: hasLock && startedForSpool && waiting == 0 -> releaseLaunches() /* another process showed them */
        :: hasLock && !(startedForSpool && waiting == 0) ->
#ifndef BARE
            findWayToMaster();
#endif
            notifyMaster();
            if :: !isSecondary -> startMaster() :: else fi;
            if :: !isSecondary && !isMaster -> notifyMaster() :: else fi;
            if :: !isSecondary && !isMaster -> startMaster() :: else fi;
#ifndef BARE
            assert(isSecondary || isMaster);
#ifndef WITHOUT_MASTER_LOCK
            if :: isMaster -> atomic { living++; isLocked = true } :: else fi;
#endif
            atomic {
                if
                :: isMaster && waiting > 0 -> /* it removes the file before it uses the lists */
                    isSuccessor = true;
                    inbox[_pid] = inbox[_pid] + waiting;
                    waiting = 0
                :: else
                fi
            };
#endif
            releaseLaunches()
        fi;
#ifdef BARE
        false /* masters stay */
#else
        do
        :: !isMaster -> break
        :: isMaster && inbox[_pid] > 0 ->
            atomic { shown++; inbox[_pid]--; hasShown = true }
        :: isMaster && !cutOff[_pid] && unreachable == _pid ->
            atomic { cutOff[_pid] = true; unreachable = 0; masters-- }
        :: isMaster -> quitMaster()
        od
#endif
    } unless {
        atomic {
            killed == _pid ->
            killed = 0;
            if :: isMaster && !cutOff[_pid] -> masters-- :: else fi;
            serving[_pid] = false;
            lost = lost + inbox[_pid];
            inbox[_pid] = 0;
            mayWait = true;
            if :: launches == _pid -> launches = 0 :: else fi;
            if :: isLocked -> living-- :: else fi
        }
    };
    atomic { cutOff[_pid] = false; running-- } /* another process may get this number */
}

init {
    byte i;
    atomic {
        running = N;
        for (i : 1 .. N) { run Launch(false) }
    };
#ifndef BARE
    if
    :: killed = 0
    :: killed = 1 /* any of them: they are alike */
    :: killed = N + 1 /* the first that another one starts */
    fi;
    if
    :: unreachable = 0
    :: unreachable = 2
    fi;
    if
    :: givesUp = 0
    :: givesUp = 2
    fi;
    running == 0;
    assert(handed == shown + lost + waiting);
    assert(waiting == 0 || mayWait);
    assert(masters == 0 && launches == 0 && living == 0)
#endif
}
