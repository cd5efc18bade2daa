/* A model of how editors of one configuration file exclude each other, for the checker Spin. tools/model.sh runs it.
 *
 * It follows src/base/files/FileLock.cpp, src/base/files/ReplacementFile.cpp and src/profiles/store/ConfigLines.cpp
 * call by call. Each STEP names a system call and the file that it concerns, in the order in which the program makes
 * them; tests/model_test.cpp compares the steps that the model prints with the calls of the program. A call that
 * neither sees nor changes what other processes change belongs to the same indivisible step as its neighbour.
 *
 * Who takes part:
 *   - EDITORS editors at the same time, each of which makes one edit. One more editor starts when they have ended.
 *   - At most DEATHS of these editors die, each before any step. An editor that dies because memory ran out removes the
 *     files that it has marked; any other death removes nothing. The kernel closes the descriptors and so releases the
 *     locks. An editor that gives up at its deadline leaves what a death leaves.
 *   - If HAS_STRANGER, another user. At any time he puts his own lock directory, or none, in the place of ours, and
 *     ours back. In his directory he removes lock files, replaces them, and locks them for as long as he likes. So the
 *     model lets each search for the lock directory, and each wait for a lock in his directory, end in every possible
 *     way.
 *
 * What is assumed:
 *   - Nobody but the editors writes in the directory of the configuration file: who may, can cut that file himself.
 *   - All editors belong to one user, and so does the configuration file. The lock of its directory, which editors take
 *     for a file of another owner, is not in the model.
 *   - Only editors lock the temporary file. Until its fchmod nobody else can open it. If an editor dies between the
 *     fchmod and the rename, whoever may read the file can lock it, and so hold up each edit until its deadline.
 *   - The file system has locks, and the machine does not lose its power.
 *
 * What must hold (the assertions name these):
 *   one writer    no temporary file is open for writing twice
 *   whole file    the configuration file always has a whole content, which nobody changes any more
 *   no lost edit  at the end the file holds every edit that was reported as done, and none that was reported as failed
 *   no refusal    no editor fails because of another editor, dead or alive
 *   one holder    a lock file in our directory never has two holders; without a stranger
 *   no standstill no editor waits for something that will not happen
 * Two editors can take the new file from each other between its creation and its lock, again and again. Only the
 * deadline ends that.
 */

/* What the program does. tools/model.sh takes away one at a time, and the checker must find the flaw. */
#ifndef LOCKS_TEMPORARY
#define LOCKS_TEMPORARY true /* else a temporary file in the way is removed, whoever writes it */
#endif
#ifndef MAKES_ANEW
#define MAKES_ANEW true /* else a temporary file in the way is opened and written */
#endif
#ifndef LOOKS_AT_LEFTOVER
#define LOOKS_AT_LEFTOVER true /* a second look at the name, after the lock of a temporary file in the way */
#endif
#ifndef LEAVES_VANISHED
#define LEAVES_VANISHED true /* else a temporary file that vanishes before it can be opened is removed nevertheless */
#endif
#ifndef LOOKS_AT_LOCK
#define LOOKS_AT_LOCK true /* a second look at the name, after the lock of the lock file */
#endif
#ifndef READS_LOCKED
#define READS_LOCKED true /* else the old file is read before the locks are taken */
#endif
#ifndef CLOSES_AT_DEATH
#define CLOSES_AT_DEATH true /* else a child has the descriptors of a dead editor, and so the locks */
#endif
#ifndef UNLINKS_LOCKED
#define UNLINKS_LOCKED true /* else the lock file is removed after its lock was released */
#endif

#ifndef EDITORS
#define EDITORS 2
#endif
#ifndef DEATHS
#define DEATHS EDITORS
#endif
#ifndef HAS_STRANGER
#define HAS_STRANGER false
#endif
#define LAST EDITORS /* the editor that starts when the others have ended */
#define ALL (EDITORS + 1)

/* A simulation prints the steps, and so does the trail of a flaw. */
#define STEP(words) printf(#words); printf("\n")

/* What an editor does between two moments at which others can act. It may also die instead. */
#define BEGIN \
  atomic { \
    if \
    :: deaths < DEATHS && me != LAST -> deaths++; goto dead \
    :: true \
    fi; \
    d_step {
#define END \
    } \
  }

/* ---- The disk ---- */

/* Files are numbers; 0 is no file. */
#define FILES (2 * EDITORS + 6)
byte holder[FILES];  /* who holds flock on it: me + 1 for the editor `me` */
byte writers[FILES]; /* how many have it open for writing */
byte content[FILES]; /* a bit for each edit that it holds */
bool isWhole[FILES];
#define BIT(editor) (1 << (editor))

/* Names, and the files to which they lead. */
byte oldName;  /* the configuration file */
byte newName;  /* the temporary file */
byte lockName; /* the lock file in our lock directory */
byte lockDirectory;
#define NOWHERE 0
#define OURS 1 /* only our user can write in it */
#define HIS 2  /* others can write in it: the stranger's */

/* Descriptors of each editor. */
byte fd[ALL];     /* of a temporary file */
bool isWriting[ALL];
byte found[ALL];  /* of a temporary file in the way, which it cannot lock */
byte lockFd[ALL]; /* of a lock file */

/* ---- The editors ---- */

#define RUNNING 0 /* also for one that died before its rename */
#define DONE 1
#define FAILED 2
byte result[ALL];
byte running; /* how many have not ended */
byte deaths;
byte holderOfOurs; /* the editor that relies on the lock file in our directory, as in `holder` */

hidden byte i;
hidden byte k;
hidden byte isUsed;

/* Finds out whether a name or a descriptor leads to file `i`. */
inline lookForUse() {
  isUsed = (oldName == i || newName == i || lockName == i);
  k = 0;
  do
  :: k < ALL -> isUsed = isUsed || fd[k] == i || found[k] == i || lockFd[k] == i; k++
  :: else -> break
  od
}

/* A file without use is gone. Its number can be used again. */
inline forgetUnused() {
  i = 1;
  do
  :: i < FILES ->
     lookForUse();
     if
     :: !isUsed -> holder[i] = 0; writers[i] = 0; content[i] = 0; isWhole[i] = false
     :: else
     fi;
     i++
  :: else -> break
  od;
  i = 0
}

/* Makes a file if the name leads to none. */
inline makeMissing(name) {
  if
  :: name == 0 ->
     i = 1;
     do
     :: lookForUse();
        if
        :: isUsed -> i++
        :: else -> break
        fi
     od;
     name = i
  :: else
  fi
}

inline lock(file, me) {
  isMine = (holder[file] == 0);
  if
  :: isMine -> holder[file] = me + 1
  :: else
  fi
}

inline unlock(file, me) {
  if
  :: holder[file] == me + 1 -> holder[file] = 0
  :: else
  fi
}

inline closeForWriting(me) {
  if
  :: isWriting[me] -> writers[fd[me]]--; isWriting[me] = false
  :: else
  fi
}

inline closeFile(me) {
  closeForWriting(me);
  unlock(fd[me], me);
  fd[me] = 0;
  forgetUnused()
}

/* From now on the editor does nothing that the lock file protects. */
inline stopHolding(me) {
  if
  :: holderOfOurs == me + 1 -> holderOfOurs = 0
  :: else
  fi
}

inline closeLockFile(me) {
  stopHolding(me);
  unlock(lockFd[me], me);
  lockFd[me] = 0;
  forgetUnused()
}

/* ---- FileLock ---- */

inline findLockDirectory() {
  if
  :: directory = lockDirectory
  :: HAS_STRANGER -> directory = OURS
  :: HAS_STRANGER -> directory = HIS
  :: HAS_STRANGER -> directory = NOWHERE
  fi
}

/* FileLock::isDirectoryOurs. The result is in `hasLock`. */
inline lookAtLockDirectory(me) {
  findLockDirectory();
  BEGIN
    STEP(openat2 lock directory);
    STEP(fstat lock directory);
    STEP(close lock directory);
    hasLock = (directory == OURS)
  END
}

/* FileLock::tryOnce. The result is in `isMine`. */
inline tryLockFile(me) {
  BEGIN
    STEP(openat lock file);
    STEP(fstat lock file);
    makeMissing(lockName);
    lockFd[me] = lockName
  END;
  BEGIN STEP(flock lock file); lock(lockFd[me], me) END;
  if
  :: isMine ->
     BEGIN
       STEP(fstat lock file);
       STEP(newfstatat lock file);
       isMine = (lockName == lockFd[me] || !LOOKS_AT_LOCK);
       isLockMarked = isMine;
       if
       :: isMine ->
          assert(holderOfOurs == 0 || HAS_STRANGER); /* one holder */
          holderOfOurs = me + 1
       :: else
       fi
     END
  :: else
  fi
}

/* The constructor of FileLock. The program sleeps before it tries again; the model waits until a new try can end
 * differently. Without a lock directory, and with a lock of the stranger's, the edit goes on without this lock. */
inline takeLock(me) {
  findLockDirectory();
  BEGIN STEP(openat lock directory); hasLock = (directory == OURS) END;
  do
  :: hasLock ->
     tryLockFile(me);
     if
     :: isMine -> break
     :: else -> BEGIN STEP(close lock file); closeLockFile(me) END
     fi;
     lockName == 0 || holder[lockName] == 0
  :: directory == NOWHERE -> break
  :: directory == HIS -> isLockMarked = true; break
  :: directory == HIS -> goto refused /* the deadline */
  od
}

inline unlinkLockFile(me) {
  if
  :: isMine ->
     BEGIN
       STEP(unlinkat lock file);
       lockName = 0;
       isLockMarked = false; /* nothing between the two allocates memory */
       stopHolding(me);
       forgetUnused()
     END
  :: else
  fi
}

/* FileLock::release */
inline releaseLock(me) {
  if
  :: hasLock ->
     BEGIN STEP(fstat lock file); STEP(newfstatat lock file); isMine = (lockName == lockFd[me]) END;
     if
     :: UNLINKS_LOCKED -> unlinkLockFile(me)
     :: else
     fi;
     BEGIN STEP(close lock file); isLockMarked = false; closeLockFile(me) END;
     if
     :: !UNLINKS_LOCKED -> unlinkLockFile(me)
     :: else
     fi;
     STEP(close lock directory)
  :: else -> isLockMarked = false
  fi
}

/* ---- ReplacementFile ---- */

/* ReplacementFile::placeOfNew. The result is in `isMine`. */
inline look(file) {
  BEGIN STEP(fstat temporary file); STEP(newfstatat temporary file); isMine = (newName == file) END
}

inline lockFile(me) {
  BEGIN STEP(flock temporary file); lock(fd[me], me) END
}

/* ReplacementFile::makeWay. A file that has vanished before it can be locked has another name or none by then. */
inline makeWay(me) {
  BEGIN
    STEP(openat temporary file);
    found[me] = newName;
    isOpen = (newName != 0);
    if
    :: isOpen -> STEP(fstat temporary file)
    :: else
    fi
  END;
  isMine = true;
  if
  :: isOpen && LOCKS_TEMPORARY ->
     BEGIN STEP(openat temporary file); fd[me] = newName; isOpen = (newName != 0) END;
     if
     :: isOpen -> lockFile(me)
     :: else
     fi;
     if
     :: isMine && LOOKS_AT_LEFTOVER -> look(found[me])
     :: else
     fi
  :: !isOpen -> isMine = !LEAVES_VANISHED
  :: else
  fi;
  if
  :: isMine -> BEGIN STEP(unlinkat temporary file); newName = 0; forgetUnused() END
  :: else
  fi;
  if
  :: isOpen && LOCKS_TEMPORARY -> BEGIN STEP(close temporary file); closeFile(me) END
  :: else
  fi;
  BEGIN STEP(close temporary file); found[me] = 0; forgetUnused() END
}

/* ReplacementFile::make. It sleeps as takeLock does. */
inline make(me) {
  BEGIN STEP(openat2 directory); STEP(fstat directory) END;
  do
  :: true ->
     BEGIN /* the opening in ReplacementFile::tryOnce */
       STEP(openat temporary file);
       isMine = (newName == 0 || !MAKES_ANEW);
       if
       :: isMine ->
          makeMissing(newName);
          fd[me] = newName;
          isWriting[me] = true;
          writers[newName]++;
          assert(writers[newName] == 1) /* one writer */
       :: else
       fi
     END;
     if
     :: !isMine -> makeWay(me)
     :: isMine && !LOCKS_TEMPORARY -> break
     :: isMine && LOCKS_TEMPORARY ->
        lockFile(me);
        if
        :: isMine -> look(fd[me])
        :: else
        fi;
        if
        :: isMine -> break
        :: else -> BEGIN STEP(close temporary file); closeFile(me) END;
        fi
     fi;
     newName == 0 || holder[newName] == 0
  od
}

/* ReplacementFile::remove */
inline discard(me) {
  look(fd[me]);
  if
  :: isMine -> BEGIN STEP(unlinkat temporary file); newName = 0; isMarked = false; forgetUnused() END
  :: else -> assert(!LOCKS_TEMPORARY); isMarked = false /* no refusal */
  fi;
  BEGIN STEP(close temporary file); closeForWriting(me) END;
  BEGIN STEP(close temporary file); closeFile(me) END
}

/* ReplacementFile::replaceOld */
inline replaceOld(me) {
  if
  :: LOCKS_TEMPORARY -> look(fd[me]); assert(isMine) /* no refusal */
  :: else
  fi;
  BEGIN
    STEP(renameat temporary file);
    if
    :: newName != 0 ->
       oldName = newName;
       newName = 0;
       result[me] = DONE;
       assert(isWhole[oldName]) /* whole file */
    :: else -> assert(!LOCKS_TEMPORARY); result[me] = FAILED /* no refusal */
    fi;
    isMarked = false;
    forgetUnused()
  END;
  BEGIN STEP(openat directory); STEP(fsync directory); STEP(close directory); STEP(close file); closeFile(me) END
}

/* ---- LineEditor ---- */

inline write(me, isEnd) {
  STEP(write temporary file);
  assert(fd[me] != oldName); /* whole file */
  content[fd[me]] = (isEnd -> (seen | BIT(me)) : 0);
  isWhole[fd[me]] = isEnd
}

/* A simulation is one edit with nobody beside it. It sets DIRECTORY, HAS_LEFTOVER and IS_DISK_FULL. */
#ifdef IS_DISK_FULL
#define MAY_SUCCEED !IS_DISK_FULL
#define MAY_FAIL IS_DISK_FULL
#define LAST_RESULT (IS_DISK_FULL -> FAILED : DONE)
#else
#define MAY_SUCCEED true
#define MAY_FAIL (me != LAST)
#define LAST_RESULT DONE
#endif

inline edit(me) {
  if
  :: !READS_LOCKED -> seen = content[oldName]
  :: else
  fi;
  lookAtLockDirectory(me);
  if
  :: hasLock -> takeLock(me)
  :: else
  fi;
  make(me);
  BEGIN
    STEP(fcntl temporary file);
    isMarked = true;
    STEP(openat2 file);
    STEP(fstat file);
    STEP(read file);
    seen = (READS_LOCKED -> content[oldName] : seen);
    write(me, false)
  END;
  if
  :: MAY_SUCCEED ->
     BEGIN
       write(me, true);
       STEP(fchown temporary file);
       STEP(flistxattr file);
       STEP(flistxattr temporary file);
       STEP(fstat file);
       STEP(fchmod temporary file);
       STEP(fsync temporary file);
       STEP(close temporary file);
       closeForWriting(me)
     END;
     replaceOld(me)
  :: MAY_FAIL -> result[me] = FAILED; discard(me)
  fi;
  STEP(close file);
  STEP(close directory);
  releaseLock(me)
}

inline die(me) {
  if
  :: true /* it was killed */
  :: isMarked || isLockMarked -> /* memory ran out: the marked files are removed by their paths, the last one first */
     if
     :: isMarked -> d_step { newName = 0; forgetUnused() }
     :: else
     fi;
     if
     :: isLockMarked -> d_step { lockName = 0; stopHolding(me); forgetUnused() }
     :: else
     fi
  fi;
  if
  :: CLOSES_AT_DEATH -> d_step { found[me] = 0; closeFile(me); closeLockFile(me) }
  :: else
  fi
}

proctype Editor(byte me) {
  byte directory; /* of the lock files, opened */
  byte seen;      /* the content of the old file */
  bool hasLock;
  bool isLockMarked; /* the lock file is removed if memory runs out */
  bool isMarked;     /* and so is the temporary file */
  bool isMine;
  bool isOpen;
  edit(me);
  goto ended;
refused:
  result[me] = FAILED;
  goto ended;
dead:
  die(me);
ended:
  running--
}

/* Whatever an editor that died may have left is there at the start. */
inline choose() {
#ifdef IS_DISK_FULL
  lockDirectory = DIRECTORY;
  newName = (HAS_LEFTOVER -> 2 : 0)
#else
  if
  :: lockDirectory = OURS
  :: lockDirectory = OURS; lockName = 3
  :: lockDirectory = HIS
  fi;
  if
  :: newName = 0
  :: newName = 2
  fi
#endif
}

init {
  byte editor;
  byte edits;
  atomic {
    oldName = 1;
    isWhole[1] = true;
    choose();
    do
    :: editor < EDITORS -> running++; run Editor(editor); editor++
    :: else -> break
    od
  }
  running == 0; /* no standstill */
  atomic { running++; run Editor(LAST) }
  running == 0;
  d_step {
    assert(isWhole[oldName]); /* whole file */
    assert(result[LAST] == LAST_RESULT || HAS_STRANGER); /* no refusal */
    assert(newName == 0 || result[LAST] != DONE);
    assert(lockName == 0 || lockDirectory != OURS || HAS_STRANGER);
    editor = 0;
    do
    :: editor < ALL ->
       edits = content[oldName] & BIT(editor);
       assert(result[editor] != DONE || edits != 0);  /* no lost edit */
       assert(result[editor] != FAILED || edits == 0); /* no lost edit */
       editor++
    :: else -> break
    od
  }
}
