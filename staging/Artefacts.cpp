#include "staging/Artefacts.h"

Artefacts::Artefacts(const LinesByModule &saved) : any(true)
{
    for (auto lines = saved.cbegin(); lines != saved.cend(); ++lines) {
        QHash<QString, QString> &ofModule = digests[lines.key()];
        for (const ChecksumLine &line : lines.value()) {
            if (!line.isPlainFile() && !line.digest().isEmpty()) {
                ofModule.insert(line.identity(), line.digest());
            }
        }
    }
}

bool Artefacts::isMadeAnyway(const QString &module, const QString &identity) const
{
    return any && !digests.value(module).contains(identity);
}

bool Artefacts::isMade(const QString &module, const ChecksumLine &line) const
{
    return any && digests.value(module).value(line.identity()) != line.digest();
}
