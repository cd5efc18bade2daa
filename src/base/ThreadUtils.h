// ThreadUtils: includes every header of threads, locks, queues and tasks.
#pragma once

#include "base/system/SignalManager.h"
#include "base/tasks/AsyncTask.h"
#include "base/tasks/PointerQueue.h"
#include "base/tasks/WorkerRunner.h"
#include "base/threads/AtomicValue.h"
#include "base/threads/DetachedThread.h"
#include "base/threads/Locks.h"
#include "base/threads/ThreadNames.h"
