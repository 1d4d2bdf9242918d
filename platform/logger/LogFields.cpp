#include "platform/logger/LogFields.h"

#include <utility>

namespace {

thread_local JournalSocket::Fields ofThread;

} // namespace

LogFields::LogFields(const JournalSocket::Fields &fields) : before(ofThread)
{
    for (const auto &field : fields) {
        ofThread.removeIf([&](const auto &outer) { return outer.first == field.first; });
        ofThread << field;
    }
}

LogFields::LogFields(const QString &module, const QString &item)
    : LogFields({{"VYX_MODULE", module.toUtf8()}, {"VYX_ITEM", item.toUtf8()}})
{
}

LogFields::~LogFields()
{
    ofThread = std::move(before);
}

const JournalSocket::Fields &LogFields::current()
{
    return ofThread;
}
