#include "platform/core/WorkQueue.h"

#include "platform/core/Waiter.h"

void WorkQueue::finish(Waiter &waiter)
{
    waiter.runBeside([this] { pool.waitForDone(); });
}
