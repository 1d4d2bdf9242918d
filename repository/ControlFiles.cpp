#include "repository/ControlFiles.h"

#include "catalogue/ChecksumFile.h"
#include "catalogue/FileAttributes.h"
#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "catalogue/RepositoryFormat.h"
#include "catalogue/SavedVersion.h"
#include "platform/DevicePaths.h"
#include "repository/RepositorySession.h"

#include <utility>

void ControlFiles::ask(const QString &entry, qint64 largest)
{
    if (!outcomes.contains(entry)) {
        outcomes.insert(entry, {RequestOutcome::Failed, {}});
        asked << RepositoryRequest{RepositoryRequest::Get, entry, DevicePaths::fetched(entry), {}, largest};
    }
}

void ControlFiles::askForList()
{
    ask(ItemNames::formatName(), largestFormatFile);
    ask(ItemNames::modulesListName(), largestModulesList);
}

bool ControlFiles::hasNewerFormat() const
{
    const QString entry = ItemNames::formatName();
    return outcome(entry).stored() && !isKnownFormat(DevicePaths::fetched(entry));
}

void ControlFiles::askForVersion(const QString &module)
{
    ask(ItemNames::versionFileName(module), largestVersionFile);
}

void ControlFiles::askForChecksums(const QString &module)
{
    ask(ItemNames::checksumFileName(module), largestChecksumFile);
}

void ControlFiles::askForAttributes(const QString &module)
{
    ask(ItemNames::attributesFileName(module), largestAttributesFile);
}

void ControlFiles::fetch()
{
    for (const RepositoryRequest &request : std::exchange(asked, {})) {
        session.submit(request, [this, entry = request.entry](const RequestOutcome &outcome) {
            outcomes.insert(entry, outcome);
        });
    }
    session.waitForRequests();
}
