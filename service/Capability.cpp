#include "platform/logger/VYXLogger.h"
#include "repository/Repository.h"
#include "repository/RepositoryUrl.h"
#include "service/VYXSaveRestore.h"

namespace {

const char *const capabilityName = "SAVE_RESTORE_ENABLE";

} // namespace

bool VYXSaveRestore::hasRepositoryUrl() const
{
    return repository != nullptr && !repository->getRepositoryUrl().isEmpty();
}

Capability VYXSaveRestore::computedCapability() const
{
    if (operations.usesRepository()) {
        return {capabilityName, Capability::TEMPORARY_UNAVAILABLE};
    }
    const bool available = settings.enabled && hasRepositoryUrl();
    return {capabilityName, available ? Capability::AVAILABLE : Capability::UNAVAILABLE};
}

void VYXSaveRestore::checkCapability()
{
    const Capability current = getCapability(capabilityName);
    const Capability computed = computedCapability();
    if (computed.getState() == Capability::TEMPORARY_UNAVAILABLE) {
        setCapability(computed);
        return;
    }
    const bool available = computed.getState() == Capability::AVAILABLE;
    if (available) {
        logDebug("Capability AVAILABLE (%1)", RepositoryUrl::forDisplay(repository->getRepositoryUrl()));
    }
    const char *const state = available ? "AVAILABLE" : "UNAVAILABLE";
    if (current.getState() == computed.getState()) {
        logDebug("Capability unchange: %1", state);
    } else {
        logDebug("Capability change: %1", state);
    }
    setCapability(computed);
}
