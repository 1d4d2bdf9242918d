#include "catalogue/SavedEntries.h"

#include "catalogue/SavedItem.h"

#include <utility>

SavedEntries::SavedEntries(LinesByModule lines) : linesByModule(std::move(lines))
{
    QMap<QString, QStringList> plainKeys;
    QSet<QString> reserved = {ItemNames::modulesListName()};
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        reserved << ItemNames::versionFileName(module.key()) << ItemNames::checksumFileName(module.key())
                 << ItemNames::migrationProgramName(module.key());
        for (const ChecksumLine &line : module.value()) {
            if (line.isPlainFile()) {
                plainKeys[module.key()] << line.key();
            } else if (const auto item = SavedItem::parse(module.key(), line)) {
                reserved << item->artefact();
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
    const auto item = SavedItem::parse(module, line);
    return {{}, item ? item->artefact() : QString()};
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
