#include "verify/RepositoryListing.h"

#include "outcome/OperationReport.h"
#include "repository/RepositorySession.h"
#include "verify/StoredItems.h"

ItemList listRepository(const OperationContext &context)
{
    RepositorySession session(context.repository, context.waiter);
    const auto stored = StoredItems::fetch(context, session);
    ItemList items;
    if (!stored) {
        return items;
    }
    for (const StoredItem &one : stored->items) {
        QVariantMap item = {{"module", one.item.getModule()},
                            {"item", one.item.getPath()},
                            {"kind", kindName(one.item.getKind())},
                            {"priority", one.item.getPriority()},
                            {"digest", one.digest},
                            {"entry", one.entry}};
        if (one.size >= 0) {
            item.insert("size", static_cast<quint64>(one.size));
        }
        items << item;
    }
    return items;
}
