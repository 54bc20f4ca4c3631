/*
 * How launches of one application find their master, what the locks of a session add, and what
 * becomes of lists when a master quits.
 *
 *   spin -a -DN=3 docs/arbitration.pml && cc -O2 -DSAFETY -o pan pan.c && ./pan
 *
 * N processes start at any moment, each with a list to hand over. A master shows what it got, one
 * list at a time, and quits at any moment. What it has not shown goes into the spool, and another
 * process is started for it. At most one process is killed, at any moment, and a stranger may then
 * listen on the port that it left. At most one master can no longer be reached, from any moment on.
 * At most one launch waits for the launch lock in vain, since the holder is slow: it hands over to a
 * master that answers, or leaves its list in the spool.
 *
 * Checked: there is never more than one master that can be reached, no launch fails, no launch that
 * began after the kill hands over to the stranger, and every list is shown once, unless its receiver
 * was killed, or waits in the spool for a next launch that does not come: that is so only if a
 * process was started for lists and showed none, or was killed.
 *
 * Three definitions take something away, and the checker has to find what happens then. -DBARE: the
 * session's two locks, the kill and the quits; two masters. -DFORGETFUL: the spool; a lost list.
 * -DWITHOUT_LOCK: a launch that waited in vain goes on as if it had the lock; two masters.
 */

#ifndef N
#define N 3
#endif
#define MOST 10 /* processes, with those that others start */

byte port;           /* the slot in the settings: 0, or the process that listens */
bool serving[MOST];  /* the process accepts connections */
bool deaf[MOST];     /* and nobody reaches it */
byte inbox[MOST];    /* lists handed over to it and not yet shown */
byte waiting;        /* lists in the spool */
byte launches;       /* who holds launch.lock */
byte living;         /* masters who hold master.lock, which they share */
byte masters;        /* that can be reached */
byte handed, shown, lost, running;
bool mayWait;        /* in the spool, until the end */
byte killed = 255;   /* nobody, until it is decided */
byte unreachable = 255;
byte impatient = 255;

inline acquireLaunches() {
#ifdef BARE
    skip
#else
    atomic { launches == 0 -> launches = _pid }
#endif
}

/* The launch that waits in vain does so only while somebody holds the lock. */
inline awaitLaunches() {
#ifdef BARE
    hasLock = true
#else
    if
    :: atomic { launches == 0 -> launches = _pid; hasLock = true }
    :: launches != 0 && impatient == _pid
    fi
#endif
}

/*
 * Without the lock. Its holder may have become master, and taken what waited, just before the list
 * came into the spool: so look again.
 */
inline leaveForNext() {
    seen = port;
    atomic {
        if
        :: seen != 0 && serving[seen] && !deaf[seen] ->
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
            :: !hasLock && waiting > 0 && seen != 0 && serving[seen] && !deaf[seen] ->
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

/* A launch that could have master.lock for itself knows that no master lives. Else it tries the port. */
inline findWayToMaster() {
    if
    :: atomic { living == 0 -> sawMaster = false }; port = 0
    :: living > 0 ->
       atomic {
           if
           :: port != 0 && serving[port] && !deaf[port]
           :: else -> port = 0 /* it was killed meanwhile, or is deaf */
           fi
       }
    fi
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

/*
 * To the master that took the place of one who could not be reached, if there is one, else into the
 * spool.
 */
inline leaveLists() {
#ifdef FORGETFUL
    inbox[_pid] = 0
#else
    atomic {
        if
        :: living > 0 && port != 0 && serving[port] && !deaf[port] ->
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
    atomic { /* the flush: nobody hands over from here on */
        serving[_pid] = false;
        isMaster = false;
        if :: !deaf[_pid] -> masters-- :: else fi
    };
    if :: port == _pid -> port = 0 :: else fi;
    atomic { living--; isLocked = false };
    leaveLists();
    releaseLaunches();
    atomic { /* also what the impatient launch left meanwhile */
        if
        :: waiting > 0 && isSuccessor && !hasShown -> mayWait = true
        :: waiting > 0 && !(isSuccessor && !hasShown) -> running++; run Launch(true)
        :: else
        fi
    }
}

proctype Launch(bool isForLists) {
    byte seen;
    bool isSecondary, isMaster, isLocked, isSuccessor, hasShown, hasLock;
    bool sawMaster = true; /* alive, when this launch began */
    {
        awaitLaunches();
#ifdef WITHOUT_LOCK
        hasLock = true;
#endif
        if
        :: !hasLock && !isForLists -> leaveForNext()
        :: else
        fi;
        if
        :: !hasLock
        :: hasLock && isForLists && waiting == 0 -> releaseLaunches() /* somebody else showed them */
        :: hasLock && !(isForLists && waiting == 0) ->
#ifndef BARE
            findWayToMaster();
#endif
            notifyMaster();
            if :: !isSecondary -> startMaster() :: else fi;
            if :: !isSecondary && !isMaster -> notifyMaster() :: else fi;
            if :: !isSecondary && !isMaster -> startMaster() :: else fi;
#ifndef BARE
            assert(isSecondary || isMaster);
            if :: isMaster -> atomic { living++; isLocked = true } :: else fi;
            atomic {
                if
                :: isMaster && waiting > 0 -> /* the file is removed, and then its lists are used */
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
        :: isMaster && !deaf[_pid] && unreachable == _pid ->
            atomic { deaf[_pid] = true; unreachable = 0; masters-- }
        :: isMaster -> quitMaster()
        od
#endif
    } unless {
        atomic {
            killed == _pid ->
            killed = 0;
            if :: isMaster && !deaf[_pid] -> masters-- :: else fi;
            serving[_pid] = false;
            lost = lost + inbox[_pid];
            inbox[_pid] = 0;
            mayWait = true;
            if :: launches == _pid -> launches = 0 :: else fi;
            if :: isLocked -> living-- :: else fi
        }
    };
    atomic { deaf[_pid] = false; running-- } /* another process may get this number */
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
    :: impatient = 0
    :: impatient = 2
    fi;
    running == 0;
    assert(handed == shown + lost + waiting);
    assert(waiting == 0 || mayWait);
    assert(masters == 0 && launches == 0 && living == 0)
#endif
}
