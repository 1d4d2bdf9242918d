#include "commands/Portions.h"

#include "platform/core/Waiter.h"

#include <QDeadlineTimer>

bool runInPortions(Waiter &waiter, std::chrono::milliseconds limit, const std::function<Portion()> &work)
{
    constexpr int atOnce = 16;
    const QDeadlineTimer deadline(limit);
    Portion last = Portion::More;
    while (last == Portion::More && !waiter.mustEnd() && !deadline.hasExpired()) {
        waiter.runBeside([&] {
            int left = atOnce;
            while (left-- > 0 && last == Portion::More && !waiter.mustEnd() && !deadline.hasExpired()) {
                last = work();
            }
        });
    }
    return last == Portion::Last;
}
