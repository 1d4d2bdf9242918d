#include "catalogue/SavedEntries.h"

#include <utility>

SavedEntries::SavedEntries(LinesByModule lines) : linesByModule(std::move(lines))
{
    QMap<QString, QStringList> plainKeys;
    QSet<QString> reserved = {ItemNames::modulesListName()};
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        reserved << ItemNames::versionFileName(module.key()) << ItemNames::checksumFileName(module.key())
                 << module.key() + "Migration";
        for (const ChecksumLine &line : module.value()) {
            if (line.isPlainFile()) {
                plainKeys[module.key()] << line.key();
            } else {
                reserved << ItemNames::artefactOfKey(line.key());
            }
        }
    }
    plainFiles = ItemNames::PlainFileEntries(plainKeys, reserved);
}

ItemNames::EntryName SavedEntries::entry(const QString &module, const ChecksumLine &line) const
{
    if (line.isPlainFile()) {
        return plainFiles.entry(module, line.key());
    }
    return {{}, ItemNames::artefactOfKey(line.key())};
}

QSet<QString> SavedEntries::names() const
{
    QSet<QString> names;
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            names << entry(module.key(), line).text();
        }
    }
    return names;
}
