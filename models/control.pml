/* The life of the control channel: every interleaving of the host that deletes the manager and
 * makes it anew, the accept thread, two state callers, a notifier and a client.
 *
 * Every loop is bounded, so "it ends" means "it is never stuck": spin reports each state in which a
 * thread waits and nothing can move. What one thread does in one `atomic` is one atomic operation,
 * or takes locks, does one thing that others see, and gives locks back.
 */

/* What the notifier does. */
#define NOBODY 0
#define ONE_RECORD 1
#define ANYTHING 2

#ifndef LIFETIMES
#define LIFETIMES 1
#define CONNECTIONS 1
#define REQUESTS 1
#define CALLERS 2
#define NOTIFIER ONE_RECORD
#endif

typedef Gate {
  bool shut = true;
  byte inside
};
Gate notifiers, senders;
bool managerMutex;  /* a plain one: it allows every order of coming, the fair one's included */
bool sendMutex, applicationStateMutex;
bool hostLock;  /* one of the host's, which its listeners take, too */

bool managerExists, serverExists, running, acceptThreadRuns;

bool applicationStatePending;
/* What calls return is looked at where RESULT says so: no step depends on it. */
#ifdef RESULT
bool applicationStateResult, answer[2], endReleases[2];
#define result(what) what
#ifdef BUG_END_READS_THE_RESULT
#define END_ANSWERS applicationStateResult
#else
#define END_ANSWERS true
#endif
#else
#define result(what) skip
#endif
byte ended;
bool waits[2], isReleased[2];
byte asked[2];  /* the connection that got the call's record */

/* What the kernel has behind a number: nothing, the listening socket, or a connection. `inHand`
 * counts those who have read a number and use it. Each operation of SharedSocket is one step. */
#define NUMBERS 2
#define NONE 7
#define FREE 0
#define LISTENING 1
#define CONNECTION 2
#define TO (behind[clientSocket] - CONNECTION)
byte behind[NUMBERS], inHand[NUMBERS];
bool aboutToSend;
byte listening = NONE, connection = NONE, clientSocket = NONE;
bool listeningIsDown;

/* A connection. Whoever sends decides whether the client reads the record, or no further one. */
#define OPEN 1
#define HALF_CLOSED 2
#define GONE 3
byte clientIs[CONNECTIONS], asks[CONNECTIONS];
bool isFull[CONNECTIONS], isDown[CONNECTIONS];
chan backlog = [CONNECTIONS] of {byte};

byte replying;       /* who has sent a part of a sequence and not its last */
byte listenersWait;  /* how many listeners wait for the host's lock */

inline lock(mutex) { atomic { !mutex -> mutex = true } }
inline unlock(mutex) { assert(mutex); mutex = false }

inline enter(gate, passes) { atomic { passes = !gate.shut; gate.inside = gate.inside + passes } }
inline leave(gate) { assert(gate.inside > 0); gate.inside-- }

inline openDescriptor(number, what) {
  number = 0; do :: behind[number] == FREE -> break :: else -> number++ od; behind[number] = what
}
inline closeDescriptor(number) {
  assert(behind[number] != FREE && inHand[number] == 0); behind[number] = FREE
}

inline shutDownConnection() {
  atomic { if :: connection != NONE -> isDown[behind[connection] - CONNECTION] = true :: else fi }
}
inline closeConnection() {
  if
  :: connection != NONE ->
    isDown[behind[connection] - CONNECTION] = true; assert(!aboutToSend); clientSocket = NONE;
    closeDescriptor(connection); connection = NONE
  :: else
  fi
}

/* IpcServer::SendGuard. A thread that is refused must not touch the server. */
inline takeSendMutex() { !sendMutex; sendMutex = true; assert(serverExists) }
inline endSending() {
  assert(serverExists); aboutToSend = false; replying = 0; unlock(sendMutex); leave(senders)
}
inline mayGo() { aboutToSend = !senders.shut }
/* Whoever may go reads the number and sends. Both are one step because nobody may change the number
 * while somebody is about to send: closeConnection() asserts it. */
inline send(isLast) {
  isSent = false;
  if
  :: clientSocket == NONE
  :: clientSocket != NONE ->
    !isFull[TO] || isDown[TO] || clientIs[TO] == GONE;
    assert(behind[clientSocket] >= CONNECTION && (replying == 0 || replying == _pid + 1));
    replying = (isLast -> 0 : _pid + 1);
    if
    :: isDown[TO] || clientIs[TO] == GONE
    :: else -> isSent = true; if :: isFull[TO] = true :: true fi
    fi
  fi
}
inline leaveIfNotifying() { if :: notifies -> leaveManager() :: else fi }
inline sendRecords(isLong) {
  enter(senders, passes);
  if
  :: passes ->
    atomic { takeSendMutex(); mayGo() };
    if :: isLong && aboutToSend -> atomic { send(false) }; mayGo() :: else fi;
    atomic {
      if :: aboutToSend -> send(true) :: else fi; endSending(); passes = false; isSent = false;
      leaveIfNotifying()
    }
  :: else -> atomic { leaveIfNotifying() }
  fi
}

inline callListeners() {
  atomic {
    !managerMutex; managerMutex = true;
    if :: hostLock -> listenersWait++; !hostLock; listenersWait-- :: true fi; unlock(managerMutex)
  }
}

/* What the condition's broadcast wakes is whoever is released. */
inline endConnection() {
  atomic {
    !applicationStateMutex; applicationStateMutex = true; ended++;
    result(applicationStateResult = true)
  };
  atomic {
    if
    :: applicationStatePending ->
      result(answer[0] = END_ANSWERS); result(endReleases[0] = waits[0] && !isReleased[0]);
      result(answer[1] = END_ANSWERS); result(endReleases[1] = waits[1] && !isReleased[1]);
      isReleased[0] = waits[0]; isReleased[1] = waits[1]
    :: else
    fi;
    unlock(applicationStateMutex)
  }
}
inline receiveAnswer() {
  atomic {
    !applicationStateMutex;
    if  /* the first to come, which may be any */
    :: waits[0] && !isReleased[0] -> isReleased[0] = true
    :: waits[1] && !isReleased[1] -> isReleased[1] = true
    :: else
    fi
  }
}
inline await(me) {
  applicationStatePending = true;
  result(applicationStateResult = false);
  atomic {
    !applicationStateMutex; waits[me] = true; applicationStatePending = true;
    isReleased[me] = (ended != endedBefore); isReleased[me] && !applicationStateMutex;
    waits[me] = false; isReleased[me] = false;
    result(assert(!endReleases[me] || answer[me])); result(endReleases[me] = false);
#ifdef BUG_ANSWER_CLEARS_PENDING
    applicationStatePending = false;
#else
    applicationStatePending = waits[0] || waits[1];
#endif
    asked[me] = 0;
    finish(me)
  }
}

/* A manager that is being deleted may be called; one that is deleted may not. */
inline enterManager(passes) {
  atomic { if :: managerExists -> enter(notifiers, passes) :: else fi }
}
inline leaveManager() { assert(managerExists && serverExists); leave(notifiers); notifies = false }

/* What ends a call, and what the host does behind it. */
inline finish(me) {
  leaveManager(); isSent = false; endedBefore = 0; if :: me == 0 -> unlock(hostLock) :: else fi
}
proctype stateCaller(byte me) {
  bool passes, isSent, notifies; byte endedBefore;
  atomic { if :: me == 0 -> !hostLock; hostLock = true :: else fi; enterManager(notifies) };
  if
  :: notifies ->
    enter(senders, passes);
    if
    :: passes ->
      atomic { takeSendMutex(); endedBefore = ended }; mayGo();
      atomic {
        if :: aboutToSend -> send(true); asked[me] = (isSent -> TO : 0) :: else fi; endSending();
        passes = false; if :: !isSent -> finish(me) :: else fi
      };
      if :: isSent -> await(me) :: else fi
    :: else -> atomic { finish(me) }
    fi
  :: else -> atomic { if :: me == 0 -> unlock(hostLock) :: else fi }
  fi
}

/* A notification, a long command, or a query, whose listeners are called on this thread. */
proctype notifier() {
  bool passes, isSent, notifies, isLong;
  if
  :: NOTIFIER == ANYTHING -> callListeners()
  :: atomic { if :: NOTIFIER == ANYTHING -> isLong = true :: true fi; enterManager(notifies) };
     if :: notifies -> sendRecords(isLong) :: else fi
  fi
}

#define END 0
#define ANSWER 1
#define LIST 2
#define NOTIFYING 3

/* IpcServer::serveClient(), receiveRecords() */
inline receive() {
  if
  :: asks[peer] > 0 ->
    asks[peer]--; if :: request = ANSWER :: request = LIST :: request = NOTIFYING fi
  :: clientIs[peer] != OPEN || isDown[peer] -> request = END
  fi;
  assert(behind[connection] == CONNECTION + peer)
}

proctype acceptThread() {
  byte number, peer, request; bool passes, isSent, notifies;
  atomic { running = true; inHand[listening]++ };
  do
  :: atomic {
       if
       :: backlog ? peer ->
         assert(behind[listening] == LISTENING); openDescriptor(number, CONNECTION + peer)
       :: empty(backlog) && listeningIsDown -> break
       fi
     };
     atomic { assert(connection == NONE); connection = number; clientSocket = number; number = 0 };
     atomic {
       if :: senders.shut -> break :: else fi; inHand[connection]++;
       callListeners()  /* clientConnected() */
     };
     do
     :: atomic {
          receive(); if :: request == END || senders.shut -> request = END; break :: else fi
        };
        if
        :: request == ANSWER -> receiveAnswer()
        :: request == LIST -> callListeners(); sendRecords(true)
        :: request == NOTIFYING ->
          lock(managerMutex); enterManager(notifies);
          if :: notifies -> sendRecords(false) :: else fi; unlock(managerMutex)
        fi
     od;
     atomic {
       inHand[connection]--; if :: senders.shut -> break :: else fi
     };
     endConnection();  /* before any listener is called */
     callListeners();  /* the record that tells of the connection's end */
     shutDownConnection(); enter(senders, passes);
     atomic {
       if
       :: passes -> takeSendMutex(); closeConnection(); endSending(); passes = false
       :: else -> break
       fi
     };
     endConnection();
     callListeners()  /* clientDisconnected() */
  od;
  atomic { inHand[listening]--; acceptThreadRuns = false }
}

/* Whoever receives decides what was asked, up to the moment in which the client falls silent. */
proctype client() {
  byte c;
  do
  :: atomic {
       c < CONNECTIONS && listening != NONE && !listeningIsDown ->
       clientIs[c] = OPEN; asks[c] = REQUESTS; backlog ! c
     };
     if :: atomic { clientIs[c] == OPEN -> clientIs[c] = HALF_CLOSED } :: true fi;
     if :: atomic { clientIs[c] = GONE; c++ } :: atomic { asks[c] = 0; break } fi
  :: break
  od
}

#define waitsForNobody(me) (waits[me] && clientIs[asked[me]] == GONE)

/* IpcServerManager::shutDown(). When the destructor runs it again nobody is left to notice. */
inline shutDown() {
  notifiers.shut = true; senders.shut = true; shutDownConnection();
#ifdef BUG_MUTEX_BEFORE_RELEASE
  lock(managerMutex); endConnection(); unlock(managerMutex);
#else
  endConnection();
#endif
  /* IpcServer::stop() */
  atomic { shutDownConnection(); listeningIsDown = true };
  atomic {
    !acceptThreadRuns && senders.inside == 0; closeConnection(); closeDescriptor(listening);
    listening = NONE; do :: backlog ? peer -> isDown[peer] = true :: empty(backlog) -> break od;
    running = false
  }
}

active proctype host() {
  byte lifetime, peer;
  do
  :: lifetime < LIFETIMES ->
    lifetime++;
    /* getInstance() */
    lock(managerMutex); notifiers.shut = false;
    atomic {
      clientSocket = NONE; serverExists = true; listeningIsDown = false;
      openDescriptor(listening, LISTENING)
    };
    senders.shut = false; atomic { acceptThreadRuns = true; run acceptThread() };
    atomic {
      running; managerExists = true; unlock(managerMutex);
      if
      :: lifetime == 1 -> run stateCaller(0);
#if CALLERS == 2
        run stateCaller(1);
#endif
#if NOTIFIER != NOBODY
        run notifier();
#endif
        run client()
      :: else
      fi
    };
#ifdef DELETION_COMES_LAST
    /* Nothing moves: nobody waits for a client that has gone, unless a listener is stuck. */
    timeout; assert(listenersWait || !waitsForNobody(0) && !waitsForNobody(1));
#endif
    shutDown();
    /* destroy() takes the mutex, a plain delete does not. */
    atomic {
      notifiers.inside == 0;
      if
      :: !managerMutex
      :: true
      fi;
      managerExists = false; serverExists = false
    }
  :: else -> break
  od
}
