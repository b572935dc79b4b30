/* The life of the section-filter channel: every interleaving of two servers, of which each has an
 * accept thread, a client, and a host's thread that starts it, releases its listener, stops or
 * destroys it; and of a host that opens a file.
 *
 * A thread that serves may wait for its client for ever (the labels that begin with `end`), but
 * not the host's threads. Each operation of SharedSocket is one step, and so is what is done with
 * the mutex `state` held.
 */

#ifndef SERVERS
#define SERVERS 2
#define CONNECTIONS 1
#define REQUESTS 1
#endif
#define NUMBERS 5
#define NONE 7

/* What the kernel has behind a number. */
#define FREE 0
#define FILE 1
#define LISTENING(s) (2 + (s))
#define CONNECTION(s) (4 + (s))
byte behind[NUMBERS];
byte listenSocket = NONE, clientSocket = NONE;  /* shared by all servers */

/* DemuxSession, one for each server. */
byte listening[SERVERS] = NONE, connection[SERVERS] = NONE;
bool owesSection[SERVERS], hasThread[SERVERS], hasServer[SERVERS], mustLeave[SERVERS];
bool isCalling[SERVERS];    /* the server's listener, not the inert one */
bool hasListener[SERVERS], isReleased[SERVERS], isCancelled[SERVERS], running[SERVERS];
bool threads;

bool listeningIsDown[SERVERS], connectionIsDown[SERVERS];

/* The client: how much it still asks, whether it has gone or reads no more, and whether it waits to
 * be accepted. */
byte asks[SERVERS];
bool hasGone[SERVERS], isFull[SERVERS], isQueued[SERVERS];

inline openDescriptor(number, what) {
  number = 0; do :: behind[number] == FREE -> break :: else -> number++ od; behind[number] = what
}
/* SharedSocket::close() */
inline closeSocket(own, shared, isDown, what) {
  if
  :: own != NONE ->
    assert(behind[own] == what); isDown = true; if :: shared == own -> shared = NONE :: else fi;
    behind[own] = FREE; own = NONE
  :: else
  fi
}
inline closeListening(s) {
  closeSocket(listening[s], listenSocket, listeningIsDown[s], LISTENING(s))
}
inline closeConnection(s) {
  closeSocket(connection[s], clientSocket, connectionIsDown[s], CONNECTION(s))
}

proctype acceptThread(byte s) {
  byte number; bool owes;
  atomic {
    running[s] = true;  /* announce() */
    owes = owesSection[s]; owesSection[s] = false;
    if :: owes -> goto answer :: !owes && connection[s] != NONE -> goto receive :: else fi
  };

serve:
  atomic { if :: mustLeave[s] -> goto ended :: else -> number = listening[s] fi };
endAccept:
  atomic {
    isQueued[s] || listeningIsDown[s]; assert(behind[number] == LISTENING(s));
    if
    :: isQueued[s] -> isQueued[s] = false; openDescriptor(number, CONNECTION(s))
    :: else -> goto ended
    fi
  };
  atomic {
    closeConnection(s); connection[s] = number; clientSocket = number;
    connectionIsDown[s] = false; number = NONE
  };
  if :: mustLeave[s] -> goto ended :: else fi;

receive:
endReceive:
  atomic {
    asks[s] > 0 || hasGone[s] || connectionIsDown[s];
    assert(behind[connection[s]] == CONNECTION(s));
    if :: asks[s] > 0 -> asks[s]-- :: hasGone[s] || connectionIsDown[s] -> goto close fi
  };
  if :: !hasServer[s] || mustLeave[s] -> goto receive :: else fi;

  /* The call: the one place where the thread can be cancelled. The inert listener does nothing. */
  atomic {
    isCalling[s] = hasServer[s] && !mustLeave[s] && hasListener[s];
    assert(!isCalling[s] || !isReleased[s])
  };
  if
  :: true
  :: isCalling[s] ->
endRead:
    atomic { isCancelled[s]; isCalling[s] = false; goto ended }
  fi;
  isCalling[s] = false;
  if
  :: mustLeave[s] -> goto serve
  :: !mustLeave[s]  /* a request that is answered */
  :: !mustLeave[s] -> goto receive
  fi;

answer:
  /* Whoever sends decides whether the client reads this, or no more. */
endSend:
  atomic {
    !isFull[s] || hasGone[s] || connectionIsDown[s];
    assert(behind[connection[s]] == CONNECTION(s)); if :: isFull[s] = true :: true fi
  };
  if
  :: owes -> owes = false; goto receive
  :: !owes && mustLeave[s] -> goto serve
  :: !owes && !mustLeave[s] -> goto receive
  fi;

close:
#ifdef BUG_CANCELLED_IN_CLOSE
  atomic { number = connection[s]; behind[number] = FREE };
  if :: isCancelled[s] -> goto ended :: true fi;
  atomic { connection[s] = NONE; clientSocket = NONE; number = NONE };
#else
  atomic { closeConnection(s) };
#endif
  goto serve;

ended:
  hasThread[s] = false
}

byte bound = NONE;  /* the server that has made the socket's file last */

proctype client(byte s) {
  byte connections;
  do
  :: atomic {
       connections < CONNECTIONS && bound == s && !listeningIsDown[s] &&
       connection[s] == NONE && !isQueued[s];
       connections++; asks[s] = (s == 0 -> REQUESTS : 0); hasGone[s] = false; isFull[s] = false;
       isQueued[s] = true
     };
     if :: s == 0 -> hasGone[s] = true :: break fi
  :: break
  od
}

inline lock(mutex) { atomic { !mutex -> mutex = true } }
inline unlock(mutex) { mutex = false }
inline beginThread(s) { isCancelled[s] = false; hasThread[s] = true; run acceptThread(s) }
inline endThread(s) { isCancelled[s] = true; !hasThread[s] }

inline releaseListener(s) {
  atomic { lock(threads); hasListener[s] = false };
  if :: !isCalling[s] :: true fi;  /* the time of grace */
  atomic { mustBeReplaced = isCalling[s]; mustLeave[s] = isCalling[s] };
  atomic {
    if
    :: mustBeReplaced ->
      endThread(s); if :: owesSection[s] = true :: true fi; mustLeave[s] = false; beginThread(s)
    :: else
    fi;
    mustBeReplaced = false; isReleased[s] = true; assert(!isCalling[s]); unlock(threads)
  }
}

inline stop(s) {
  atomic { lock(threads); mustLeave[s] = true }; listeningIsDown[s] = true;
  connectionIsDown[s] = true;
  atomic {
    endThread(s);
#ifdef BUG_STOP_CLOSES_SHARED
    closeSocket(clientSocket, connection[s], connectionIsDown[s], CONNECTION(s));
    closeSocket(listenSocket, listening[s], listeningIsDown[s], LISTENING(s));
#else
    closeConnection(s); closeListening(s);
#endif
    mustLeave[s] = false; hasServer[s] = false; running[s] = false; unlock(threads)
  }
}

proctype host(byte s) {
  byte number; bool mustBeReplaced;
  /* start() */
  atomic { openDescriptor(number, LISTENING(s)); bound = s };
  atomic {
    lock(threads); listening[s] = number; listenSocket = number; number = NONE;
    hasServer[s] = true; hasListener[s] = true; beginThread(s); unlock(threads); running[s]
  };
  if :: s == 0 -> releaseListener(s) :: true fi;
  if
  :: stop(s)
  :: s == 0 -> hasServer[s] = false  /* the server is destroyed, its thread lives on */
  :: s == 1
  fi
}

/* The host's own file takes whatever number is free. Nobody may close it. */
proctype file() {
  byte number;
  atomic { openDescriptor(number, FILE) }
}

init {
  atomic {
    run host(0); run client(0);
#if SERVERS == 2
    run host(1); run client(1)
#else
    run file()
#endif
  }
}
